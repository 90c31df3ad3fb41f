/* Another page, in a frame, while this one reports that it is alive: guest.html?u=ADDRESS. The
   address is percent-encoded, so that it ends where the service appends "?rotation=". */
(function () {
    'use strict';

    /* Never navigation of the whole window, which would end the heartbeat, nor windows or dialogs. */
    var RIGHTS = 'allow-scripts allow-forms allow-same-origin';

    var page = document.getElementById('page'), words = document.getElementById('words');

    function asked_address() {
        var found = /[?&]u=([^&?]*)/.exec(window.location.search);
        try {
            return found ? decodeURIComponent(found[1]) : '';
        } catch (error) {
            return '';
        }
    }

    /* With its scripts, a page of this unit's own would have this page's rights. */
    function is_own(host) {
        var name = host.replace(/\.$/, '');
        return name === '' || name === window.location.hostname || name === 'localhost' ||
            /\.localhost$/.test(name) || /^(127|0)\./.test(name) || /^\[(::|::1|::ffff:.*)\]$/.test(name);
    }

    /* Why an address is not shown; empty if it is. */
    function objection(address, link) {
        if (address === '') {
            return 'This page needs an address: guest.html?u=ADDRESS, percent-encoded.';
        }
        if (!/^https?:\/\/./i.test(address)) {
            return 'Not an http or https address: ' + address;
        }
        return is_own(link.hostname) ? 'An address of this unit itself: ' + address : '';
    }

    function show(address) {
        var link = document.createElement('a'), frame;
        link.href = address;
        words.appendChild(document.createTextNode(objection(address, link)));
        if (words.textContent === '') {
            frame = document.createElement('iframe');
            frame.setAttribute('sandbox', RIGHTS);
            frame.src = link.href;
            page.appendChild(frame);
        }
    }

    function place() {
        var safe = placement.place(page).safe, side;
        for (side in safe) {
            words.style[side] = safe[side] + 'px';
        }
    }

    window.onresize = place;
    place();
    show(asked_address());
    pulse.draw_forever(pulse.report_alive);
}());
