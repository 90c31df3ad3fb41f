"""Maps on the station page."""

from pathlib import Path

import pytest
from page_stage import Stage, alert_document
from page_support import Shown

from simulation import gateway, kiosk
from simulation.waiting import wait_for

pytestmark = [pytest.mark.once, pytest.mark.browser]


def test_picture_of_a_map_is_shown_beside_the_text(shown: Shown) -> None:
    with gateway.web_server(shown.station, Path(kiosk.__file__).with_name("demo")):
        shown.deliver(gateway.detail_alert("FIRE", turnout_end=100))
        shown.deliver(gateway.set_map_address("http://10.87.33.20/map.svg?incident=1"))
        shown.screen.wait_for_map()
        assert shown.text("text") == "FIRE"
        text, picture = (
            shown.script("return document.querySelector(arguments[0]).getBoundingClientRect()", x)
            for x in ("#text", "#map img")
        )
        assert text["right"] <= picture["left"]
        assert picture["width"] / picture["height"] == pytest.approx(640 / 560, rel=0.01)


def test_page_of_a_map_is_shown_without_its_scripts(shown: Shown, tmp_path: Path) -> None:
    (tmp_path / "map.html").write_text(
        "<h1>Map</h1><script>document.title = 'ran'; new Image().src = '/ran'</script>"
    )
    with gateway.web_server(shown.station, tmp_path) as requests:
        shown.deliver(gateway.detail_alert("FIRE"))
        shown.deliver(gateway.set_map_address("http://10.87.33.20/map.html"))
        driver = shown.screen.driver
        wait_for(lambda: driver.find_elements("tag name", "iframe"), "the frame")
        driver.switch_to.frame(0)
        wait_for(lambda: driver.find_elements("tag name", "h1"), "the map's page")
        driver.switch_to.default_content()
        # As a picture, by the web server's check, and as a page.
        assert requests.count("/map.html") == 3
        assert "/ran" not in requests


@pytest.mark.parametrize("name", ["nobody-listens", "missing", "error"])
def test_map_that_cannot_be_had_leaves_the_text_all_the_width(
    shown: Shown, tmp_path: Path, name: str
) -> None:
    (tmp_path / "text").write_text("no page")
    with gateway.web_server(shown.station, tmp_path):
        shown.deliver(gateway.detail_alert("FIRE"))
        width = "return document.getElementById('text').offsetWidth"
        whole = shown.script(width)
        port = ":81" if name == "nobody-listens" else ""
        shown.deliver(gateway.set_map_address(f"http://10.87.33.20{port}/{name}"))
        shown.screen.wait_for_map()
        shown.wait_for_drawings()
        assert shown.text("text") == "FIRE"
        assert shown.script(width) == whole
        assert shown.script("return document.getElementsByTagName('iframe').length") == 0


def has_map(stage: Stage) -> bool:
    stage.wait_for_drawing()
    return bool(stage.script("return document.getElementById('map').style.display !== 'none'"))


def test_map_appears_once_it_is_there(stage: Stage) -> None:
    stage.open()
    stage.give(alert_document("FIRE", address=stage.map_address + "?wait"))
    assert not has_map(stage)
    stage.release()
    stage.wait_for_map()
    assert has_map(stage)


def test_map_is_kept_for_three_seconds_across_an_update(stage: Stage) -> None:
    stage.open()
    stage.give(alert_document("FIRE", address=stage.map_address))
    stage.wait_for_map()
    picture = "return document.querySelector('#map img') === window.kept"
    stage.script("window.kept = document.querySelector('#map img')")
    stage.give(alert_document("FIRE, 2ND ALARM"))
    stage.let_time_pass(2)
    assert has_map(stage)
    stage.give(alert_document("FIRE, 2ND ALARM", address=stage.map_address))
    stage.let_time_pass(4)
    assert has_map(stage) and stage.script(picture)
    stage.give(alert_document("FIRE, 3RD ALARM"))
    stage.let_time_pass(4)
    assert not has_map(stage)


def test_map_of_one_alert_is_not_shown_with_the_next(stage: Stage) -> None:
    stage.open()
    stage.give(alert_document("FIRE", address=stage.map_address))
    stage.wait_for_map()
    stage.give(alert_document("FLOOD", start=1_700_000_000))
    assert not has_map(stage)
