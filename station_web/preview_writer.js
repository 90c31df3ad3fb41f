/* Writes alert documents as the service does. A document is a string of bytes, U+0000 to U+00FF. */
var preview_writer = (function () {
    'use strict';

    /* In this order, so that nothing is escaped twice. Map and units are not escaped at all. */
    var ESCAPES = [
        ['&', '&amp;'], ['<', '&lt;'], ['>', '&gt;'], ['"', '&quot;'],
        ['\\', '\\\\'], ['/', '\\/'], ['\b', '\\b'], ['\f', '\\f'], ['\n', '\\n'], ['\r', '\\r'],
        ['\t', '\\t']
    ];
    var TIMER = 120; /* seconds, until a message sets another */

    /* What fits into a message, in bytes. */
    var TEXT = { hdtv_alert: 3556, display_alert: 4089 };
    var NAME = 31, UNITS = 16;

    /* A byte that is no part of a character is held as U+F780 to U+F7FF. */
    function escape_byte(byte) {
        return String.fromCharCode(0xf700 + byte.charCodeAt(0));
    }

    function to_character(bytes) {
        var character;
        try {
            character = decodeURIComponent(escape(bytes));
        } catch (error) {
            character = '';
        }
        return /^[^\uf780-\uf7ff]/.test(character) ? character :
            bytes.replace(/[^]/g, escape_byte);
    }

    /* Text to read and to edit, from which from_text makes the same bytes again. */
    function to_text(bytes) {
        return bytes.replace(
            /[\xc2-\xdf][\x80-\xbf]|[\xe0-\xef][\x80-\xbf]{2}|[\xf0-\xf4][\x80-\xbf]{3}|[\x80-\xff]/g,
            to_character);
    }

    function to_utf_8(text) {
        try {
            return unescape(encodeURIComponent(text));
        } catch (error) { /* half of a pair */
            return unescape(encodeURIComponent(text.replace(/[\ud800-\udfff]/g, '\ufffd')));
        }
    }

    function from_text(text) {
        return text.replace(/[\uf780-\uf7ff]|[^\uf780-\uf7ff]+/g, function (run) {
            return /^[\uf780-\uf7ff]/.test(run) ?
                String.fromCharCode(run.charCodeAt(0) - 0xf700) : to_utf_8(run);
        });
    }

    function to_latin_1(text) {
        return text.replace(/[^\u0000-\u00ff]/g, '?');
    }

    function escape_text(bytes) {
        return ESCAPES.reduce(function (text, pair) {
            return text.split(pair[0]).join(pair[1]);
        }, bytes);
    }

    function write_units(units, encode) {
        return units.slice(0, UNITS).filter(function (unit) {
            return unit.color !== 0;
        }).map(function (unit) {
            return '{"unit":"' + encode(unit.name).slice(0, NAME) + '","color":"' + unit.color + '"}';
        }).join(',');
    }

    function timer_of(fields) {
        if (fields.timer !== undefined) {
            return fields.timer;
        }
        return fields.type === 'hdtv_alert' ? fields.end || 0 : TIMER;
    }

    function write_members(members) {
        return '[{' + members.map(function (member) {
            return '"' + member[0] + '":"' + member[1] + '", ';
        }).join('');
    }

    /* Only a detail alert has turnout values, a map and units, and "stop_turnout" has nothing. */
    function write(fields) {
        var encode = fields.encoding === 'Latin-1' ? to_latin_1 : from_text,
            is_detail = fields.type === 'hdtv_alert', is_stop = fields.type === 'stop_turnout',
            start = is_stop ? 0 : fields.start || 0,
            text = is_stop ? '' : encode(fields.text || '').slice(0, TEXT[fields.type]);
        return write_members([
            ['alert_type', fields.type],
            ['show_turnout_timer', is_stop ? 0 : fields.flag || 0],
            ['alert_time', start],
            ['turnout_end', is_detail && fields.end || 0],
            ['turnout_zero', is_detail && fields.zero || 0],
            ['turnout_reverse', is_detail && fields.reverse || 0],
            ['alert_expiration', (start + timer_of(fields)) % 0x100000000],
            ['alert_area', escape_text(text)],
            ['map_url', is_detail ? encode(fields.map || '') : '']
        ]) + '"units":[' + (is_detail ? write_units(fields.units || [], encode) : '') + ']}]';
    }

    return { write: write, to_text: to_text, from_text: from_text };
}());
