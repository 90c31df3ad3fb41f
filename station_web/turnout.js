/* The turnout timer: its reading at a given moment, from an alert's five values. */
var turnout = (function () {
    'use strict';

    /* Seconds after the start at which the timer reads zero. */
    function zero_point(alert, length) {
        return alert.turnout_zero || alert.turnout_end || length;
    }

    /* Null while there is nothing to show. The document's times are 32 bits and wrap. */
    function read(alert, seconds_since_1970) {
        var length = (alert.expiration - alert.start) >>> 0,
            /* Setting the clock back does not extend the remaining time. */
            elapsed = Math.max(0, seconds_since_1970 - alert.start),
            zero = zero_point(alert, length);
        if (alert.flag !== 1 || alert.start === 0 || elapsed >= length) {
            return null;
        }
        return {
            seconds: alert.is_reverse ? elapsed : Math.abs(zero - elapsed),
            is_past_zero: elapsed >= zero,
            has_sign: !alert.is_reverse && elapsed > zero
        };
    }

    function two_digits(number) {
        return (number < 10 ? '0' : '') + number;
    }

    function to_text(reading) {
        var minutes = Math.floor(reading.seconds / 60);
        return (reading.has_sign ? '+' : '') + minutes + ':' + two_digits(reading.seconds % 60);
    }

    /* "12:40 ago", and nothing once it is about another day. */
    function age_to_text(seconds) {
        var hours = Math.floor(seconds / 3600), minutes = Math.floor(seconds / 60) % 60;
        if (hours >= 24) {
            return '';
        }
        return (hours > 0 ? hours + ':' + two_digits(minutes) : minutes) + ':' +
            two_digits(seconds % 60) + ' ago';
    }

    return { age_to_text: age_to_text, read: read, to_text: to_text, two_digits: two_digits };
}());
