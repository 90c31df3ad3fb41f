"""The turnout timer on the station page."""

import pytest
from page_stage import NOW, Stage, alert_document
from page_support import Shown

from simulation import gateway
from simulation.gateway import Unit, deliver
from simulation.places import UNIT_ADDRESS
from simulation.waiting import wait_for

pytestmark = [pytest.mark.once, pytest.mark.browser]


def test_display_alert_with_no_time_has_no_timer(shown: Shown) -> None:
    shown.deliver(gateway.display_alert("ALL CREWS", turnout=0))
    assert shown.text("text") == "ALL CREWS"
    assert shown.text("timer") == ""


def test_hdtv_alert_gives_the_timer_more_time(shown: Shown) -> None:
    shown.deliver(gateway.display_alert("ALL CREWS", turnout=0))
    deliver(shown.station, gateway.hdtv_alert("", 60))
    shown.deliver(gateway.display_alert("ALL CREWS AGAIN"))
    assert shown.text("timer") in ("1:00", "0:59", "0:58")


def test_stop_turnout_hides_the_timer_and_nothing_else(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("FIRE", {0: Unit("E1", 1)}, turnout_end=100))
    assert shown.text("timer") != ""
    shown.deliver(gateway.stop_turnout())
    assert shown.text("timer") == ""
    assert (shown.text("text"), shown.units()) == ("FIRE", ["E1"])


def test_stopped_timer_stays_stopped_for_the_rest_of_the_alert(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("FIRE", turnout_end=100))
    first = shown.station.document()["alert_time"]
    shown.deliver(gateway.stop_turnout())
    shown.deliver(gateway.detail_alert("FIRE, 2ND ALARM", turnout_end=100))
    assert shown.text("text") == "FIRE, 2ND ALARM"
    assert shown.text("timer") == ""
    shown.deliver(gateway.detail_alert(""))
    shown.deliver(gateway.detail_alert("ANOTHER FIRE", turnout_end=100))
    assert shown.station.document()["alert_time"] >= first
    assert shown.text("timer") != ""


def test_stop_turnout_while_idle_leaves_the_idle_screen(shown: Shown) -> None:
    shown.deliver(gateway.stop_turnout())
    assert shown.text("idle_text") == UNIT_ADDRESS


def test_browser_restarted_after_stop_turnout_still_shows_the_alert(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("FIRE", {0: Unit("E1", 1)}, turnout_end=100))
    shown.deliver(gateway.stop_turnout())
    shown.screen.driver.refresh()
    shown.screen.wait_until_drawn()
    assert (shown.text("text"), shown.units(), shown.text("timer")) == ("FIRE", ["E1"], "")


@pytest.mark.parametrize(
    "values, elapsed, reading",
    [
        # start, end, zero, reverse, expiration
        ((1000, 120, 60, 0, 1120), 0, "1:00"),
        ((1000, 120, 60, 0, 1120), 50, "0:10"),
        ((1000, 120, 60, 0, 1120), 59, "0:01"),
        ((1000, 120, 60, 0, 1120), 60, "0:00 past zero"),
        ((1000, 120, 60, 0, 1120), 61, "+0:01 past zero"),
        ((1000, 120, 60, 0, 1120), 119, "+0:59 past zero"),
        ((1000, 120, 60, 0, 1120), 120, ""),
        ((1000, 120, 0, 0, 1120), 0, "2:00"),
        ((1000, 120, 0, 0, 1120), 119, "0:01"),
        ((1000, 120, 0, 0, 1120), 120, ""),
        ((1000, 120, 0, 0, 1300), 121, "+0:01 past zero"),
        ((1000, 0, 0, 0, 1090), 0, "1:30"),
        ((1000, 120, 60, 1, 1120), 0, "0:00"),
        ((1000, 120, 60, 1, 1120), 59, "0:59"),
        ((1000, 120, 60, 1, 1120), 60, "1:00 past zero"),
        ((1000, 120, 60, 255, 1120), 119, "1:59 past zero"),
        ((1000, 120, 60, 1, 1120), 120, ""),
        ((1000, 120, 60, 0, 1000), 0, ""),
        ((1000, 7200, 0, 0, 8200), 0, "120:00"),
        ((0, 120, 60, 0, 120), 5, ""),
        # A clock that was set back, and times that wrap around.
        ((1000, 120, 60, 0, 1120), -500, "1:00"),
        ((4294967290, 120, 0, 0, 114), 10, "1:50"),
    ],
)
def test_turnout_timer_reads(
    script_page: Shown, values: tuple[int, ...], elapsed: int, reading: str
) -> None:
    read = script_page.script(
        """
        var v = arguments[0], reading = turnout.read({flag: 1, start: v[0], turnout_end: v[1],
            turnout_zero: v[2], is_reverse: v[3] !== 0, expiration: v[4]}, v[0] + arguments[1]);
        return reading && turnout.to_text(reading) + (reading.is_past_zero ? ' past zero' : '')
        """,
        values,
        elapsed,
    )
    assert (read or "") == reading


def test_timer_past_zero_looks_different(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("FIRE", turnout_end=100, turnout_zero=1))
    color = "return getComputedStyle(document.getElementById('timer')).backgroundColor"
    wait_for(lambda: shown.script(color) == "rgb(211, 47, 47)", "red")
    assert shown.text("timer").startswith("+0:0") or shown.text("timer") == "0:00"


def test_time_since_the_alert_takes_the_place_of_an_expired_timer(stage: Stage) -> None:
    stage.open()
    stage.give(alert_document("FIRE", [Unit("E1", 1)], turnout=60))
    right = "return document.getElementById(arguments[0]).getBoundingClientRect().right"
    timer = stage.script(right, "timer")
    assert (stage.text("timer")[:3], stage.text("age")) == ("1:0", "")
    stage.let_time_pass(60)
    assert (stage.text("timer"), stage.text("age")) == ("", "1:00 ago")
    assert stage.script(right, "age") == pytest.approx(timer, abs=2)
    assert stage.faults("FIRE") == []
    stage.let_time_pass(700)
    assert stage.text("age") == "12:40 ago"


@pytest.mark.parametrize(
    "seconds, text",
    [
        *((0, "0:00 ago"), (59, "0:59 ago"), (760, "12:40 ago"), (3599, "59:59 ago")),
        *((3600, "1:00:00 ago"), (86399, "23:59:59 ago"), (86400, ""), (2000000000, "")),
    ],
)
def test_time_since_the_alert_reads(stage: Stage, seconds: int, text: str) -> None:
    stage.open()
    assert stage.script("return turnout.age_to_text(arguments[0])", seconds) == text


def test_alert_without_a_timer_shows_the_time_since_it(stage: Stage) -> None:
    stage.open()
    stage.give(alert_document("FIRE", turnout=0, start=NOW - 125))
    assert stage.text("timer") == ""
    assert stage.text("age").startswith("2:0")


def test_clock_that_the_gateway_sets_does_not_change_the_time_since_the_alert(stage: Stage) -> None:
    stage.open()
    stage.give(alert_document("FIRE", turnout=0))
    for step in (56 * 365 * 86400, -3600):
        stage.script("clock_set_by = 1000 * arguments[0]", step)
        stage.wait_for_drawing()
        assert stage.text("age").startswith("0:0")


def test_clock_that_the_gateway_sets_does_not_change_the_timer(stage: Stage) -> None:
    stage.open()
    stage.give(alert_document("FIRE", turnout=120))
    for step in (56 * 365 * 86400, -56 * 365 * 86400):
        stage.script("clock_set_by = 1000 * arguments[0]", step)
        stage.let_time_pass(20)
        assert stage.text("timer").startswith("1:")
    stage.let_time_pass(80)
    assert (stage.text("timer"), stage.text("age")[:4]) == ("", "2:00")


def test_update_is_named_for_ten_seconds(stage: Stage) -> None:
    stage.open()
    stage.give(alert_document("FIRE"))
    assert stage.text("since").startswith("Alerted ")
    stage.let_time_pass(9)
    stage.give(alert_document("FIRE, 2ND ALARM"))
    updated = stage.script("return view.full_clock_text(new Date(1000 * arguments[0]))", NOW + 9)
    assert stage.text("since")[:-1] == f"Updated {updated}"[:-1]
    stage.let_time_pass(8)
    stage.give(alert_document("FIRE, 2ND ALARM", [Unit("E1", 1)]))
    assert stage.text("since").startswith("Updated ")
    stage.let_time_pass(2)
    assert stage.text("since").startswith("Alerted ")
    stage.give(alert_document("ANOTHER", start=NOW + 20))
    assert stage.text("since").startswith("Alerted ")
