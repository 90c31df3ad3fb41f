"""The station page without updates, and with a clock that jumps."""

import pytest
from page_support import Shown

from simulation import gateway
from simulation.gateway import deliver
from simulation.station import DOCUMENT
from simulation.waiting import wait_for

pytestmark = [pytest.mark.once, pytest.mark.browser]


@pytest.mark.parametrize("part", ["", '[{"alert_type":"hdtv_alert", "show_tu'])
def test_document_that_is_being_rewritten_leaves_what_is_shown(shown: Shown, part: str) -> None:
    shown.deliver(gateway.detail_alert("FIRE"))
    shown.station.path(DOCUMENT).write_text(part)
    shown.let_time_pass(11)
    wait_for(lambda: shown.text("mark").startswith("no news since "), "the mark")
    assert shown.text("text") == "FIRE"


def test_no_mark_before_ten_seconds(shown: Shown) -> None:
    shown.station.path(DOCUMENT).unlink()
    shown.let_time_pass(5)
    shown.wait_for_drawings()
    assert shown.text("mark") == ""


def test_web_server_that_goes_down_and_comes_back(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("FIRE"))
    shown.server.kill()
    deliver(shown.station, gateway.detail_alert("FIRE, 2ND ALARM"))
    shown.let_time_pass(11)
    wait_for(lambda: shown.text("mark").startswith("no news since "), "the mark")
    assert shown.text("text") == "FIRE"
    shown.station.start_web_server()
    shown.screen.wait_until_drawn()
    assert shown.text("text") == "FIRE, 2ND ALARM"
    wait_for(lambda: shown.text("mark") == "", "no mark")


def test_gateway_that_sets_the_clock_back_stops_nothing(shown: Shown) -> None:
    shown.script("Date.now = function () { return 1000; }")
    shown.deliver(gateway.detail_alert("FIRE"))
    assert shown.text("text") == "FIRE"
