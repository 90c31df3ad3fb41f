"""The station page while nothing happens."""

import pytest
from page_support import Shown, show
from support import StationMaker

from simulation import gateway
from simulation.station import UNIT_ADDRESS
from simulation.waiting import wait_for

pytestmark = [pytest.mark.once, pytest.mark.browser]


def test_idle_station_shows_its_address_and_the_time(shown: Shown) -> None:
    assert shown.text("idle_text") == UNIT_ADDRESS
    assert shown.text("idle_clock") in shown.script(
        "var d = new Date(), now = view.clock_text(d);"
        "return [now, view.clock_text(new Date(d.getTime() - 60000))];"
    )
    assert shown.text("alert") == ""


def test_idle_station_without_a_network_says_so(make_station: StationMaker) -> None:
    for shown in show(make_station(address=None)):
        assert shown.text("idle_text") == "No Network Connection"


def test_idle_screen_does_not_stand_still(shown: Shown) -> None:
    place = "var s = document.getElementById('idle_block').style; return s.left + s.top"
    before = shown.script(place)
    wait_for(lambda: shown.script(place) != before, "a move")


def test_idle_block_stays_on_the_screen_all_day(shown: Shown) -> None:
    outside = shown.script(
        """
        var block = document.getElementById('idle_block'), outside = 0, s, box;
        for (s = 0; s < 86400; s += 97) {
            view.drift(s);
            box = block.getBoundingClientRect();
            if (box.left < 0 || box.top < 0 || box.right > innerWidth + 1 ||
                    box.bottom > innerHeight + 1) { outside += 1; }
        }
        return outside;"""
    )
    assert outside == 0


def test_text_for_an_idle_station_is_shown_until_the_next_document(shown: Shown) -> None:
    shown.deliver(gateway.display_alert("Drill at 10", flag=0))
    assert shown.text("idle_text") == "Drill at 10"
    shown.deliver(gateway.detail_alert(""))
    assert shown.text("idle_text") == UNIT_ADDRESS
