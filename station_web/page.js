/* The station page: polls the alert document, draws it, and reports that it is alive. */
var station_page = (function () {
    'use strict';

    var POLL = 500, POLL_LIMIT = 5000; /* all times in milliseconds */
    var UNREADABLE = 10000;
    var MEMORY = 'station_page';

    var state = {
        response: '', /* the last one that could be read and was not "stop_turnout" */
        stopped: 0,   /* start of the alert whose turnout timer has been stopped */
        address: ''   /* shown by an idle station */
    };
    var shown = null; /* the document of that response */
    var is_new = true;
    var answered = null, readable = null; /* when each last happened */
    var readable_date = null;
    var started;

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
        }
        shown = alert_document.read(state.response);
    }

    function is_address(text) {
        return text === 'No Network Connection' ||
            typeof text === 'string' && /^[0-9]+(\.[0-9]+){3}$/.test(text);
    }

    /* "stop_turnout" contains nothing else about the alert, so the page keeps what it shows. */
    function stop_turnout() {
        if (shown === null) {
            recall();
        }
        if (shown !== null && alert_document.is_alert(shown)) {
            state.stopped = shown.start;
        }
    }

    function take(response, document) {
        if (document.type === 'stop_turnout') {
            stop_turnout();
        } else {
            shown = document;
            state.response = response;
            if (!alert_document.is_alert(document)) {
                state.stopped = 0;
                state.address = is_address(document.text) ? document.text : state.address;
            }
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
        if (shown !== null && alert_document.is_alert(shown)) {
            view.draw_alert(shown);
        } else {
            view.draw_idle(shown !== null && shown.text || state.address);
        }
    }

    function timer_reading(date) {
        if (shown === null || !alert_document.is_alert(shown) || shown.start === state.stopped) {
            return null;
        }
        return turnout.read(shown, Math.floor(date.getTime() / 1000));
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
        view.draw_timer(timer_reading(date));
        view.draw_clock(date);
        view.drift(date.getTime() / 1000);
        view.draw_mark(mark_text());
        station_page.drawn = last_response;
        if (pulse.is_within(answered, UNREADABLE)) { /* it still hears of alerts */
            pulse.report_alive();
        }
    }

    function place() {
        placement.place(view.page());
        is_new = true;
    }

    function start() {
        started = pulse.now();
        window.onresize = place;
        place();
        if (!window.station_preview) {
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
