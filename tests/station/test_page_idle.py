"""The station page while nothing happens."""

import pytest
from page_stage import NOW, Stage, alert_document
from page_support import Shown, show
from support import StationMaker

from simulation import gateway
from simulation.places import UNIT_ADDRESS
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


DRIFT = """
    var block = document.getElementById('idle_block'), x = innerWidth * 0.035, y = innerHeight * 0.035;
    var outside = 0, s, box;
    for (s = 0; s < 86400; s += 97) {
        view.drift(s);
        box = block.getBoundingClientRect();
        if (box.left < x - 1 || box.top < y - 1 || box.right > innerWidth - x + 1 ||
                box.bottom > innerHeight - y + 1) { outside += 1; }
    }
    return outside;"""

SCREENS = [(640, 480, ""), (1920, 1080, ""), (1080, 1920, ""), (1280, 720, "?rotation=90")]
NOTICES = [
    "10.87.33.50",
    "No Network Connection",
    "Drill at 10",
    "w" * 3500,
    "drill at ten " * 250,
    "A\n" * 40,
]


def idle_document(text: str) -> bytes:
    return alert_document(text, kind="display_alert", flag=0)


@pytest.mark.parametrize("screen", SCREENS, ids=str)
def test_notice_of_any_length_stays_in_the_safe_area_with_the_clock(
    stage: Stage, screen: tuple[int, int, str]
) -> None:
    stage.open(*screen)
    stage.give(alert_document("FIRE"))
    for notice in NOTICES:
        stage.give(idle_document(notice))
        count = int(stage.text("idle_pages").partition("/")[2] or 1)
        for _ in range(min(count, 3)):
            stage.wait_for_drawing()
            assert stage.faults() == []
            assert stage.script(DRIFT) == 0
            stage.let_time_pass(8)


def test_long_notice_is_shown_page_by_page(stage: Stage) -> None:
    stage.open()
    stage.give(idle_document("drill at ten " * 40))
    places = set()
    count = int(stage.text("idle_pages").partition("/")[2])
    for _ in range(count):
        places.add(stage.script("return document.getElementById('idle_text').style.top"))
        stage.let_time_pass(8)
    assert len(places) == count > 1


def test_last_alert_is_named_for_fifteen_minutes(stage: Stage) -> None:
    stage.open()
    stage.give(alert_document("STRUCTURE FIRE\n1200 MAIN ST"))
    stage.give(idle_document("10.87.33.50"))
    stage.wait_for_drawing()
    began = stage.script("return view.clock_text(new Date(arguments[0] * 1000))", NOW)
    assert stage.text("idle_last") == f"Last {began} STRUCTURE FIRE"
    assert stage.faults() == []
    stage.let_time_pass(14 * 60)
    assert stage.text("idle_last") != ""
    stage.let_time_pass(70)
    assert stage.text("idle_last") == ""


def test_last_alert_with_a_long_line_stays_on_one(stage: Stage) -> None:
    stage.open()
    stage.give(alert_document("smoke " * 200))
    stage.give(idle_document("10.87.33.50"))
    stage.wait_for_drawing()
    assert stage.faults() == []
    high = "return document.getElementById('idle_last').offsetHeight / innerHeight"
    assert stage.script(high) < 0.09


def test_last_alert_is_still_named_by_a_restarted_browser(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("STRUCTURE FIRE\nMAIN ST"))
    shown.deliver(gateway.detail_alert(""))
    wait_for(lambda: shown.text("idle_last").endswith(" STRUCTURE FIRE"), "the last alert")
    shown.screen.driver.refresh()
    shown.screen.wait_until_drawn()
    wait_for(lambda: shown.text("idle_last").endswith(" STRUCTURE FIRE"), "the last alert")


def test_text_for_an_idle_station_is_shown_until_the_next_document(shown: Shown) -> None:
    shown.deliver(gateway.display_alert("Drill at 10", flag=0))
    assert shown.text("idle_text") == "Drill at 10"
    shown.deliver(gateway.detail_alert(""))
    assert shown.text("idle_text") == UNIT_ADDRESS


def test_clock_has_its_room_before_anything_is_known(stage: Stage) -> None:
    stage.open()
    stage.wait_for_drawing()
    assert stage.faults() == []
    assert stage.script(DRIFT) == 0


def test_new_notice_begins_with_its_first_page(stage: Stage) -> None:
    stage.open()
    stage.give(idle_document("drill at ten " * 200))
    stage.let_time_pass(17)
    stage.give(idle_document("drill at six " * 200))
    assert stage.text("idle_pages").startswith("1/")


def test_last_alert_is_named_by_the_first_line_that_says_something(stage: Stage) -> None:
    stage.open()
    stage.give(alert_document("\r\n  FIRE\rMAIN ST"))
    stage.give(idle_document("10.87.33.50"))
    stage.wait_for_drawing()
    assert stage.text("idle_last").endswith(" FIRE")
