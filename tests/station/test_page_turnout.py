"""The turnout timer on the station page."""

import pytest
from page_support import Shown

from simulation import gateway
from simulation.gateway import Unit, deliver
from simulation.station import UNIT_ADDRESS
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
