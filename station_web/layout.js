/* Where everything of an alert is. Rectangles are { left, top, width, height } in pixels within the
   alert's area; an arrangement is one way to share that area. */
var layout = (function () {
    'use strict';

    var GAP = 1.2, FOOT = 7.9; /* rem */

    /* The head's sizes, in rem, and the units' part of the area's height. */
    var LARGE = text_plan.LARGE, SMALL_UNITS = [text_plan.FLOOR, LARGE];
    var ROOMY = { timer: 16, age: 9, units: [LARGE, 12], units_height: 0.3 };
    var CROWDED = { timer: 12, age: LARGE, units: SMALL_UNITS, units_height: 0.5 };
    var COMPACT = { timer: 9, age: LARGE, units: SMALL_UNITS, units_height: 0.26 };
    var TURNED = {
        timer: 9, age: LARGE, units: SMALL_UNITS, units_height: 0.38, may_page_units: true
    };
    var LEAST = { timer: 9, age: LARGE, units: SMALL_UNITS, units_height: 0.26, may_page_units: true };

    /* Where the map is, and its part of the area's width or of the text's height. */
    var NO_MAP = { place: 'none' };
    var ALTERNATING = { place: 'alternating' };

    function maps_of(shape) {
        if (!shape.has_map) {
            return [NO_MAP];
        }
        return shape.is_portrait ?
            [{ place: 'below', part: 0.45 }, { place: 'below', part: 0.3 }] :
            [{ place: 'beside', part: 0.42 }, { place: 'beside', part: 0.32 },
                { place: 'beside', part: 0.24 }, { place: 'below', part: 0.4 }];
    }

    function combine(heads, maps, setting) {
        var made = [];
        heads.forEach(function (head) {
            maps.forEach(function (map) {
                made.push({ head: head, map: map, setting: setting });
            });
        });
        return made;
    }

    /* In order of preference: large type in one piece before two sizes of it, those before pages, and
       the text before the map. Shape: { is_portrait, has_map }. */
    function arrangements(shape) {
        var maps = maps_of(shape);
        return combine([ROOMY, CROWDED, COMPACT, TURNED, LEAST], maps, 'uniform').concat(
            combine([COMPACT, LEAST], maps, 'split'),
            combine([COMPACT, LEAST], [shape.has_map ? ALTERNATING : NO_MAP], 'pages')
        );
    }

    function rectangle(left, top, width, height) {
        return { left: left, top: top, width: width, height: Math.max(0, height) };
    }

    /* The timer stands at the top right; in portrait, where the width is needed, below the units. */
    function head_of(area, measured, gap) {
        var units = measured.units, timer = measured.timer, below = 0, top = 0;
        if (area.is_portrait) {
            top = units.height > 0 ? units.height + gap : 0;
            below = top + (timer.height > 0 ? timer.height + gap : 0);
        } else if (units.height > 0) {
            below = Math.max(units.height, timer.height) + gap;
        }
        return {
            units: rectangle(0, 0, units.width, units.height),
            timer: rectangle(area.width - timer.width, top, timer.width, timer.height),
            below: below,
            /* Beside the first lines of the text, if it is not above them. */
            corner: timer.width > 0 && below === 0 ?
                { width: timer.width + gap, height: timer.height } : { width: 0, height: 0 }
        };
    }

    /* Area: { width, height, rem, is_portrait }. Measured: the units' and the timer's sizes.
       The room for the text is of the kind that text_plan takes. */
    function rectangles(area, map, measured) {
        var gap = GAP * area.rem, foot = FOOT * area.rem,
            head = head_of(area, measured, gap),
            bottom = area.height - foot,
            width = area.width, height = bottom - head.below, corner = head.corner, map_box = null;
        if (map.place === 'beside') {
            width = area.width * (1 - map.part);
            if (corner.width > 0) { /* the timer stands above the map */
                width = Math.min(width, area.width - corner.width + gap);
            }
            map_box = rectangle(width, head.below + (corner.height > 0 ? corner.height + gap : 0),
                area.width - width, 0);
            map_box.height = Math.max(0, bottom - map_box.top);
            width -= gap;
            corner = { width: 0, height: 0 };
        } else if (map.place === 'below') {
            map_box = rectangle(0, bottom - height * map.part, area.width, height * map.part);
            height -= map_box.height + gap;
        }
        return {
            units: head.units,
            timer: head.timer,
            text: rectangle(0, head.below, width, height),
            beside: corner,
            map: map_box,
            foot: rectangle(0, bottom, area.width, foot)
        };
    }

    return { arrangements: arrangements, rectangles: rectangles, GAP: GAP };
}());
