/* The preview: gives documents, canned or written by hand, to the station page in its frame. */
(function () {
    'use strict';

    var NUMBERS = ['flag', 'since', 'end', 'zero', 'reverse', 'timer'];
    var TEXTS = ['type', 'encoding', 'text', 'map'];

    var chosen = -1; /* the number of the canned document shown */
    var bytes = '';  /* of the last document given */
    var is_playing = false;
    var wait = null; /* for what comes next */
    var alert_start = { since: '', time: 0 }; /* as long as that is not changed, it is one alert */

    function element(name) {
        return document.getElementById(name);
    }

    /* Seconds since 1970; 0 while there is no alert. */
    function start_of(since) {
        if (since === '') {
            return 0;
        }
        if (since !== alert_start.since) {
            alert_start = { since: since, time: Math.floor(Date.now() / 1000) - Number(since) };
        }
        return alert_start.time;
    }

    /* "E1 2" is the unit E1 in color 2. */
    function read_units(text) {
        return text.split('\n').filter(function (line) {
            return /[^\s]/.test(line);
        }).map(function (line) {
            var found = /^(.*)\s([0-9]+)\s*$/.exec(line);
            return found ? { name: found[1], color: Number(found[2]) % 256 } :
                { name: line, color: 1 };
        });
    }

    function read_form() {
        var fields = {
            start: start_of(element('since').value),
            units: read_units(element('units').value)
        };
        TEXTS.forEach(function (name) {
            fields[name] = element(name).value;
        });
        NUMBERS.forEach(function (name) {
            fields[name] = element(name).value === '' ? undefined : Number(element(name).value);
        });
        return fields;
    }

    function fill_form(fields) {
        TEXTS.concat(NUMBERS).forEach(function (name) {
            element(name).value = fields[name] === undefined ? '' : fields[name];
        });
        element('encoding').value = fields.encoding || 'UTF-8';
        element('units').value = (fields.units || []).map(function (unit) {
            return unit.name + ' ' + unit.color;
        }).join('\n');
    }

    function give(document_bytes) {
        bytes = document_bytes;
        preview_television.give(bytes);
    }

    function write_form(cut) {
        var written = preview_writer.write(read_form()).slice(0, cut);
        element('document').value = preview_writer.to_text(written);
        give(written);
    }

    function hold() {
        return Math.max(0.1, Number(element('hold').value) || 0) * 1000;
    }

    function later(action, milliseconds) {
        window.clearTimeout(wait);
        wait = window.setTimeout(action, milliseconds);
    }

    function choose_next() {
        if (chosen + 1 < preview_documents.length) {
            choose(chosen + 1);
        } else {
            stop();
        }
    }

    /* All steps of a document together take as long as a document of one step. */
    function take_step(canned, number) {
        var step = canned.steps[number], time = hold() / canned.steps.length;
        fill_form(step);
        write_form(step.cut);
        if (number + 1 < canned.steps.length) {
            later(function () { take_step(canned, number + 1); }, time);
        } else if (is_playing) {
            later(choose_next, time);
        }
    }

    function mark(number) {
        var items = element('list').children, i;
        for (i = 0; i < items.length; i += 1) {
            items[i].className = i === number ? 'chosen' : '';
        }
        if (number >= 0) {
            items[number].scrollIntoView({ block: 'nearest' });
        }
    }

    /* On a new television, which remembers nothing of the documents before. */
    function choose(number) {
        chosen = number;
        mark(number);
        element('caption').textContent = preview_documents[number].caption;
        alert_start.since = '';
        replace_television(function () {
            take_step(preview_documents[number], 0);
        });
    }

    function stop() {
        is_playing = false;
        element('play').textContent = 'Play all';
        window.clearTimeout(wait);
    }

    function play() {
        if (is_playing) {
            stop();
        } else {
            is_playing = true;
            element('play').textContent = 'Stop';
            choose(0);
        }
    }

    function by_hand() {
        stop();
        chosen = -1;
        mark(chosen);
        element('caption').textContent = 'Written by hand';
    }

    function show_scale() {
        element('scale').textContent = 'shown at ' + Math.round(preview_television.fit() * 100) + ' %';
    }

    function replace_television(done) {
        var size = element('size').value.split('x');
        window.clearTimeout(wait);
        preview_television.replace(Number(size[0]), Number(size[1]),
            '?safe=' + element('safe').value + '&rotation=' + element('rotation').value, done);
        show_scale();
    }

    function change_television() {
        if (chosen >= 0) {
            choose(chosen);
        } else {
            replace_television(function () { give(bytes); });
        }
    }

    function list() {
        preview_documents.forEach(function (canned, number) {
            var item = document.createElement('li'), button = document.createElement('button');
            button.textContent = canned.caption;
            button.type = 'button';
            button.onclick = function () {
                stop();
                choose(number);
            };
            item.appendChild(button);
            element('list').appendChild(item);
        });
    }

    /* Instead of sending it anywhere. */
    function on_submit(name, action) {
        element(name).onsubmit = function () {
            action();
            return false;
        };
    }

    function start(is_loaded) {
        if (!is_loaded) {
            element('caption').textContent = 'Open this page through a web server, for example ' +
                'with "python3 -m http.server -d station_web".';
            return;
        }
        list();
        on_submit('play_form', play);
        on_submit('fields', function () { by_hand(); write_form(); });
        on_submit('raw', function () {
            by_hand();
            give(preview_writer.from_text(element('document').value));
        });
        element('screen').onchange = change_television;
        window.onresize = show_scale;
        choose(0);
    }

    preview_television.load(element('stage'), start);
}());
