/* A television for the preview: the station page in a frame of its own. */
var preview_television = (function () {
    'use strict';

    var READY = 20;   /* milliseconds between looks */
    var AGAIN = 1000; /* until a page that could not be loaded is tried again */

    var page_text = ''; /* of index.html */
    var stage, frame = null;

    /* The page's own text, because its server does not let any page frame it. Tried until it is there. */
    function load(box, done) {
        var request = new XMLHttpRequest();
        stage = box;
        request.onreadystatechange = function () {
            if (request.readyState === 4) {
                page_text = request.responseText;
                if (request.status === 200 && page_text !== '') {
                    done(true);
                } else {
                    done(false);
                    window.setTimeout(load, AGAIN, box, done);
                }
            }
        };
        request.open('GET', 'index.html');
        request.send();
    }

    function when_ready(made, done) {
        if (made !== frame) {
            return; /* replaced meanwhile */
        }
        if (made.contentWindow.station_page) {
            done();
        } else {
            window.setTimeout(when_ready, READY, made, done);
        }
    }

    /* The page cannot load itself again, as it does on a television: it has no address. */
    function when_file_is_missing(made, action) {
        made.contentWindow.addEventListener('error', function (event) {
            if (/^(SCRIPT|LINK)$/.test(event.target.tagName)) {
                window.setTimeout(function () {
                    if (made === frame) {
                        action();
                    }
                }, AGAIN);
            }
        }, true);
    }

    /* The page believes in a screen of this size, and takes this for its address's query. */
    function replace(width, height, search, done) {
        var inner;
        stage.textContent = '';
        frame = document.createElement('iframe');
        frame.title = 'Television';
        frame.width = width;
        frame.height = height;
        stage.appendChild(frame);
        fit();
        inner = frame.contentWindow.document;
        inner.open();
        frame.contentWindow.station_preview = { search: search };
        when_file_is_missing(frame, function () {
            replace(width, height, search, done);
        });
        inner.write(page_text);
        inner.close();
        when_ready(frame, done);
    }

    /* Scales the television to the stage; returns the scale. */
    function fit() {
        var scale = Math.min(stage.clientWidth / frame.width, stage.clientHeight / frame.height);
        frame.style.transform = 'scale(' + scale + ')';
        frame.style.left = (stage.clientWidth - frame.width * scale) / 2 + 'px';
        frame.style.top = (stage.clientHeight - frame.height * scale) / 2 + 'px';
        return scale;
    }

    function give(bytes) {
        frame.contentWindow.station_page.give(bytes);
    }

    return { load: load, replace: replace, fit: fit, give: give };
}());
