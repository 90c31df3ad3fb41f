/* Draws the page. A document's texts only ever become text nodes. */
var view = (function () {
    'use strict';

    var is_alert = false;

    function element(name) {
        return document.getElementById(name);
    }

    function clock_text(date) {
        return turnout.two_digits(date.getHours()) + ':' + turnout.two_digits(date.getMinutes());
    }

    function full_clock_text(date) {
        return clock_text(date) + ':' + turnout.two_digits(date.getSeconds());
    }

    /* Hidden, not removed: what is not displayed cannot be measured. */
    function show(name, is_shown) {
        element(name).style.visibility = is_shown ? '' : 'hidden';
        element(name).className = is_shown ? '' : 'away';
    }

    function draw_alert(alert) {
        is_alert = true;
        show('idle', false);
        show('alert', true);
        alert_view.take(alert);
    }

    function draw_idle(text) {
        is_alert = false;
        show('alert', false);
        show('idle', true);
        alert_view.forget();
        idle_view.take(text);
    }

    function place() {
        var placed = placement.place(element('page'));
        alert_view.place(placed);
        idle_view.place(placed);
    }

    /* News: { reading, age, since, last, mark }, of which all but the turnout timer's are texts. */
    function draw(date, news) {
        var is_narrow = element('page').className === 'portrait';
        measure.set_text(element('clock'), is_narrow ? clock_text(date) : full_clock_text(date));
        if (is_alert) {
            alert_view.draw(news.reading, news.age, news);
        } else {
            idle_view.draw({ clock: clock_text(date), last: news.last, mark: news.mark },
                pulse.now() / 1000);
        }
    }

    return {
        clock_text: clock_text,
        full_clock_text: full_clock_text,
        draw_alert: draw_alert,
        draw_idle: draw_idle,
        draw: draw,
        drift: idle_view.drift,
        place: place
    };
}());
