/* The station page: polls the alert document, draws it, and reports that it is alive. */
var station_page = (function () {
    'use strict';

    var POLL = 500, POLL_LIMIT = 5000; /* all times in milliseconds */
    var UNREADABLE = 10000, UPDATED = 10000, LAST_ALERT = 900000;
    var MEMORY = 'station_page';

    var state = {
        response: '', /* the last one that could be read and was not "stop_turnout" */
        stopped: 0,   /* start of the alert whose turnout timer has been stopped */
        display: { start: 0, text: '' }, /* the last display alert */
        address: '',  /* shown by an idle station */
        last: null    /* the last alert: its { line, start, end }, times since 1970 */
    };
    var shown = null; /* the document of that response */
    var is_new = true;
    var answered = null, readable = null; /* when each last happened */
    var readable_date = null;
    var started;
    var sighted = { when: 0, age: 0 }; /* the alert's age when this page first saw it */
    var updated = { when: null, date: null };    /* the last change of its text */
    var ended = null; /* when the last alert did */

    /* What a restarted browser needs if the document says only "stop_turnout". */
    function remember() {
        if (window.station_preview) {
            return;
        }
        try {
            window.localStorage.setItem(MEMORY, JSON.stringify(state));
        } catch (error) {
            /* A restart will not remember it; nothing else depends on it. */
        }
    }

    function recall() {
        var memory = null;
        try {
            memory = JSON.parse(window.localStorage.getItem(MEMORY));
        } catch (error) {
            /* Nothing to recall. */
        }
        /* Any page from this machine's address may have written anything there. */
        if (memory !== null && typeof memory === 'object') {
            state.response = typeof memory.response === 'string' ? memory.response : '';
            state.stopped = typeof memory.stopped === 'number' ? memory.stopped : 0;
            state.address = is_address(memory.address) ? memory.address : '';
            recall_display(memory.display);
            recall_last(memory.last);
        }
    }

    function recall_display(display) {
        if (typeof display === 'object' && display !== null && typeof display.text === 'string') {
            state.display = display;
        }
    }

    function recall_last(last) {
        if (typeof last === 'object' && last !== null && typeof last.line === 'string' &&
                typeof last.start === 'number' && typeof last.end === 'number') {
            state.last = last;
            ended = pulse.now() - Math.max(0, Date.now() - last.end);
        }
    }

    function is_address(text) {
        return text === 'No Network Connection' ||
            typeof text === 'string' && /^[0-9]+(\.[0-9]+){3}$/.test(text);
    }

    function is_shown_alert() {
        return shown !== null && alert_document.is_alert(shown);
    }

    /* A document with a map has the text of the last detail message, even if a display alert is on:
       if that is empty, the display alert's stays. */
    function keep_text(document) {
        if (document.type === 'display_alert') {
            state.display = { start: document.start, text: document.text };
        } else if (document.text === '' && document.start === state.display.start) {
            document.text = state.display.text;
        }
    }

    /* By the page's own time from then on, because the gateway may set the clock. */
    function note_alert(document) {
        if (!is_shown_alert() || shown.start !== document.start) {
            sighted.when = pulse.now();
            sighted.age = Math.max(0, Date.now() / 1000 - document.start);
            updated.when = null;
        } else if (shown.text !== document.text) {
            updated.when = pulse.now();
            updated.date = new Date();
        }
    }

    /* "stop_turnout" contains nothing else about the alert, so the page keeps what it shows. */
    function stop_turnout() {
        var before = shown === null && alert_document.read(state.response);
        if (before && alert_document.is_alert(before)) {
            keep_text(before);
            note_alert(before);
            shown = before;
        }
        if (is_shown_alert()) {
            state.stopped = shown.start;
        }
    }

    function note_end() {
        state.stopped = 0;
        state.display = { start: 0, text: '' };
        if (is_shown_alert()) {
            state.last = {
                line: document_text.typeset(shown.text).split('\n')[0].trim(),
                start: shown.start,
                end: Date.now()
            };
            ended = pulse.now();
        }
    }

    function take(response, document) {
        if (document.type === 'stop_turnout') {
            stop_turnout();
        } else {
            if (alert_document.is_alert(document)) {
                keep_text(document);
                note_alert(document);
            } else {
                note_end();
                state.address = is_address(document.text) ? document.text : state.address;
            }
            shown = document;
            state.response = response;
        }
        is_new = true;
        remember();
    }

    var last_response = null;

    function take_response(response) {
        var document;
        answered = pulse.now();
        if (response !== last_response) {
            document = alert_document.read(response);
            if (document === null) {
                return;
            }
            last_response = response;
            take(response, document);
        }
        readable = pulse.now();
        readable_date = new Date();
    }

    /* Each poll begins after the previous one has ended, one way or another. */
    function poll() {
        var request = new XMLHttpRequest(), has_ended = false, limit;
        function end() {
            if (!has_ended) {
                has_ended = true;
                window.clearTimeout(limit);
                window.setTimeout(poll, POLL);
            }
        }
        request.onreadystatechange = function () {
            if (request.readyState === 4 && !has_ended) {
                if (request.status === 200) {
                    take_response(request.responseText);
                }
                end();
            }
        };
        limit = window.setTimeout(function () {
            end();
            request.abort();
        }, POLL_LIMIT);
        request.open('GET', 'alerts.json?' + Date.now());
        request.overrideMimeType('text/plain; charset=x-user-defined');
        request.send();
    }

    function draw_document() {
        if (is_shown_alert()) {
            view.draw_alert(shown);
        } else {
            view.draw_idle(shown !== null && shown.text || state.address);
        }
    }

    function age() {
        return Math.floor(sighted.age + (pulse.now() - sighted.when) / 1000);
    }

    function timer_reading() {
        if (!is_shown_alert() || shown.start === state.stopped) {
            return null;
        }
        return turnout.read(shown, shown.start + age());
    }

    function since_text() {
        if (!is_shown_alert()) {
            return '';
        }
        return pulse.is_within(updated.when, UPDATED) ?
            'Updated ' + view.full_clock_text(updated.date) :
            'Alerted ' + view.full_clock_text(new Date(shown.start * 1000));
    }

    function last_text() {
        if (state.last === null || !pulse.is_within(ended, LAST_ALERT)) {
            return '';
        }
        return 'Last ' + view.clock_text(new Date(state.last.start * 1000)) + ' ' + state.last.line;
    }

    function mark_text() {
        if (pulse.is_within(readable, UNREADABLE) || pulse.is_within(started, UNREADABLE)) {
            return '';
        }
        return readable_date ? 'no news since ' + view.clock_text(readable_date) : 'no news';
    }

    function draw() {
        var date = new Date();
        if (is_new) {
            is_new = false;
            draw_document();
        }
        view.draw(date, {
            reading: timer_reading(),
            age: turnout.age_to_text(age()),
            since: since_text(),
            last: last_text(),
            mark: mark_text()
        });
        view.drift(date.getTime() / 1000);
        station_page.drawn = last_response;
        /* Only while it still hears of alerts. */
        if (!window.station_preview && pulse.is_within(answered, UNREADABLE)) {
            pulse.report_alive();
        }
    }

    function start() {
        started = pulse.now();
        window.onresize = view.place;
        view.place();
        if (!window.station_preview) {
            recall();
            poll();
        }
        pulse.draw_forever(draw);
    }

    return {
        start: start,
        give: take_response, /* a document by hand */
        drawn: null /* the last document drawn on the screen, as it was read */
    };
}());

station_page.start();
