/* From the bytes of the alert document to the texts that they mean. */
var document_text = (function () {
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
    function decode(bytes) {
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

    function fixed_spaces(spaces) {
        return spaces.replace(/ /g, '\u00a0');
    }

    /* Neither begins nor ends with empty lines, and has no two together: they would push what follows
       off the first lines, or pages away. */
    function trimmed_lines(text) {
        return text.replace(/\r\n?/g, '\n').replace(/[\t\f\v\b]/g, ' ').replace(/ +$/gm, '')
            .replace(/\n{3,}/g, '\n\n').replace(/^\n+|\n+$/g, '');
    }

    /* Spaces that "white-space: pre-line" keeps, and at most one where a line may end: an old WebKit
       starts the next line with the rest of them. */
    function typeset(text) {
        return glyphs.readable(trimmed_lines(text)).replace(/^ +/gm, fixed_spaces).replace(/ +(?= )/g, fixed_spaces);
    }

    /* Only these addresses are ever followed; anything else could be a script. */
    function web_address(text) {
        return /^https?:\/\//i.test(text) ? text : '';
    }

    return {
        to_bytes: to_bytes,
        decode: decode,
        decode_references: decode_references,
        typeset: typeset,
        web_address: web_address
    };
}());
