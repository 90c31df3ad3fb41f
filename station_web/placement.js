/* The page's place on the television: its rotation, its unit of length and its safe area. */
var placement = (function () {
    'use strict';

    /* Percent of the width and of the height that a television may cut off at each edge: the action
       safe area of EBU R 95. */
    var SAFE = 3.5, SAFE_LIMIT = 15;
    var MEMORY = 'station_safe';

    /* The service appends "?rotation=" even after another query. */
    function query_number(name) {
        var search = window.station_preview ? window.station_preview.search : window.location.search,
            found = new RegExp('[?&]' + name + '=([0-9]+(\\.[0-9]+)?)').exec(search);
        return found ? parseFloat(found[1]) : null;
    }

    /* In degrees, clockwise. */
    function rotation() {
        return Math.round((query_number('rotation') || 0) / 90) * 90 % 360;
    }

    /* An alert opens the page without any query, so the last "?safe=" is remembered. */
    function safe_percent() {
        var asked = query_number('safe'), memory = null;
        try {
            if (asked !== null && !window.station_preview) {
                window.localStorage.setItem(MEMORY, asked);
            }
            memory = window.station_preview ? null : window.localStorage.getItem(MEMORY);
        } catch (error) {
            /* Without a memory the default has to do. */
        }
        if (asked === null && /^[0-9.]+$/.test(memory)) {
            asked = parseFloat(memory);
        }
        return asked === null || isNaN(asked) ? SAFE : Math.min(asked, SAFE_LIMIT);
    }

    function transform_for(degrees, width, height) {
        var x = degrees === 90 || degrees === 180 ? width : 0,
            y = degrees === 180 || degrees === 270 ? height : 0;
        return 'translate(' + x + 'px,' + y + 'px) rotate(' + degrees + 'deg)';
    }

    /* One rem is a hundredth of the page's shorter side. Returns the page's size and, within it, the
       safe area, in pixels. */
    function place(page) {
        var degrees = rotation(), percent = safe_percent(),
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
        return {
            width: width,
            height: height,
            rem: Math.min(width, height) / 100,
            safe: {
                left: width * percent / 100,
                top: height * percent / 100,
                width: width * (1 - percent / 50),
                height: height * (1 - percent / 50)
            }
        };
    }

    return {
        place: place,
        query_number: query_number,
        rotation: rotation,
        safe_percent: safe_percent
    };
}());
