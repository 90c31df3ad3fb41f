/* Draws an alert: chooses the first arrangement in which it is legible, and turns its pages. */
var alert_view = (function () {
    'use strict';

    var PAGE = 8000; /* milliseconds for each page */
    var PAGE_NUMBER = 18; /* rem of width */
    var MARGIN = 1;  /* rem between the frame and what is in it */

    var area = null;   /* { width, height, rem, is_portrait } */
    var alert = null;
    var text = '';     /* the alert's, as it is set */
    var plan = null;   /* the arrangement that is drawn */
    var began = 0;     /* when the first page of this text appeared */

    function element(name) {
        return document.getElementById(name);
    }

    function show(name, is_shown) {
        element(name).style.display = is_shown ? '' : 'none';
    }

    function put(name, box) {
        var style = element(name).style;
        style.left = box.left + 'px';
        style.top = box.top + 'px';
        style.width = box.width + 'px';
        style.height = box.height + 'px';
    }

    /* The frame fills what a television may cut off, and the alert the rest. */
    function place(placed) {
        var margin = MARGIN * placed.rem, safe = placed.safe,
            left = Math.max(safe.left, margin), top = Math.max(safe.top, margin);
        element('alert').style.borderWidth = top + 'px ' + left + 'px';
        area = {
            width: placed.width - 2 * (left + margin),
            height: placed.height - 2 * (top + margin),
            rem: placed.rem,
            is_portrait: placed.width < placed.height
        };
        put('area', { left: margin, top: margin, width: area.width, height: area.height });
        plan = null;
    }

    /* The clock, or the time since the alert. */
    function corner_name() {
        return element('timer').textContent !== '' ? 'timer' : 'age';
    }

    function measure_corner(head) {
        var name = corner_name(), box = element(name),
            taller = area.is_portrait && name === 'timer' ? 1.25 : 1;
        box.style.fontSize = head[name] * taller * area.rem + 'px';
        if (box.textContent === '') {
            return { width: 0, height: 0 };
        }
        return { width: Math.ceil(box.offsetWidth), height: Math.ceil(box.offsetHeight) };
    }

    function measure_units(head, corner) {
        var width = area.width;
        if (alert.units.length === 0) {
            return { width: 0, height: 0, pages: [[]] };
        }
        if (!area.is_portrait && corner.width > 0) {
            width -= corner.width + layout.GAP * area.rem;
        }
        return units_box.plan({
            width: width,
            height: area.height * head.units_height,
            smallest: text_plan.pixels(head.units[0], area.rem),
            largest: text_plan.pixels(head.units[1], area.rem),
            page_width: PAGE_NUMBER * area.rem,
            may_page: head.may_page_units
        });
    }

    /* The head's sizes do not depend on the map and the text. */
    function measure_heads() {
        var known = [];
        return function (head) {
            var i, corner, made;
            for (i = 0; i < known.length; i += 1) {
                if (known[i].head === head) {
                    return known[i].measured;
                }
            }
            corner = measure_corner(head);
            made = { timer: corner, units: measure_units(head, corner) };
            known.push({ head: head, measured: made.units && made });
            return made.units && made;
        };
    }

    /* Of the text. */
    function room_of(boxes) {
        return { width: boxes.text.width, height: boxes.text.height, beside: boxes.beside };
    }

    /* Null if the alert is not legible in this arrangement. */
    function try_arrangement(arrangement, measured_head, type) {
        var measured = measured_head(arrangement.head), boxes, room, found, made;
        if (!measured) {
            return null;
        }
        boxes = layout.rectangles(area, arrangement.map, measured);
        room = room_of(boxes);
        if (arrangement.setting === 'uniform') {
            found = text_plan.uniform(type, room);
            made = found && text_plan.enlarged(type, room, found);
        } else {
            made = text_plan.split(type, room, arrangement.setting === 'pages');
        }
        return made && { arrangement: arrangement, measured: measured, boxes: boxes, text: made };
    }

    function choose() {
        var type = { element: element('measure'), text: text, rem: area.rem },
            shape = { is_portrait: area.is_portrait, has_map: map_panel.is_shown() },
            arrangements = layout.arrangements(shape), measured_head = measure_heads(),
            chosen = null, i;
        for (i = 0; chosen === null && i < arrangements.length; i += 1) {
            chosen = try_arrangement(arrangements[i], measured_head, type);
        }
        return chosen;
    }

    function set_part(name, part) {
        measure.set_text(element(name), part.text);
        measure.set_type(element(name), part.width, part.size, part.is_broken);
    }

    function draw_text() {
        var rest = plan.text.rest;
        set_part('first', plan.text.first);
        show('rest', rest !== null);
        if (rest) {
            put('rest', { left: 0, top: rest.top, width: rest.width, height: rest.height });
            set_part('rest_text', rest);
        }
    }

    function is_alternating() {
        return plan.arrangement.map.place === 'alternating';
    }

    /* Where the rest of the text is, while the first lines stay. */
    function alternating_map_box() {
        var top = plan.boxes.text.top + plan.text.rest.top;
        return { left: 0, top: top, width: area.width,
            height: plan.boxes.text.top + plan.boxes.text.height - top };
    }

    function draw_map() {
        var box = is_alternating() ? alternating_map_box() : plan.boxes.map;
        show('map', box !== null);
        if (box) {
            put('map', box);
            map_panel.place();
        }
    }

    function arrange() {
        show('timer', corner_name() === 'timer');
        show('age', corner_name() === 'age');
        plan = choose();
        put('units', plan.boxes.units);
        measure_corner(plan.arrangement.head);
        element(corner_name()).style.top = plan.boxes.timer.top + 'px';
        element('units_page').style.left = plan.boxes.units.width + 'px';
        put('text', plan.boxes.text);
        put('foot', plan.boxes.foot);
        draw_text();
        draw_map();
    }

    function page_count() {
        return plan.text.pages + (is_alternating() ? 1 : 0);
    }

    function turn_pages() {
        var turns = Math.floor((pulse.now() - began) / PAGE),
            count = page_count(), page = turns % count, rest = plan.text.rest,
            is_map = is_alternating() && page === count - 1, units = plan.measured.units.pages.length;
        measure.set_text(element('pages'), count > 1 ? page + 1 + '/' + count : '');
        if (rest) {
            show('rest', !is_map);
            element('rest_text').style.top = -Math.min(page, plan.text.pages - 1) * rest.height + 'px';
        }
        element('map').style.visibility = is_alternating() && !is_map ? 'hidden' : '';
        if (alert.units.length > 0) {
            units_box.turn(plan.measured.units, turns);
        }
        measure.set_text(element('units_page'), units > 1 ? turns % units + 1 + '/' + units : '');
    }

    /* Call it with each new document. */
    function take(document) {
        var is_another = alert === null || alert.start !== document.start;
        if (is_another) {
            map_panel.clear();
        }
        if (is_another || alert.text !== document.text) {
            began = pulse.now();
        }
        alert = document;
        text = document_text.typeset(document.text);
        units_box.fill(alert.units);
        map_panel.want(alert.map);
        plan = null;
    }

    function forget() {
        alert = null;
        map_panel.clear();
    }

    function has_corner_changed() {
        var box = element(corner_name()), size = plan.measured.timer;
        return box.style.display === 'none' ||
            (box.textContent === '' ? size.width !== 0 : Math.ceil(box.offsetWidth) !== size.width);
    }

    /* Reading: the turnout timer's, or null; age and state: texts. Call it with every drawing. */
    function draw(reading, age, state) {
        measure.set_text(element('timer'), reading ? turnout.to_text(reading) : '');
        element('timer').className = reading && reading.is_past_zero ? 'past_zero' : '';
        measure.set_text(element('age'), reading ? '' : age);
        measure.set_text(element('since'), state.since);
        measure.set_text(element('mark'), state.mark);
        show('since', state.mark === '');
        map_panel.tend();
        if (plan === null || has_corner_changed()) {
            arrange();
        }
        turn_pages();
    }

    map_panel.when_it_changes(function () {
        if (plan !== null) {
            arrange();
            turn_pages();
        }
    });

    return { place: place, take: take, forget: forget, draw: draw };
}());
