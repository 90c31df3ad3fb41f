"""The station page in a real browser: gateway bytes in, text on the screen out."""

import pytest
from page_support import Shown

from simulation import gateway
from simulation.gateway import Unit
from simulation.places import UNIT_ADDRESS

pytestmark = [pytest.mark.once, pytest.mark.browser]


def test_detail_alert_shows_its_text_and_its_units_in_slot_order(shown: Shown) -> None:
    units = {9: Unit("M7", 1), 0: Unit("E1", 2), 4: Unit("BATTALION 3", 16)}
    shown.deliver(gateway.detail_alert("FIRE\nMAIN ST", units, turnout_end=120))
    assert shown.text("text") == "FIRE\nMAIN ST"
    assert shown.units() == ["E1", "BATTALION 3", "M7"]
    assert shown.text("idle") == ""
    assert shown.text("since").startswith("Alerted ")


def test_display_alert_shows_its_text_and_timer(shown: Shown) -> None:
    shown.deliver(gateway.display_alert("ALL CREWS", turnout=90))
    assert shown.text("text") == "ALL CREWS"
    assert shown.text("timer") in ("1:30", "1:29", "1:28")
    assert shown.units() == []


def test_new_text_of_an_alert_replaces_the_old_one(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("FIRE", {0: Unit("E1", 1)}, turnout_end=100))
    shown.deliver(gateway.detail_alert("FIRE OUT", {1: Unit("L3", 1)}))
    assert shown.text("text") == "FIRE OUT"
    assert shown.units() == ["L3"]
    # The timer runs to the new message's expiration, which was immediate.
    assert shown.text("timer") == ""


def test_map_for_a_display_alert_leaves_its_text(shown: Shown) -> None:
    """The document with the map has the text of the last detail message, which ended an alert."""
    shown.deliver(gateway.detail_alert("FIRE"))
    shown.deliver(gateway.detail_alert(""))
    shown.deliver(gateway.display_alert("ALL CREWS", turnout=90))
    shown.deliver(gateway.set_map_address("http://10.87.33.20/map.svg"))
    assert shown.station.document()["alert_area"] == ""
    assert shown.text("text") == "ALL CREWS"
    shown.screen.driver.refresh()
    shown.screen.wait_until_drawn()
    assert shown.text("text") == "ALL CREWS"
    shown.deliver(gateway.stop_turnout())
    shown.screen.driver.refresh()
    shown.screen.wait_until_drawn()
    assert shown.text("text") == "ALL CREWS"


def test_end_of_an_alert_brings_the_idle_screen_back(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("FIRE", turnout_end=100))
    shown.deliver(gateway.detail_alert(""))
    assert shown.text("alert") == ""
    assert shown.text("idle_text") == UNIT_ADDRESS
    shown.deliver(gateway.display_alert("FIRE"))
    shown.deliver(gateway.display_alert(""))
    assert shown.text("alert") == ""
    assert shown.text("idle_text") == UNIT_ADDRESS


@pytest.mark.parametrize(
    "memory",
    [
        *("5", '"x"', "[]", "null", "true", "{}", "not JSON", '{"response":5,"stopped":"x"}'),
        '{"response":null,"stopped":{},"address":{}}',
        '{"response":"[{}]","stopped":[],"address":["10.0.0.1"]}',
    ],
)
def test_page_gets_over_whatever_it_finds_in_its_memory(shown: Shown, memory: str) -> None:
    shown.deliver(gateway.detail_alert("FIRE", turnout_end=100))
    shown.deliver(gateway.stop_turnout())
    shown.script("localStorage.setItem('station_page', arguments[0])", memory)
    shown.screen.driver.refresh()
    shown.screen.wait_until_drawn()
    assert shown.text("alert") == ""
    shown.deliver(gateway.detail_alert("FIRE", turnout_end=100))
    assert shown.text("text") == "FIRE"
    shown.deliver(gateway.detail_alert(""))
    assert shown.text("alert") == ""


@pytest.mark.parametrize("text", ["FIRE \u0378 HERE", "\U00050000"])
def test_character_that_no_font_has_is_shown_by_its_code(shown: Shown, text: str) -> None:
    shown.deliver(gateway.detail_alert(text, {0: Unit("E\u0378", 1)}))
    code = "".join(f"[U+{ord(c):04X}]" if ord(c) > 255 else c for c in text)
    assert (shown.text("text"), shown.units()) == (code, ["E[U+0378]"])
    shown.deliver(gateway.detail_alert(""))
    shown.deliver(gateway.display_alert(text, flag=0))
    assert shown.text("idle_text") == code
