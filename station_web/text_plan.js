/* How an alert's text is set in its room: as large as fits, or its first lines large and the rest
   smaller, or its first lines large and the rest in pages. */
var text_plan = (function () {
    'use strict';

    /* Sizes in rem. A capital letter of Liberation Sans is 0.688 as high, and one rem 5.35 mm on a
       43-inch television: from five meters they have 20 and 16 minutes of arc. */
    var LARGE = 7.9, FLOOR = 6.35;
    var GAP = 1;

    /* Whole pixels, and none too few. */
    function pixels(size, rem) {
        return Math.ceil(size * rem);
    }

    /* Of the room's height: the largest type, and what the first lines may take of it. */
    var LARGEST_PART = 0.6, FIRST_PART = 0.5;

    /* Room: { width, height, beside: the { width, height } of what stands at its top right corner }.
       Type: { element, text, rem } with the element to measure in. */

    function first_width(room) {
        return room.width - room.beside.width;
    }

    /* Words are broken only where nothing else helps. */
    function broken_or_not(try_it) {
        return try_it(false) || try_it(true);
    }

    /* Null if the text does not fit at the large size. */
    function uniform(type, room) {
        return broken_or_not(function (is_broken) {
            function fits(size) {
                return measure.height(type.element, first_width(room), size, is_broken) <= room.height;
            }
            measure.set_text(type.element, type.text);
            return fits(pixels(LARGE, type.rem)) && { is_broken: is_broken, fits: fits };
        }) || null;
    }

    /* The largest type that the room allows for a text that fits. */
    function enlarged(type, room, found) {
        var size = measure.largest(pixels(LARGE, type.rem), room.height * LARGEST_PART, found.fits);
        return {
            first: { text: type.text, width: first_width(room), size: size, is_broken: found.is_broken },
            rest: null,
            pages: 1
        };
    }

    /* Where to continue after the second line feed, or 0. */
    function after_two_lines(text) {
        var place = text.indexOf('\n');
        return place < 0 ? 0 : text.indexOf('\n', place + 1) + 1;
    }

    /* The place after the last space at which the text before it takes no more than this height. */
    function after_wrapped_lines(type, room, height) {
        var places = [], pattern = /[ \n]+/g, found, count;
        while ((found = pattern.exec(type.text)) !== null) {
            places.push(found.index + found[0].length);
        }
        if (places.length === 0 || places[places.length - 1] < type.text.length) {
            places.push(type.text.length);
        }
        function fits(index) {
            measure.set_text(type.element, type.text.slice(0, places[index]).replace(/\s+$/, ''));
            return measure.height(type.element, first_width(room), pixels(LARGE, type.rem), true) <= height;
        }
        count = measure.largest(0, places.length - 1, fits);
        return fits(count) ? places[count] : after_characters(type, room, height);
    }

    /* The same within a word that is longer than that. */
    function after_characters(type, room, height) {
        return measure.largest(1, type.text.length, function (end) {
            measure.set_text(type.element, type.text.slice(0, end));
            return measure.height(type.element, first_width(room), pixels(LARGE, type.rem), true) <= height;
        });
    }

    /* The first lines: up to the second line feed, or, if those are long, two of the screen's. */
    function first_lines(type, room) {
        var end = after_two_lines(type.text), two = 2 * measure.line_height(pixels(LARGE, type.rem)), height;
        if (end > 0) {
            measure.set_text(type.element, type.text.slice(0, end - 1));
            height = measure.height(type.element, first_width(room), pixels(LARGE, type.rem), true);
        }
        if (end === 0 || height > Math.max(two, room.height * FIRST_PART)) {
            end = after_wrapped_lines(type, room, two);
        }
        return end;
    }

    /* The text in two parts: null if pages are needed and not allowed. */
    function split(type, room, may_page) {
        var end = first_lines(type, room), top, rest, height, lines;
        var first = { text: type.text.slice(0, end).replace(/\s+$/, ''), width: first_width(room),
            size: pixels(LARGE, type.rem), is_broken: true };
        measure.set_text(type.element, first.text);
        top = Math.max(measure.height(type.element, first.width, first.size, true),
            room.beside.height) + GAP * type.rem;
        rest = { text: type.text.slice(end), width: room.width, top: top, is_broken: true };
        height = room.height - top;
        measure.set_text(type.element, rest.text);
        function fits(size) {
            return measure.height(type.element, rest.width, size, true) <= height;
        }
        if (fits(pixels(FLOOR, type.rem))) {
            rest.size = measure.largest(pixels(FLOOR, type.rem), pixels(LARGE, type.rem), fits);
            rest.height = height;
            return { first: first, rest: rest, pages: 1 };
        }
        if (!may_page) {
            return null;
        }
        rest.size = pixels(FLOOR, type.rem);
        lines = Math.max(1, Math.floor(height / measure.line_height(rest.size)));
        rest.height = lines * measure.line_height(rest.size);
        return { first: first, rest: rest, pages: Math.ceil(
            measure.height(type.element, rest.width, rest.size, true) / rest.height) };
    }

    return { LARGE: LARGE, FLOOR: FLOOR, pixels: pixels, uniform: uniform, enlarged: enlarged, split: split };
}());
