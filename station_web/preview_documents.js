/* The canned documents of the preview. Each has steps: the fields of documents given one after the
   other, about one alert. "since" is how many seconds ago it started, and "cut" the length of a
   document that ends too early. */
var preview_documents = (function () {
    'use strict';

    /* The page follows only complete addresses. */
    var MAP = window.location.href.replace(/[^\/]*([?#].*)?$/, '') + 'preview_map.svg';

    var DISPATCH = 'STRUCTURE FIRE\n1200 MAIN ST, CROSS OAK AVE\n' +
        'Smoke from the second floor, occupants out';
    var LONG_DISPATCH = DISPATCH + '\nBox 2114, map page 47 C\nHydrant at the corner of Oak Ave\n' +
        'Gas shutoff on the north side\nTactical channel 4';
    var NINE_LINES = LONG_DISPATCH + '\nEngine 7 is out of service\nWind from the west, 25 km/h';
    var CREW = units('E1 2', 'L3 5', 'BC1 1', 'M12 3');
    var SENTENCE = 'Caller reports heavy smoke and flames from the rear of the building. ';

    function units() {
        return Array.prototype.map.call(arguments, function (text) {
            var words = text.split(' ');
            return { name: words[0], color: Number(words[1]) };
        });
    }

    function many_units(name) {
        var all = [], i;
        for (i = 1; i <= 16; i += 1) {
            all.push({ name: name(i), color: i });
        }
        return all;
    }

    /* 31 characters, as many as fit. */
    function long_name(number) {
        return 'NORTH DISTRICT RESCUE COMPANY ' + String.fromCharCode(64 + number);
    }

    function text_of(length) {
        var text = DISPATCH + '\n';
        while (text.length < length) {
            text += SENTENCE;
        }
        return text.slice(0, length);
    }

    /* A detail alert 20 seconds old, with a timer of two minutes. */
    function alert(text, more) {
        var fields = {
            type: 'hdtv_alert', flag: 1, since: 20, end: 120, zero: 120, reverse: 0, text: text,
            units: CREW
        };
        Object.keys(more || {}).forEach(function (name) {
            fields[name] = more[name];
        });
        return fields;
    }

    function idle(text) {
        return { type: 'display_alert', flag: 0, text: text };
    }

    function one(caption, fields) {
        return { caption: caption, steps: [fields] };
    }

    return [
        one('A short alert', alert('FIRE', { units: units('E1 2') })),
        one('A typical dispatch: four units and the turnout timer', alert(DISPATCH)),
        one('Six lines and more, with a map', alert(LONG_DISPATCH, { map: MAP })),
        one('Nine lines with a map', alert(NINE_LINES, { map: MAP })),
        one('1,500 characters', alert(text_of(1500))),
        one('3,500 characters', alert(text_of(3500))),
        one('3,500 characters with a map', alert(text_of(3500), { map: MAP })),
        one('Sixteen units in sixteen colors', alert(DISPATCH, {
            units: many_units(function (number) { return 'E' + number; })
        })),
        one('Sixteen units with names of 31 characters',
            alert(DISPATCH, { units: many_units(long_name) })),
        one('Units only: no text', alert('')),
        one('Neither units nor a timer', alert(DISPATCH, { units: [], end: 0, zero: 0 })),
        one('The turnout timer past zero: these units are late',
            alert(DISPATCH, { since: 95, end: 600, zero: 60 })),
        one('The turnout timer about to reach zero', alert(DISPATCH, { since: 55, zero: 60 })),
        one('The turnout timer has expired: how long ago it was', alert(DISPATCH, { since: 760 })),
        one('No turnout timer', alert(DISPATCH, { end: 0, zero: 0 })),
        one('A turnout timer that counts up from the start', alert(DISPATCH, { reverse: 1 })),
        { caption: 'The turnout timer is stopped', steps: [alert(DISPATCH),
            { type: 'stop_turnout' }] },
        { caption: 'The text is updated during the alert', steps: [
            alert(DISPATCH), alert(DISPATCH + '\nALL OCCUPANTS ARE OUT')] },
        { caption: 'A map arrives, and the next update is without it', steps: [
            alert(DISPATCH), alert(DISPATCH, { map: MAP }),
            alert(DISPATCH + '\nSecond alarm')] },
        one('A quotation mark in a unit\'s name: the document is no JSON',
            alert(DISPATCH, { units: [{ name: 'E1 "Old Betsy"', color: 2 }, CREW[1]] })),
        one('A quotation mark in the map address: the document is no JSON',
            alert(DISPATCH, { map: MAP + '?at="Main St"' })),
        { caption: 'A document cut short: the page keeps what was there', steps: [
            alert(DISPATCH), alert('CUT SHORT', { cut: 215 })] },
        one('A map that cannot be had',
            alert(DISPATCH, { map: MAP.replace('preview_map.svg', 'no_such_map.svg') })),
        one('A display alert: no units', alert('STRUCTURE FIRE\n1200 MAIN ST', {
            type: 'display_alert', end: 0, zero: 0, timer: 180, units: []
        })),
        one('Cyrillic and Greek',
            alert('ПОЖАР В ЗДАНИИ\nУл. Ленина, 12\nΠΥΡΚΑΓΙΑ\nΟδός Αθηνάς 7')),
        one('Arabic, from right to left', alert('حريق في مبنى\nشارع الملك فيصل ١٢')),
        one('Chinese, Japanese and Korean',
            alert('建筑火灾\n中山路12号\n建物火災 大通り12番地\n건물 화재 중앙로 12')),
        one('Symbols', alert('⚠ FIRE ☎ 555-0142 → N 38° ½ mile ± ≤ 5 m² €\n✚ ☢ ☣ ♿ ★ ● ■ ▲')),
        one('Characters without a glyph', alert('BOX \ue123 \u0378 \uf8f0\n1200 MAIN ST')),
        one('Latin-1 bytes instead of UTF-8',
            alert('CAFÉ MÜLLER\nRue du Général 5, près de l\'école', { encoding: 'Latin-1' })),
        one('Characters of markup', alert('AT&T <b>"TOWER"</b> \\ / &amp; &lt;\ttab')),
        one('Idle: the unit\'s address', idle('10.87.33.50')),
        one('Idle: no network', idle('No Network Connection')),
        one('Idle: a short notice', idle('Training at 14:00')),
        one('Idle: a very long notice', idle(text_of(1500))),
        { caption: 'Idle after an alert', steps: [alert(DISPATCH),
            { type: 'hdtv_alert', flag: 1 }] }
    ];
}());
