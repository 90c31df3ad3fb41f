/* How much room a text takes. All lengths are in pixels. */
var measure = (function () {
    'use strict';

    var LINE = 1.12; /* of the font's size */

    /* Whole pixels, so that a page of whole lines cuts none. */
    function line_height(size) {
        return Math.ceil(size * LINE);
    }

    function set_type(element, width, size, is_broken) {
        element.style.width = Math.floor(width) + 'px';
        element.style.fontSize = size + 'px';
        element.style.lineHeight = line_height(size) + 'px';
        element.style.wordWrap = is_broken ? 'break-word' : 'normal';
    }

    function set_text(element, text) {
        if (element.textContent !== text) {
            element.textContent = text;
        }
    }

    /* The height of the element's text in lines of this size, or Infinity if a word is too wide. */
    function height(element, width, size, is_broken) {
        set_type(element, width, size, is_broken);
        element.style.height = 'auto';
        return element.scrollWidth > element.clientWidth ? Infinity : element.scrollHeight;
    }

    /* The largest whole number from low to high that fits; low is known to. */
    function largest(low, high, fits) {
        var middle;
        high = Math.floor(high) + 1;
        while (high - low > 1) {
            middle = Math.floor((low + high) / 2);
            if (fits(middle)) {
                low = middle;
            } else {
                high = middle;
            }
        }
        return low;
    }

    return {
        line_height: line_height,
        set_type: set_type,
        set_text: set_text,
        height: height,
        largest: largest
    };
}());
