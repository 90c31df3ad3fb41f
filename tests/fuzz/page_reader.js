// The page's reader of the alert document, under node. Every document that the service can write gives
// its fields back; whatever else the bytes are, nothing is thrown and what is read has the right kinds.
//
// usage: node page_reader.js [--runs N] [--seconds N] [--seed N] [--save FILE] [FILE|DIRECTORY]...
//
// Reads the files first, which are documents, then makes documents up and changes them. A finding is
// saved, and ends it with status 1.
'use strict';

const fs = require('fs');
const path = require('path');
const vm = require('vm');

const page = path.join(__dirname, '../../station_web');
for (const name of ['document_text.js', 'alert_document.js', 'preview_writer.js']) {
    vm.runInThisContext(fs.readFileSync(path.join(page, name), 'utf8'), name);
}
/* global alert_document, preview_writer */

const options = { runs: 0, seconds: 0, seed: 1, save: '' };
const files = [];

function read_arguments(words) {
    while (words.length > 0) {
        const word = words.shift(), name = word.slice(2);
        if (!word.startsWith('--')) {
            files.push(word);
        } else if (name in options && words.length > 0) {
            options[name] = name === 'save' ? words.shift() : Number(words.shift());
        } else {
            throw new Error('no such option: ' + word);
        }
    }
}

// The same numbers for the same seed (xorshift).
let state = 1;

function below(limit) {
    state ^= state << 13;
    state ^= state >>> 17;
    state ^= state << 5;
    return (state >>> 0) % limit;
}

function one_of(list) {
    return list[below(list.length)];
}

// What divides a document, so that made-up values often contain it.
const pieces = ['"', '"}', '","color":"', '","color":"5"}', '{"unit":"', ']}]', '", "units":[',
    '", "map_url":"', '"alert_area":"', '[{"alert_type":"', '\\', '\\u0022', '&quot;', '&amp;lt;',
    '&#0;', '&#x110000;', '&', '<b>', '/', '\n', '\r', '\t', '\b', '\f', '\u0001', '\u001f', '\u00c3',
    '\u00c3\u00a9', '\u00ff', '\u00ed\u00a0\u0080', ' ', 'http://', 'FIRE', '{', '}', '[', ']', ',', ':'];

function some_bytes(longest) {
    let text = '';
    for (let count = below(8); count > 0; --count) {
        text += below(3) > 0 ? one_of(pieces) : String.fromCharCode(1 + below(255));
    }
    return text.slice(0, longest);
}

function some_number(limit) {
    return below(3) === 0 ? one_of([0, 1, limit - 1]) : below(limit);
}

// The writer takes texts, and makes the same bytes of them.
function some_fields() {
    const units = [];
    for (let count = below(3) > 0 ? below(17) : 0; count > 0; --count) {
        units.push({ name: preview_writer.to_text(some_bytes(31)), color: 1 + below(255) });
    }
    return {
        type: one_of(['display_alert', 'hdtv_alert', 'stop_turnout']),
        flag: some_number(256), start: some_number(0x100000000), timer: some_number(0x10000),
        end: some_number(0x10000), zero: some_number(0x10000), reverse: some_number(256),
        text: preview_writer.to_text(some_bytes(3000)), map: preview_writer.to_text(some_bytes(4000)),
        units: units
    };
}

function same(is, expected, what) {
    if (is !== expected) {
        throw new Error(what + ' is ' + JSON.stringify(is) + ' instead of ' + JSON.stringify(expected));
    }
}

// UTF-8, or else Latin-1; of the control characters those that the text may have as they are.
function as_meant(bytes, kept) {
    const shown = bytes.replace(/[\u0000-\u001f]/g, c => kept.includes(c) ? c : ' ');
    const buffer = Buffer.from(shown, 'latin1'), text = buffer.toString('utf8');
    return Buffer.from(text, 'utf8').equals(buffer) ? text : shown;
}

function expect_fields(document, fields) {
    const is_detail = fields.type === 'hdtv_alert', is_stop = fields.type === 'stop_turnout';
    const numbers = {
        flag: is_stop ? 0 : fields.flag, start: is_stop ? 0 : fields.start,
        turnout_end: is_detail ? fields.end : 0, turnout_zero: is_detail ? fields.zero : 0,
        expiration: ((is_stop ? 0 : fields.start) + fields.timer) % 0x100000000,
        is_reverse: is_detail && fields.reverse !== 0
    };
    same(document.type, fields.type, 'type');
    for (const name of Object.keys(numbers)) {
        same(document[name], numbers[name], name);
    }
    const text = is_stop ? '' : preview_writer.from_text(fields.text);
    same(document.text, as_meant(text, '\b\f\n\r\t'), 'text');
    const map = is_detail ? preview_writer.from_text(fields.map) : '';
    const names = is_detail ? fields.units.map(unit => preview_writer.from_text(unit.name)) : [];
    // A name that contains the end of a unit, and an address that contains the beginning of the units,
    // cannot always be told from two names.
    if (!names.some(name => name.includes('"color":"')) && !map.includes('"units":[')) {
        const address = as_meant(map, '');
        same(document.map, /^https?:\/\//i.test(address) ? address : '', 'map');
        same(document.units.length, names.length, 'the number of units');
        names.forEach((name, i) => same(document.units[i].name, as_meant(name, ''), 'unit'));
        fields.units.slice(0, names.length).forEach(
            (unit, i) => same(document.units[i].color, unit.color, 'color'));
    }
}

const kinds = {
    type: 'string', flag: 'number', start: 'number', turnout_end: 'number', turnout_zero: 'number',
    is_reverse: 'boolean', expiration: 'number', text: 'string', map: 'string'
};

function expect_kinds(document) {
    if (document === null) {
        return;
    }
    for (const name of Object.keys(kinds)) {
        same(typeof document[name], kinds[name], 'the kind of ' + name);
    }
    same(document.map === '' || /^https?:\/\//i.test(document.map), true, 'the map of the web');
    for (const unit of document.units) {
        same(typeof unit.name, 'string', 'the kind of a name');
        same(Number.isInteger(unit.color), true, 'a color that is a number');
    }
    alert_document.is_alert(document);
}

function change(bytes) {
    for (let count = 1 + below(4); count > 0; --count) {
        const from = below(bytes.length + 1), to = Math.min(bytes.length, from + below(20));
        bytes = bytes.slice(0, from) + one_of(['', some_bytes(40), bytes.slice(from, to).repeat(2)]) +
            bytes.slice(to);
    }
    return below(8) === 0 ? bytes.slice(0, below(bytes.length + 1)) : bytes;
}

// As the page receives it: "x-user-defined".
function as_received(bytes) {
    return bytes.replace(/[\u0080-\u00ff]/g, c => String.fromCharCode(0xf700 + c.charCodeAt(0)));
}

function read(bytes) {
    const document = alert_document.read(as_received(bytes));
    expect_kinds(document);
    return document;
}

function give_up(bytes, error) {
    if (options.save) {
        fs.writeFileSync(options.save, Buffer.from(bytes, 'latin1'));
    }
    console.error(error.stack + '\nThe document: ' + JSON.stringify(bytes));
    process.exit(1);
}

function attempt(bytes, action) {
    try {
        action();
    } catch (error) {
        give_up(bytes, error);
    }
}

function all_files() {
    return files.flatMap(name => fs.statSync(name).isDirectory() ?
        fs.readdirSync(name).sort().map(entry => path.join(name, entry)) : [name]);
}

// Half of the documents are as the service writes them, half are changed ones.
function run_one(corpus) {
    const fields = some_fields(), written = preview_writer.write(fields);
    if (below(2) === 0) {
        attempt(written, () => expect_fields(read(written), fields));
    } else {
        const changed = change(below(3) === 0 && corpus.length > 0 ? one_of(corpus) : written);
        attempt(changed, () => read(changed));
    }
}

read_arguments(process.argv.slice(2));
state = options.seed || 1;
const corpus = all_files().map(name => fs.readFileSync(name).toString('latin1'));
corpus.forEach(bytes => attempt(bytes, () => read(bytes)));
const end = Date.now() + 1000 * options.seconds;
let count = 0;
while (count < options.runs || (options.seconds > 0 && Date.now() < end)) {
    run_one(corpus);
    ++count;
}
console.log('Done ' + (count + corpus.length) + ' runs');
