"""Maps on the station page."""

from pathlib import Path

import pytest
from page_support import Shown

from simulation import gateway, kiosk
from simulation.waiting import wait_for

pytestmark = [pytest.mark.once, pytest.mark.browser]


def test_picture_of_a_map_is_shown_beside_the_text(shown: Shown) -> None:
    with gateway.web_server(shown.station, Path(kiosk.__file__).with_name("demo")):
        shown.deliver(gateway.detail_alert("FIRE", turnout_end=100))
        shown.deliver(gateway.set_map_address("http://10.87.33.20/map.svg?incident=1"))
        shown.screen.wait_for_map()
        wait_for(
            lambda: shown.script("var i = document.images[0]; return i.naturalWidth * i.width"),
            "the map",
        )
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
        assert requests.count("/map.html") == 2  # as a picture, then as a page
        assert "/ran" not in requests


def test_map_that_cannot_be_had_leaves_the_text(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("FIRE"))
    shown.deliver(gateway.set_map_address("http://10.87.33.20/nobody-listens"))
    assert shown.text("text") == "FIRE"
