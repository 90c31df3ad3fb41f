/* The map. It is loaded out of sight and appears when there is something to show. */
var map_panel = (function () {
    'use strict';

    var KEPT = 3000; /* milliseconds in which an update of the alert may name the map again */

    /* Each { address, element, has_failed, and a picture's own width and height }, or null. */
    var shown = null, coming = null;
    var dropped = null; /* when the shown map was last asked for, if it is not any more */
    var on_change = function () {};

    function box() {
        return document.getElementById('map');
    }

    function discard(map) {
        if (map && map.element && map.element.parentNode) {
            map.element.onload = map.element.onerror = null;
            map.element.parentNode.removeChild(map.element);
        }
        if (map && map.request) { /* it would hold one of the browser's few connections */
            map.request.abort();
        }
    }

    function add(map, element, on_load, on_error) {
        discard(map);
        map.element = element;
        element.style.visibility = 'hidden';
        element.onload = on_load;
        element.onerror = on_error;
        element.src = map.address;
        box().appendChild(element);
    }

    function appear(map) {
        if (map === coming) {
            discard(shown);
            shown = coming;
            coming = dropped = null;
            shown.element.style.visibility = '';
            on_change();
        }
    }

    /* Without any privileges: its scripts do not run, and it cannot access this page. */
    function load_page(map) {
        var frame = document.createElement('iframe');
        frame.setAttribute('sandbox', '');
        add(map, frame, function () { appear(map); }, null);
    }

    /* The browser does not tell whether a frame shows a page or an error, so the unit's web server
       looks first. */
    function ask_for_page(map) {
        var request = new XMLHttpRequest(), link = document.createElement('a');
        link.href = map.address;
        request.onreadystatechange = function () {
            if (request.readyState === 4 && map === coming) {
                map.request = null;
                if (request.status === 204) {
                    load_page(map);
                } else {
                    map.has_failed = true;
                }
            }
        };
        request.open('GET', 'map.cgi?' + link.href.replace(/#.*$/, ''));
        request.setRequestHeader('X-Station-Page', 'map');
        map.request = request;
        request.send();
    }

    function load(address) {
        var map = { address: address, element: null, has_failed: false, width: 0, height: 0 },
            picture = document.createElement('img');
        discard(coming);
        coming = map;
        add(map, picture, function () {
            /* Now, because an old WebKit changes them for a drawing when it gets a size. */
            map.width = picture.naturalWidth;
            map.height = picture.naturalHeight;
            map.has_failed = map.width === 0;
            if (!map.has_failed) {
                appear(map);
            }
        }, function () {
            ask_for_page(map);
        });
    }

    function clear() {
        discard(shown);
        discard(coming);
        shown = coming = dropped = null;
    }

    /* An unchanged map stays: reloading it would make it flicker with each new text. */
    function want(address) {
        if (shown && shown.address === address) {
            dropped = null;
            discard(coming);
            coming = null;
        } else {
            dropped = shown && dropped === null ? pulse.now() : dropped;
            if (address === '') {
                discard(coming);
                coming = null;
            } else if (!coming || coming.address !== address) {
                load(address);
            }
        }
    }

    /* Call it with every drawing. */
    function tend() {
        if (dropped !== null && !pulse.is_within(dropped, KEPT)) {
            discard(shown);
            shown = dropped = null;
            on_change();
        }
    }

    /* A picture is as large as the box allows, and centered. */
    function place() {
        var room = box(), style = shown && shown.element.style, scale;
        if (shown && shown.width) {
            scale = Math.min(room.clientWidth / shown.width, room.clientHeight / shown.height);
            style.width = shown.width * scale + 'px';
            style.height = shown.height * scale + 'px';
            style.left = (room.clientWidth - shown.width * scale) / 2 + 'px';
            style.top = (room.clientHeight - shown.height * scale) / 2 + 'px';
        }
    }

    return {
        want: want,
        clear: clear,
        tend: tend,
        place: place,
        is_shown: function () { return shown !== null; },
        is_settled: function () { return coming === null || coming.has_failed; },
        when_it_changes: function (action) { on_change = action; }
    };
}());
