/* Draws the page of a station without an alert: dim, and always moving. */
var idle_view = (function () {
    'use strict';

    /* Seconds for one drift across the screen and back: together they leave no spot lit for long. */
    var DRIFT_X = 420, DRIFT_Y = 660;
    var PAGE = 8; /* seconds */
    var PART = 0.86; /* of the room, so that the block can move */

    var notice = { line: 0, lines: 1, per_page: 1 }; /* its lines' height and number */
    var room = null;

    function element(name) {
        return document.getElementById(name);
    }

    function set_text(name, text) {
        measure.set_text(element(name), text);
        element(name).style.display = text === '' ? 'none' : '';
    }

    function place(placed) {
        var style = element('idle').style;
        room = placed;
        style.left = placed.safe.left + 'px';
        style.top = placed.safe.top + 'px';
        style.width = placed.safe.width + 'px';
        style.height = placed.safe.height + 'px';
        arrange();
    }

    /* What the clock and the other lines leave of the height. */
    function notice_height() {
        var others;
        element('idle_notice').style.height = '0';
        others = element('idle_block').offsetHeight;
        return room.safe.height * PART - others - 2 * room.rem;
    }

    /* As wide as what is in it, wherever it drifts to. */
    function set_block_width(width) {
        var style = element('idle_block').style;
        style.left = '0';
        style.width = 'auto';
        style.maxWidth = Math.floor(width) + 'px';
        style.width = Math.ceil(element('idle_block').getBoundingClientRect().width) + 'px';
    }

    /* Sets the notice in the larger type that fits, or else the smaller one in pages. */
    function arrange() {
        var text = element('idle_text'), width = room.safe.width * PART, height, size;
        element('idle_block').style.width = Math.floor(width) + 'px';
        measure.set_text(element('idle_pages'), '');
        height = notice_height();
        function fits(try_size) {
            return measure.height(text, width, try_size, true) <= height;
        }
        size = [text_plan.LARGE, text_plan.FLOOR].map(function (rem) {
            return text_plan.pixels(rem, room.rem);
        }).filter(fits)[0];
        if (!size) {
            size = text_plan.pixels(text_plan.FLOOR, room.rem);
            measure.set_text(element('idle_pages'), '1/2');
            height = notice_height();
        }
        notice.line = measure.line_height(size);
        notice.lines = Math.round(measure.height(text, width, size, true) / notice.line);
        notice.per_page = Math.max(1, Math.floor(height / notice.line));
        element('idle_notice').style.height =
            Math.min(notice.lines, notice.per_page) * notice.line + 'px';
        text.style.width = 'auto';
        set_block_width(width);
    }

    function take(text) {
        measure.set_text(element('idle_text'), document_text.typeset(text));
        element('idle_text').className = text === 'No Network Connection' ? 'trouble' : '';
        arrange();
    }

    function turn_pages(seconds) {
        var count = Math.max(1, Math.ceil(notice.lines / notice.per_page)),
            page = Math.floor(seconds / PAGE) % count;
        element('idle_text').style.top = -page * notice.per_page * notice.line + 'px';
        measure.set_text(element('idle_pages'), count > 1 ? page + 1 + '/' + count : '');
    }

    /* State: { clock, last, mark }, texts. Seconds only ever count up. */
    function draw(state, seconds) {
        var before = element('idle_last').textContent + element('idle_mark').textContent;
        measure.set_text(element('idle_clock'), state.clock);
        set_text('idle_last', state.last);
        set_text('idle_mark', state.mark);
        if (before !== state.last + state.mark) {
            arrange();
        }
        turn_pages(seconds);
    }

    function drift(seconds) {
        var block = element('idle_block'), box = element('idle');
        block.style.left = (box.clientWidth - block.offsetWidth) / 2 *
            (1 + Math.sin(2 * Math.PI * seconds / DRIFT_X)) + 'px';
        block.style.top = (box.clientHeight - block.offsetHeight) / 2 *
            (1 + Math.sin(2 * Math.PI * seconds / DRIFT_Y)) + 'px';
    }

    return { place: place, take: take, draw: draw, drift: drift };
}());
