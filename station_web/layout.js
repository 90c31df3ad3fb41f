/* The page's size, its rotation, and fitting texts to their boxes. */
var layout = (function () {
    'use strict';

    /* Below this fraction of the page's height, break long words instead of shrinking the text. */
    var SMALLEST_UNBROKEN = 0.05;

    /* In degrees, clockwise. The service appends "?rotation=" even after another query. */
    function rotation() {
        var found = /[?&]rotation=([0-9]+)/.exec(window.location.search);
        return found ? Math.round(parseInt(found[1], 10) / 90) * 90 % 360 : 0;
    }

    function transform_for(degrees, width, height) {
        var x = degrees === 90 || degrees === 180 ? width : 0,
            y = degrees === 180 || degrees === 270 ? height : 0;
        return 'translate(' + x + 'px,' + y + 'px) rotate(' + degrees + 'deg)';
    }

    /* One rem is a hundredth of the page's shorter side. */
    function place_page(page) {
        var degrees = rotation(),
            is_turned = degrees % 180 !== 0,
            width = is_turned ? window.innerHeight : window.innerWidth,
            height = is_turned ? window.innerWidth : window.innerHeight,
            transform = transform_for(degrees, window.innerWidth, window.innerHeight);
        page.style.width = width + 'px';
        page.style.height = height + 'px';
        page.style.webkitTransform = transform;
        page.style.transform = transform;
        page.className = width < height ? 'portrait' : 'landscape';
        document.documentElement.style.fontSize = Math.min(width, height) / 100 + 'px';
    }

    function fits(element, size) {
        element.style.fontSize = size + 'px';
        return element.scrollWidth <= element.clientWidth &&
            element.scrollHeight <= element.clientHeight;
    }

    function largest_size(element, limit) {
        var low = 4, high = limit, middle;
        while (high - low > 1) {
            middle = Math.floor((low + high) / 2);
            if (fits(element, middle)) {
                low = middle;
            } else {
                high = middle;
            }
        }
        fits(element, low);
        return low;
    }

    /* Sets the element's font to the largest that fits its box, up to a fraction of its height. */
    function fit(element, part_of_height) {
        var limit = Math.floor(element.clientHeight * part_of_height),
            page_height = document.getElementById('page').clientHeight;
        element.style.wordWrap = 'normal';
        if (largest_size(element, limit) < page_height * SMALLEST_UNBROKEN) {
            element.style.wordWrap = 'break-word';
            largest_size(element, limit);
        }
    }

    return { place_page: place_page, fit: fit };
}());
