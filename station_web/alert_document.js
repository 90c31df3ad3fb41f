/* The alert document: turns the bytes of the file into a validated object, or into nothing.
   The service writes it by a fixed template and does not escape a quotation mark in a map address or
   in a unit's name. Such a document is not JSON, or JSON that says something else, so it is read by
   that template. Only what does not match it is read as JSON. */
var alert_document = (function () {
    'use strict';

    /* Up to the alert's text, which contains no quotation mark. */
    var HEAD = new RegExp('^\\[\\{"alert_type":"([a-z_]*)", "show_turnout_timer":"([0-9]+)", ' +
        '"alert_time":"([0-9]+)", "turnout_end":"([0-9]+)", "turnout_zero":"([0-9]+)", ' +
        '"turnout_reverse":"([0-9]+)", "alert_expiration":"([0-9]+)", ' +
        '"alert_area":"([^"]*)", "map_url":"');
    var BEFORE_UNITS = '", "units":[';
    var END = ']}]';
    /* A name has at most 31 bytes. It ends where another unit or the end of the list follows. */
    var UNIT = /^\{"unit":"([\s\S]{0,31}?)","color":"([0-9]{1,3})"\}(?:,(?=\{"unit":")|$)/;
    var NEXT_UNIT = ',{"unit":"';

    function to_unit(name, color) {
        return { name: document_text.decode(name), color: parseInt(color, 10) || 0 };
    }

    /* Whatever is no unit is left out. */
    function read_units(list) {
        var units = [], is_whole = true, found, next;
        while (list !== '') {
            found = UNIT.exec(list);
            if (found) {
                units.push(to_unit(found[1], found[2]));
                list = list.slice(found[0].length);
            } else {
                is_whole = false;
                next = list.indexOf(NEXT_UNIT, 1);
                list = next < 0 ? '' : list.slice(next + 1);
            }
        }
        return { units: units, is_whole: is_whole };
    }

    /* Both the address and the names may contain the text that separates them: it is where a list of
       units follows, and otherwise the last one. */
    function read_map_and_units(tail) {
        var place = tail.indexOf(BEFORE_UNITS), read = null, next;
        while (place >= 0) {
            read = read_units(tail.slice(place + BEFORE_UNITS.length));
            next = tail.indexOf(BEFORE_UNITS, place + 1);
            if (read.is_whole || next < 0) {
                return { map: tail.slice(0, place), units: read.units };
            }
            place = next;
        }
        return null;
    }

    function unescape(text) {
        try {
            return JSON.parse('"' + text + '"');
        } catch (error) {
            return text;
        }
    }

    function from_template(text) {
        var head = HEAD.exec(text), tail;
        if (!head || text.slice(-END.length) !== END) {
            return null;
        }
        tail = read_map_and_units(text.slice(head[0].length, -END.length));
        return tail && {
            type: head[1],
            numbers: head.slice(2, 8),
            area: unescape(head[8]),
            map: tail.map,
            units: tail.units
        };
    }

    var NUMBERS = ['show_turnout_timer', 'alert_time', 'turnout_end', 'turnout_zero',
        'turnout_reverse', 'alert_expiration'];

    function is_object(value) {
        return typeof value === 'object' && value !== null;
    }

    function is_text(value) {
        return typeof value === 'string';
    }

    function is_number(value) {
        return /^[0-9]+$/.test(value);
    }

    function is_unit(value) {
        return is_object(value) && is_text(value.unit) && is_text(value.color);
    }

    function is_document(value) {
        return is_object(value) &&
            [value.alert_type, value.alert_area, value.map_url].every(is_text) &&
            NUMBERS.every(function (name) { return is_number(value[name]); }) &&
            Array.isArray(value.units) && value.units.every(is_unit);
    }

    function from_json(text) {
        var values = null, value;
        try {
            values = JSON.parse(text);
        } catch (error) {
            /* It is truncated, or nothing of ours. */
        }
        if (!Array.isArray(values) || values.length !== 1 || !is_document(values[0])) {
            return null;
        }
        value = values[0];
        return {
            type: value.alert_type,
            numbers: NUMBERS.map(function (name) { return value[name]; }),
            area: value.alert_area,
            map: value.map_url,
            units: value.units.map(function (unit) { return to_unit(unit.unit, unit.color); })
        };
    }

    /* Null if it is empty, truncated or not an alert document. Control characters are treated as
       spaces: the service passes them on from messages, but JSON does not allow them. */
    function read(response) {
        var text = document_text.to_bytes(response).replace(/[\u0000-\u001f]/g, ' '),
            members = from_template(text) || from_json(text),
            numbers;
        if (!members) {
            return null;
        }
        numbers = members.numbers.map(Number);
        return {
            type: members.type,
            flag: numbers[0],
            start: numbers[1],
            turnout_end: numbers[2],
            turnout_zero: numbers[3],
            is_reverse: numbers[4] !== 0,
            expiration: numbers[5],
            text: document_text.decode_references(document_text.decode(members.area)),
            map: document_text.web_address(document_text.decode(members.map)),
            units: members.units
        };
    }

    function is_alert(document) {
        if (document.type === 'hdtv_alert') {
            return document.start !== 0;
        }
        return document.type === 'display_alert' && document.flag === 1 && document.text !== '';
    }

    return { read: read, is_alert: is_alert };
}());
