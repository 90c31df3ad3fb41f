/* The alert document: turns the bytes of the file into a validated object, or into nothing. */
var alert_document = (function () {
    'use strict';

    var NAMED = { amp: '&', lt: '<', gt: '>', quot: '"', apos: "'" };

    /* The file is read as "x-user-defined", which preserves each byte: the upper half maps to U+F780
       to U+F7FF. */
    function to_bytes(response) {
        return response.replace(/[\uf780-\uf7ff]/g, function (character) {
            return String.fromCharCode(character.charCodeAt(0) & 0xff);
        });
    }

    /* Decodes each text separately, because a unit's name may be cut within a character: UTF-8, or
       Latin-1 if it is not valid UTF-8. */
    function decode_text(bytes) {
        try {
            return decodeURIComponent(escape(bytes));
        } catch (error) {
            return bytes;
        }
    }

    function decode_reference(reference, name) {
        var code;
        if (name.charAt(0) !== '#') {
            return NAMED.hasOwnProperty(name) ? NAMED[name] : reference;
        }
        code = /^#x/i.test(name) ? parseInt(name.slice(2), 16) : parseInt(name.slice(1), 10);
        return code > 0 && code < 0x10000 ? String.fromCharCode(code) : reference;
    }

    /* In one pass, so that "&amp;lt;" becomes "&lt;". */
    function decode_references(text) {
        return text.replace(/&(#[0-9]+|#[xX][0-9a-fA-F]+|[a-z]+);/g, decode_reference);
    }

    function is_object(value) {
        return typeof value === 'object' && value !== null;
    }

    function has_texts(object, names) {
        var i;
        for (i = 0; i < names.length; i += 1) {
            if (typeof object[names[i]] !== 'string') {
                return false;
            }
        }
        return true;
    }

    function has_numbers(object, names) {
        var i;
        for (i = 0; i < names.length; i += 1) {
            if (!/^[0-9]+$/.test(object[names[i]])) {
                return false;
            }
        }
        return true;
    }

    function is_unit(value) {
        return is_object(value) && has_texts(value, ['unit', 'color']);
    }

    function is_document(value) {
        return is_object(value) && has_texts(value, ['alert_type', 'alert_area', 'map_url']) &&
            has_numbers(value, ['show_turnout_timer', 'alert_time', 'turnout_end', 'turnout_zero',
                'turnout_reverse', 'alert_expiration']) &&
            Array.isArray(value.units) && value.units.every(is_unit);
    }

    /* Only these addresses are ever followed; anything else could be a script. */
    function web_address(text) {
        return /^https?:\/\//i.test(text) ? text : '';
    }

    function to_unit(value) {
        return { name: decode_text(value.unit), color: parseInt(value.color, 10) || 0 };
    }

    function from_object(value) {
        return {
            type: value.alert_type,
            flag: Number(value.show_turnout_timer),
            start: Number(value.alert_time),
            turnout_end: Number(value.turnout_end),
            turnout_zero: Number(value.turnout_zero),
            is_reverse: Number(value.turnout_reverse) !== 0,
            expiration: Number(value.alert_expiration),
            text: decode_references(decode_text(value.alert_area)),
            map: web_address(decode_text(value.map_url)),
            units: value.units.map(to_unit)
        };
    }

    /* Null if it is empty, truncated, not JSON or not an alert document. Control characters are
       treated as spaces: the service passes them on from messages, but JSON does not allow them. */
    function read(response) {
        var values;
        try {
            values = JSON.parse(to_bytes(response).replace(/[\u0000-\u001f]/g, ' '));
        } catch (error) {
            return null;
        }
        if (!Array.isArray(values) || values.length !== 1 || !is_document(values[0])) {
            return null;
        }
        return from_object(values[0]);
    }

    function is_alert(document) {
        if (document.type === 'hdtv_alert') {
            return document.start !== 0;
        }
        return document.type === 'display_alert' && document.flag === 1 && document.text !== '';
    }

    return { read: read, is_alert: is_alert };
}());
