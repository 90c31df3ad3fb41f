/* The drawing loop of a page on the television, and its report that it is alive. */
var pulse = (function () {
    'use strict';

    var DRAW = 250, ALIVE = 30000; /* milliseconds */

    var reported = null;

    /* Milliseconds. Not the time of day, because the gateway may set the clock at any moment. */
    function now() {
        return window.performance && performance.now ? performance.now() : Date.now();
    }

    function is_within(time, limit) {
        var age = now() - time;
        return time !== null && age >= 0 && age < limit;
    }

    /* Only a browser that really draws calls this again. */
    function draw_forever(draw) {
        var request_frame = window.requestAnimationFrame || window.webkitRequestAnimationFrame ||
            function (action) { action(); };
        window.setTimeout(function () { /* first, so that a fault does not end the loop */
            request_frame(function () {
                draw_forever(draw);
            });
        }, DRAW);
        draw();
    }

    /* The unit resets itself when the liveness file grows old, so call this from the drawing loop
       only. No other page can send this header, and a preview is not what the television shows. */
    function report_alive() {
        var request;
        if (window.station_preview || is_within(reported, ALIVE)) {
            return;
        }
        reported = now();
        request = new XMLHttpRequest();
        request.open('POST', 'alive.cgi');
        request.setRequestHeader('X-Station-Page', 'alive');
        request.send();
    }

    return { now: now, is_within: is_within, draw_forever: draw_forever, report_alive: report_alive };
}());
