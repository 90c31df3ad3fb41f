/* Draws the page. A document's texts only ever become text nodes. */
var view = (function () {
    'use strict';

    /* The colors of the units, 1 to 16, and whether their names are drawn in black. */
    var PALETTE = [
        ['#d32f2f', false], /* 1 red */
        ['#1e63d0', false], /* 2 blue */
        ['#2e7d32', false], /* 3 green */
        ['#ffd600', true],  /* 4 yellow */
        ['#ff8f00', true],  /* 5 orange */
        ['#8e3cc2', false], /* 6 purple */
        ['#00bcd4', true],  /* 7 cyan */
        ['#ffffff', true],  /* 8 white */
        ['#ff80ab', true],  /* 9 pink */
        ['#aeea00', true],  /* 10 lime */
        ['#8d5524', false], /* 11 brown */
        ['#00796b', false], /* 12 teal */
        ['#283593', false], /* 13 navy */
        ['#7f1d1d', false], /* 14 maroon */
        ['#b0bec5', true],  /* 15 silver */
        ['#5f6368', false]  /* 16 gray */
    ];
    var OTHER_COLOR = PALETTE[15];

    var MANY_UNITS = 6;

    /* Seconds for one drift across the screen and back: together they leave no spot lit for long. */
    var DRIFT_X = 420, DRIFT_Y = 660;

    function element(name) {
        return document.getElementById(name);
    }

    function set_text(name, text) {
        if (element(name).textContent !== text) {
            element(name).textContent = text;
        }
    }

    function show(name, is_shown) {
        element(name).style.display = is_shown ? '' : 'none';
    }

    function clock_text(date) {
        return turnout.two_digits(date.getHours()) + ':' + turnout.two_digits(date.getMinutes());
    }

    function full_clock_text(date) {
        return clock_text(date) + ':' + turnout.two_digits(date.getSeconds());
    }

    function tile(unit) {
        var color = PALETTE[unit.color - 1] || OTHER_COLOR,
            made = document.createElement('div');
        made.className = 'unit';
        made.style.backgroundColor = color[0];
        made.style.color = color[1] ? '#000' : '#fff';
        made.textContent = unit.name;
        return made;
    }

    function draw_units(units) {
        var box = element('units');
        box.textContent = '';
        units.forEach(function (unit) {
            box.appendChild(tile(unit));
        });
    }

    /* As large as the box allows, and centered. */
    function place_picture() {
        var box = element('map'), picture = box.querySelector('img'), scale;
        if (picture && picture.naturalWidth > 0) {
            scale = Math.min(box.clientWidth / picture.naturalWidth,
                box.clientHeight / picture.naturalHeight);
            picture.style.width = picture.naturalWidth * scale + 'px';
            picture.style.height = picture.naturalHeight * scale + 'px';
            picture.style.left = (box.clientWidth - picture.naturalWidth * scale) / 2 + 'px';
            picture.style.top = (box.clientHeight - picture.naturalHeight * scale) / 2 + 'px';
        }
    }

    /* Most maps are pictures. Anything else is shown as a page without any privileges: its scripts do
       not run, and it cannot access this page. */
    function make_map(address) {
        var picture = document.createElement('img');
        picture.onload = place_picture;
        picture.onerror = function () {
            var frame = document.createElement('iframe');
            frame.setAttribute('sandbox', '');
            frame.src = address;
            if (picture.parentNode) {
                picture.parentNode.replaceChild(frame, picture);
            }
        };
        picture.src = address;
        return picture;
    }

    var drawn_map = '';

    /* An unchanged map stays: reloading it would make it flicker with each new text. */
    function draw_map(address) {
        show('map', address !== '');
        if (address !== drawn_map) {
            drawn_map = address;
            element('map').textContent = '';
            if (address) {
                element('map').appendChild(make_map(address));
            }
        }
    }

    function draw_alert(alert) {
        show('idle', false);
        show('alert', true);
        element('head').className = alert.units.length > MANY_UNITS ? 'crowded' : '';
        draw_units(alert.units);
        draw_map(alert.map);
        place_picture();
        set_text('text', alert.text);
        set_text('since', 'alerted ' + full_clock_text(new Date(alert.start * 1000)));
        layout.fit(element('units'), 0.72);
        layout.fit(element('text'), 0.5);
    }

    function draw_idle(text) {
        show('alert', false);
        show('idle', true);
        draw_map('');
        set_text('idle_text', text);
        element('idle_text').className = text === 'No Network Connection' ? 'trouble' : '';
    }

    function draw_timer(reading) {
        var timer = element('timer');
        set_text('timer', reading ? turnout.to_text(reading) : '');
        timer.className = reading && reading.is_past_zero ? 'past_zero' : '';
        if ((timer.style.display === 'none') !== !reading) {
            show('timer', reading);
            layout.fit(element('units'), 0.72);
        }
    }

    function draw_clock(date) {
        set_text('clock', full_clock_text(date));
        set_text('idle_clock', clock_text(date));
    }

    function drift(seconds) {
        var block = element('idle_block'), room = element('idle');
        block.style.left = (room.clientWidth - block.offsetWidth) / 2 *
            (1 + Math.sin(2 * Math.PI * seconds / DRIFT_X)) + 'px';
        block.style.top = (room.clientHeight - block.offsetHeight) / 2 *
            (1 + Math.sin(2 * Math.PI * seconds / DRIFT_Y)) + 'px';
    }

    /* Quiet: it must not look like an alert. */
    function draw_mark(text) {
        set_text('mark', text);
        show('mark', text !== '');
    }

    return {
        clock_text: clock_text,
        draw_alert: draw_alert,
        draw_idle: draw_idle,
        draw_timer: draw_timer,
        draw_clock: draw_clock,
        draw_mark: draw_mark,
        drift: drift,
        page: function () { return element('page'); }
    };
}());
