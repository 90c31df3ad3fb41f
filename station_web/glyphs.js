/* What none of the television's fonts can draw is shown by its code, not by an empty box. */
var glyphs = (function () {
    'use strict';

    /* Not characters, or not assigned: no font has them. Some characters are drawn as two. */
    var IN_NO_FONT = ['\uffff', '\udbff\udfff', '\u0378', '\u0378\u0378'];

    /* They have no picture of their own: joiners, directions, variation selectors, fillers, tags. */
    var INVISIBLE = new RegExp('^(?:[\\u034f\\u061c\\u115f\\u1160\\u17b4\\u17b5\\u180b-\\u180f' +
        '\\u2000-\\u200f\\u2028-\\u202f\\u205f-\\u206f\\u3000\\u3164\\ufe00-\\ufe0f\\ufeff\\uffa0' +
        '\\ufff0-\\ufffb]|\\ud834[\\udd73-\\udd7a]|\\udb40[\\udc00-\\udfff])$');

    var WIDTH = 48, HEIGHT = 36, SIZE = 24; /* pixels */
    var MOST_KNOWN = 8000;

    var pen = null, empty_boxes;
    var known = {}, known_count = 0; /* by character: whether a font can draw it */

    function draw(character) {
        pen.clearRect(0, 0, WIDTH, HEIGHT);
        pen.fillText(character, WIDTH / 4, HEIGHT * 0.75);
        return pen.getImageData(0, 0, WIDTH, HEIGHT).data;
    }

    function are_equal(one, other) {
        var i;
        for (i = 3; i < one.length; i += 4) { /* opacity is all there is */
            if (one[i] !== other[i]) {
                return false;
            }
        }
        return true;
    }

    function width_of(character) {
        return Math.round(pen.measureText(character).width * 10);
    }

    function start() {
        var canvas = document.createElement('canvas');
        canvas.width = WIDTH;
        canvas.height = HEIGHT;
        pen = canvas.getContext('2d', { willReadFrequently: true });
        pen.font = 'bold ' + SIZE + 'px ' + window.getComputedStyle(document.body).fontFamily;
        empty_boxes = IN_NO_FONT.map(function (character) {
            return { width: width_of(character), picture: draw(character) };
        });
    }

    /* Most need not be drawn: measuring them is faster. */
    function is_empty_box(character) {
        var width = width_of(character), picture = null;
        return empty_boxes.some(function (box) {
            if (box.width !== width) {
                return false;
            }
            picture = picture || draw(character);
            return are_equal(picture, box.picture);
        });
    }

    function can_draw(character) {
        if (!known.hasOwnProperty(character)) {
            if (known_count >= MOST_KNOWN) {
                known = {};
                known_count = 0;
            }
            known_count += 1;
            known[character] = INVISIBLE.test(character) || !is_empty_box(character);
        }
        return known[character];
    }

    function code_of(character) {
        var high = character.charCodeAt(0), low = character.charCodeAt(1),
            code = isNaN(low) ? high : 0x10000 + (high - 0xd800) * 0x400 + low - 0xdc00,
            digits = code.toString(16).toUpperCase();
        return '[U+' + ('0000' + digits).slice(-Math.max(4, digits.length)) + ']';
    }

    function is_half_a_pair(character) {
        return /^[\ud800-\udfff]$/.test(character);
    }

    /* The text with what cannot be drawn replaced; all fonts have ASCII and Latin-1. */
    function readable(text) {
        return text.replace(/[\ud800-\udbff][\udc00-\udfff]|[^\u0000-\u00ff]/g, function (found) {
            if (pen === null) {
                start();
            }
            return !is_half_a_pair(found) && can_draw(found) ? found : code_of(found);
        });
    }

    return { readable: readable };
}());
