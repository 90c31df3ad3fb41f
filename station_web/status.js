/* What an installer wants to know of this unit. It asks again and again, and changes nothing. */
(function () {
    'use strict';

    var POLL = 2000, POLL_LIMIT = 5000; /* milliseconds */
    var OLD = 300; /* seconds: the service then takes the page for dead */

    var page = document.getElementById('page');
    var figures = null;      /* of status.cgi; null if it does not answer */
    var refusal = '';
    var alert_text = null;   /* the document; null if there is none */

    function put(name, text, is_trouble) {
        var element = document.getElementById(name);
        if (element.textContent !== text) {
            element.textContent = text;
        }
        element.className = is_trouble ? 'trouble' : '';
    }

    function two_digits(number) {
        return (number < 10 ? '0' : '') + number;
    }

    function duration(seconds) {
        var minutes = Math.floor(seconds / 60), hours = Math.floor(minutes / 60),
            days = Math.floor(hours / 24);
        if (minutes === 0) {
            return seconds + ' s';
        }
        if (hours === 0) {
            return minutes + ' min ' + two_digits(seconds % 60) + ' s';
        }
        return (days > 0 ? days + ' d ' : '') + hours % 24 + ' h ' + two_digits(minutes % 60) + ' min';
    }

    /* A clock that was set back makes a file's time lie in the future. */
    function age(changed) {
        var seconds = Math.floor(Date.now() / 1000) - Number(changed);
        return seconds < 0 ? 'after the present time' : duration(seconds) + ' ago';
    }

    function clock_text(date) {
        return two_digits(date.getHours()) + ':' + two_digits(date.getMinutes()) + ':' +
            two_digits(date.getSeconds());
    }

    function date_text(date) {
        return date.getFullYear() + '-' + two_digits(date.getMonth() + 1) + '-' +
            two_digits(date.getDate());
    }

    function offset_text(date) {
        var minutes = -date.getTimezoneOffset(), size = Math.abs(minutes);
        return 'UTC' + (minutes < 0 ? '-' : '+') + two_digits(Math.floor(size / 60)) + ':' +
            two_digits(size % 60);
    }

    /* The file is the service's; an address in it may be anything. */
    function gateway_text() {
        var found = /^\{"gateway_addr": "([^"]*)"/.exec(figures.gateway);
        if (figures.gateway_changed === '') {
            return 'none yet';
        }
        return (found ? found[1] : figures.gateway) + ', learnt ' + age(figures.gateway_changed);
    }

    /* Each member by itself. */
    function document_text() {
        var text = alert_text.replace(/[\u0000-\u001f\u007f]/g, ' '), parts = [], object, name;
        try {
            object = JSON.parse(text)[0];
            for (name in object) {
                parts.push(name + ' ' + JSON.stringify(object[name]));
            }
            return parts.join(' \u00b7 ');
        } catch (error) {
            return 'Not JSON: ' + text;
        }
    }

    /* As much as there is room for. */
    function draw_document() {
        var element = document.getElementById('document'), text = document_text(),
            least = 0, most = text.length + 1, middle;
        element.textContent = text;
        if (element.scrollHeight <= element.clientHeight) {
            return;
        }
        while (most - least > 1) {
            middle = Math.floor((least + most) / 2);
            element.textContent = text.slice(0, middle) + '\u2026';
            if (element.scrollHeight <= element.clientHeight) {
                least = middle;
            } else {
                most = middle;
            }
        }
        element.textContent = text.slice(0, least) + '\u2026';
    }

    function draw_figures() {
        var changed = figures.alive_changed;
        put('addresses', figures.addresses || 'none yet', figures.addresses === '');
        put('hardware_address', figures.hardware_address || 'no eth0', figures.hardware_address === '');
        put('gateway', gateway_text(), figures.gateway_changed === '');
        put('alive', changed === '' ? 'no report yet' : 'reported ' + age(changed),
            changed !== '' && Date.now() / 1000 - Number(changed) > OLD);
        put('uptime', figures.uptime === '' ? 'unknown' : 'for ' + duration(Number(figures.uptime)));
    }

    function draw_refusal() {
        var names = ['addresses', 'hardware_address', 'gateway', 'alive', 'uptime'], i;
        for (i = 0; i < names.length; i += 1) {
            put(names[i], i === 0 ? refusal : '', true);
        }
    }

    function draw_versions() {
        var own = typeof page_version === 'string' ? page_version : 'unknown',
            service = figures && figures.service_version || 'unknown';
        put('versions', 'service ' + service + ', page ' + own, own !== service);
    }

    function draw_answers() {
        var changed = figures ? figures.document_changed : '';
        if (figures) {
            draw_figures();
        } else {
            draw_refusal();
        }
        draw_versions();
        put('document_age', alert_text === null ? 'none yet' :
            alert_text.length + ' characters' + (changed === '' ? '' : ', written ' + age(changed)),
            alert_text === null);
        if (alert_text === null) {
            put('document', '');
        } else {
            draw_document();
        }
    }

    function draw() {
        var date = new Date(), zone = figures && figures.zone;
        put('clock', clock_text(date));
        put('zone', offset_text(date) + (zone ? ' ' + zone : '') + ', ' + date_text(date));
        pulse.report_alive();
    }

    /* Calls back with the status and the text; 0 if there is no answer in time. */
    function get(address, answered) {
        var request = new XMLHttpRequest(), limit;
        request.onreadystatechange = function () {
            if (request.readyState === 4) {
                window.clearTimeout(limit);
                answered(request.status, request.responseText);
            }
        };
        limit = window.setTimeout(function () {
            request.abort();
        }, POLL_LIMIT);
        request.open('GET', address);
        request.setRequestHeader('X-Station-Page', 'status');
        request.overrideMimeType('text/plain; charset=utf-8');
        request.send();
    }

    function take_figures(status, text) {
        figures = null;
        refusal = status === 403 ? 'refused: this is not the unit\u2019s own screen' :
            'the web server does not answer';
        try {
            figures = status === 200 ? JSON.parse(text) : null;
        } catch (error) {
            refusal = 'the web server answers nonsense';
        }
    }

    function poll() {
        get('status.cgi', function (status, text) {
            take_figures(status, text);
            get('alerts.json?' + Date.now(), function (found, document_read) {
                if (found !== 200) {
                    alert_text = null;
                } else if (document_read !== '') { /* or it is being written */
                    alert_text = document_read;
                }
                draw_answers();
                window.setTimeout(poll, POLL);
            });
        });
    }

    function place() {
        var safe = placement.place(page).safe, side;
        for (side in safe) {
            document.getElementById('status').style[side] = safe[side] + 'px';
        }
    }

    window.onresize = place;
    place();
    poll();
    pulse.draw_forever(draw);
}());
