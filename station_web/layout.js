/* Fitting texts to their boxes. */
var layout = (function () {
    'use strict';

    /* Below this fraction of the page's height, break long words instead of shrinking the text. */
    var SMALLEST_UNBROKEN = 0.05;

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

    return { fit: fit };
}());
