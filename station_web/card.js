/* The test card, for whoever sets up the television. */
var card = (function () {
    'use strict';

    /* Percent at each edge: the whole picture, and the safe areas of EBU R 95. */
    var FRAMES = [
        { percent: 0, name: 'edge' },
        { percent: 3.5, name: 'action' },
        { percent: 5, name: 'text' }
    ];
    var SIDES = ['top', 'right', 'bottom', 'left'];
    var ARROW = 1, LABEL_WIDTH = 7, LABEL_HEIGHT = 3; /* all in rem */
    var PITCH_ACROSS = 8, PITCH_DOWN = 3.5;

    /* EBU color bars: white at full level, the others at 75 %. */
    var BARS = ['#fff', '#bfbf00', '#00bfbf', '#00bf00', '#bf00bf', '#bf0000', '#0000bf', '#000'];
    /* Percent. The steps near both ends merge on a television that crushes black or white. */
    var GRAYS = [0, 2, 4, 10, 20, 30, 40, 50, 60, 70, 80, 90, 96, 98, 100];
    var COLORS = 16;

    /* Legibility: seen from 5 m on a 43-inch screen unless the address says otherwise. */
    var DISTANCE = 5, INCHES = 43;
    var CAPITAL = 0.688; /* height of a capital letter in Liberation Sans, in font sizes */
    var GOOD = 20, LEAST = 16; /* arc minutes */
    var GOOD_SIZE = 7.9, LEAST_SIZE = 6.35; /* of the station page's texts, in rem */

    function element(name) {
        return document.getElementById(name);
    }

    function add(parent, class_name, text) {
        var made = document.createElement('div');
        made.className = class_name;
        made.textContent = text || '';
        parent.appendChild(made);
        return made;
    }

    function set_box(made, box) {
        Object.keys(box).forEach(function (side) {
            made.style[side] = box[side] + 'px';
        });
    }

    function frames() {
        var own = placement.safe_percent(), is_known = FRAMES.some(function (frame) {
            return frame.percent === own;
        });
        return is_known ? FRAMES : FRAMES.concat({ percent: own, name: 'own' });
    }

    function draw_frame(placed, frame) {
        var part = frame.percent / 100;
        set_box(add(element('frames'), 'frame ' + frame.name), {
            left: placed.width * part,
            top: placed.height * part,
            width: placed.width * (1 - 2 * part),
            height: placed.height * (1 - 2 * part)
        });
    }

    /* From the frame inward to the label, at the given place along the side. */
    function draw_arrow(side, frame, from, to, along) {
        var arrow = add(element('frames'), 'arrow ' + side + ' ' + frame.name), box = {};
        box[side] = from;
        box[side === 'top' || side === 'bottom' ? 'height' : 'width'] = to - from;
        box[side === 'top' || side === 'bottom' ? 'left' : 'top'] = along;
        set_box(arrow, box);
    }

    function draw_label(placed, side, frame, to, along) {
        var label = add(element('frames'), 'label ' + side + ' ' + frame.name, frame.percent + ' %'),
            is_across = side === 'top' || side === 'bottom', box = {};
        box[side] = to;
        box[is_across ? 'left' : 'top'] =
            along - (is_across ? LABEL_WIDTH : LABEL_HEIGHT) / 2 * placed.rem;
        set_box(label, box);
    }

    function draw_side(placed, side, all, inset) {
        var is_across = side === 'top' || side === 'bottom',
            size = is_across ? placed.height : placed.width,
            middle = (is_across ? placed.width : placed.height) / 2,
            pitch = (is_across ? PITCH_ACROSS : PITCH_DOWN) * placed.rem,
            to = size * inset / 100 + ARROW * placed.rem;
        all.forEach(function (frame, i) {
            var along = middle + (i - (all.length - 1) / 2) * pitch;
            draw_arrow(side, frame, size * frame.percent / 100, to, along);
            draw_label(placed, side, frame, to, along);
        });
    }

    /* The card is inside all frames, so that nothing of it depends on them. */
    function draw_frames(placed) {
        var all = frames(), inset = Math.max.apply(null, all.map(function (frame) {
            return frame.percent;
        }));
        element('frames').textContent = '';
        all.forEach(function (frame) {
            draw_frame(placed, frame);
        });
        SIDES.forEach(function (side) {
            draw_side(placed, side, all, inset);
        });
        set_box(element('inside'), {
            left: placed.width * inset / 100,
            top: placed.height * inset / 100,
            width: placed.width * (1 - inset / 50),
            height: placed.height * (1 - inset / 50)
        });
    }

    function distance() {
        return placement.query_number('distance') || DISTANCE;
    }

    function inches() {
        return placement.query_number('inches') || INCHES;
    }

    /* Of the capital letters of a font of so many rem. */
    function millimeters(placed, size) {
        var diagonal = Math.sqrt(placed.width * placed.width + placed.height * placed.height);
        return size * CAPITAL * placed.rem / diagonal * inches() * 25.4;
    }

    function arc_minutes(placed, size) {
        return Math.atan(millimeters(placed, size) / 1000 / distance()) * 180 / Math.PI * 60;
    }

    function draw_line(placed, name, size) {
        element(name).style.fontSize = size + 'rem';
        element(name).textContent = arc_minutes(placed, size).toFixed(1) + ' arc min';
    }

    function draw_lines(placed) {
        var box = element('viewing');
        draw_line(placed, 'good_line', GOOD_SIZE);
        draw_line(placed, 'least_line', LEAST_SIZE);
        box.textContent = '';
        add(box, '', 'from ' + distance() + ' m on a ' + inches() + '-inch screen: ' +
            millimeters(placed, GOOD_SIZE).toFixed(0) + ' and ' +
            millimeters(placed, LEAST_SIZE).toFixed(0) + ' mm');
        add(box, arc_minutes(placed, LEAST_SIZE) < LEAST ? 'too_small' : '',
            GOOD + ' can be read well, ' + LEAST + ' is the least');
    }

    function draw_facts(placed) {
        var ratio = window.devicePixelRatio || 1;
        element('resolution').textContent = Math.round(window.innerWidth * ratio) + ' × ' +
            Math.round(window.innerHeight * ratio) + ' pixels';
        element('ratio').textContent = 'device pixel ratio ' + Math.round(ratio * 100) / 100;
        element('turn').textContent = 'rotation ' + placement.rotation() + '°';
        element('safe').textContent = 'safe area ' + placement.safe_percent() + ' %';
    }

    /* Two digits fit into a cell. */
    function size_palette() {
        var cell = document.querySelector('.cell');
        element('palette').style.fontSize =
            Math.floor(Math.min(cell.clientHeight / 1.6, cell.clientWidth / 3)) + 'px';
    }

    function place() {
        var page = element('page'), placed = placement.place(page);
        if (placed.width < placed.height * 1.5) {
            page.className += ' narrow';
        }
        draw_frames(placed);
        draw_lines(placed);
        draw_facts(placed);
        size_palette();
    }

    function gray(percent) {
        var level = Math.round(percent * 255 / 100);
        return 'rgb(' + level + ',' + level + ',' + level + ')';
    }

    function make_bars() {
        BARS.forEach(function (color) {
            add(element('bars'), '').style.backgroundColor = color;
        });
        GRAYS.forEach(function (percent) {
            var step = add(element('ramp'), percent < 50 ? 'dark' : 'light', String(percent));
            step.style.backgroundColor = gray(percent);
        });
    }

    function make_palette() {
        var number;
        for (number = 1; number <= COLORS; number += 1) {
            add(element('palette'), 'cell').appendChild(
                tiles.make({ name: String(number), color: number }));
        }
    }

    function turn(part, degrees) {
        part.style.webkitTransform = part.style.transform = 'rotate(' + degrees + 'deg)';
    }

    function make_dial() {
        var hour;
        for (hour = 0; hour < 12; hour += 1) {
            turn(add(element('dial'), 'tick'), hour * 30);
        }
    }

    function two_digits(number) {
        return (number < 10 ? '0' : '') + number;
    }

    /* One turn a minute. Nothing on the card flashes. */
    function draw() {
        var date = new Date();
        turn(element('hand'), (date.getTime() % 60000) * 360 / 60000);
        element('time').textContent = [date.getHours(), date.getMinutes(), date.getSeconds()]
            .map(two_digits).join(':');
        pulse.report_alive();
    }

    function start() {
        make_bars();
        make_dial();
        make_palette();
        window.onresize = place;
        place();
        pulse.draw_forever(draw);
    }

    return { start: start };
}());

card.start();
