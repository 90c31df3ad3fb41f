/* What is wrong with the page as it is drawn now: an array of sentences, empty if nothing is.
   Arguments: the percentage of the safe area and the text that the alert has. */
'use strict';
var safe_percent = arguments[0], whole_text = arguments[1];
var faults = [];
var rem = parseFloat(getComputedStyle(document.documentElement).fontSize);
var FLOOR = 6.35, LARGE = 7.9; /* rem: 16 and 20 minutes of arc */
var SLACK = 1; /* pixel */

function by_id(name) { return document.getElementById(name); }

function style(element) { return getComputedStyle(element); }

function is_seen(element) {
    var box = element.getBoundingClientRect();
    return style(element).visibility === 'visible' && box.width > 0 && box.height > 0 &&
        element.textContent !== '';
}

function size(element) { return parseFloat(style(element).fontSize) / rem; }

function channels(color) {
    return color.match(/[0-9.]+/g).slice(0, 3).map(function (channel) {
        var c = channel / 255;
        return c <= 0.03928 ? c / 12.92 : Math.pow((c + 0.055) / 1.055, 2.4);
    });
}

function luminance(color) {
    var c = channels(color);
    return 0.2126 * c[0] + 0.7152 * c[1] + 0.0722 * c[2];
}

function ground(element) {
    while (element && /^rgba\(.*, 0\)$|^transparent$/.test(style(element).backgroundColor)) {
        element = element.parentElement;
    }
    return element ? style(element).backgroundColor : 'rgb(0, 0, 0)';
}

function contrast(element) {
    var ink = luminance(style(element).color), paper = luminance(ground(element));
    return (Math.max(ink, paper) + 0.05) / (Math.min(ink, paper) + 0.05);
}

/* The part of the element's box that its clipping ancestors leave. */
function visible_box(element) {
    var box = element.getBoundingClientRect(),
        seen = { left: box.left, top: box.top, right: box.right, bottom: box.bottom }, outer;
    for (element = element.parentElement; element; element = element.parentElement) {
        if (style(element).overflow === 'hidden') {
            outer = element.getBoundingClientRect();
            seen.left = Math.max(seen.left, outer.left);
            seen.top = Math.max(seen.top, outer.top);
            seen.right = Math.min(seen.right, outer.right);
            seen.bottom = Math.min(seen.bottom, outer.bottom);
        }
    }
    return seen;
}

function name_of(element) {
    return element.id || element.className + ' ' + element.textContent.slice(0, 20);
}

function check_safe(element) {
    var box = visible_box(element), x = innerWidth * safe_percent / 100, y = innerHeight * safe_percent / 100;
    if (box.left < x - SLACK || box.top < y - SLACK || box.right > innerWidth - x + SLACK ||
            box.bottom > innerHeight - y + SLACK) {
        faults.push(name_of(element) + ' leaves the safe area: ' + JSON.stringify(box));
    }
}

function check_legible(element, floor, least_contrast) {
    if (size(element) < floor - 0.05) {
        faults.push(name_of(element) + ' is too small: ' + size(element) + ' rem');
    }
    if (contrast(element) < least_contrast) {
        faults.push(name_of(element) + ' has too little contrast: ' + contrast(element));
    }
}

function overlap(a, b) {
    a = visible_box(a);
    b = visible_box(b);
    return Math.min(a.right, b.right) - Math.max(a.left, b.left) > SLACK &&
        Math.min(a.bottom, b.bottom) - Math.max(a.top, b.top) > SLACK;
}

function check_no_overlap(elements) {
    elements.forEach(function (a, i) {
        elements.slice(i + 1).forEach(function (b) {
            if (overlap(a, b)) {
                faults.push(name_of(a) + ' overlaps ' + name_of(b));
            }
        });
    });
}

function squeezed(text) { return text.replace(/[\s\u00a0]+/g, ''); }

function check_text() {
    var first = by_id('first'), rest = by_id('rest'), inner = by_id('rest_text'), line, parts;
    var has_rest = rest.style.display !== 'none' || by_id('pages').textContent !== '';
    parts = first.textContent + (has_rest ? inner.textContent : '');
    if (squeezed(parts) !== squeezed(whole_text)) {
        faults.push('not all of the text is there: ' + parts.slice(0, 80));
    }
    if (first.scrollWidth > first.clientWidth || first.offsetTop + first.offsetHeight >
            by_id('text').clientHeight + SLACK) {
        faults.push('the first lines are cut');
    }
    if (whole_text !== '') {
        check_legible(first, LARGE - 0.2, 7);
    }
    if (!has_rest || rest.style.display === 'none') {
        return;
    }
    check_legible(inner, FLOOR, 7);
    line = parseFloat(style(inner).lineHeight);
    if (inner.scrollWidth > inner.clientWidth) {
        faults.push('the rest of the text is cut at the side');
    }
    if (Math.abs(parseFloat(inner.style.top || '0') % line) > 0.01) {
        faults.push('a page begins within a line');
    }
    parts = parseInt((/\/([0-9]+)/.exec(by_id('pages').textContent) || [0, 1])[1], 10);
    if (parts === 1 ? inner.scrollHeight > rest.clientHeight + SLACK :
            parts * rest.clientHeight < inner.scrollHeight) {
        faults.push('the pages do not hold the rest of the text');
    }
    if (parts > 1 && by_id('map').style.display === 'none' && Math.abs(rest.clientHeight % line) > 0.01) {
        faults.push('a page ends within a line');
    }
}

function check_alert() {
    var names = ['timer', 'age', 'units_page', 'since', 'mark', 'pages', 'clock'];
    var seen = names.map(by_id).filter(is_seen);
    var units = Array.prototype.slice.call(document.querySelectorAll('.unit')).filter(is_seen);
    var blocks = [by_id('first'), by_id('rest')].filter(is_seen);
    var map = Array.prototype.slice.call(document.querySelectorAll('#map img')).filter(function (picture) {
        return style(picture).visibility === 'visible' && picture.getBoundingClientRect().width > 0;
    });
    seen.forEach(function (element) { check_legible(element, FLOOR, 4.5); });
    units.forEach(function (element) {
        check_legible(element, FLOOR, 4.5);
        if (element.scrollWidth > element.clientWidth + SLACK) {
            faults.push(name_of(element) + ' is cut');
        }
    });
    seen.concat(units, blocks, map).forEach(check_safe);
    check_no_overlap(seen.concat(units, blocks, map));
    check_text();
}

function check_idle() {
    ['idle_clock', 'idle_notice', 'idle_pages', 'idle_last', 'idle_mark'].map(by_id).filter(is_seen).forEach(
        function (element) {
            check_safe(element);
            check_legible(element.id === 'idle_notice' ? by_id('idle_text') : element, FLOOR, 4.5);
        }
    );
    if (!is_seen(by_id('idle_clock'))) {
        faults.push('the clock is not there');
    }
    if (by_id('idle_text').scrollWidth > by_id('idle_text').clientWidth + SLACK) {
        faults.push('the notice is cut');
    }
}

if (style(by_id('alert')).visibility === 'visible') {
    check_alert();
} else {
    check_idle();
}
return faults;
