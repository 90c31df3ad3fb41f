"""The station page's colors, sizes and positions."""

import pytest
from page_support import Shown

from simulation import gateway, kiosk
from simulation.gateway import Unit, deliver

pytestmark = [pytest.mark.once, pytest.mark.browser]

PALETTE = [
    *("#d32f2f", "#1e63d0", "#2e7d32", "#ffd600", "#ff8f00", "#8e3cc2", "#00bcd4", "#ffffff"),
    *("#ff80ab", "#aeea00", "#8d5524", "#00796b", "#283593", "#7f1d1d", "#b0bec5", "#5f6368"),
]


def test_units_have_the_colours_of_the_palette(shown: Shown) -> None:
    units = {slot: Unit(f"U{slot + 1}", slot + 1) for slot in range(16)}
    shown.deliver(gateway.detail_alert("FIRE", units))
    tiles = shown.screen.driver.find_elements("class name", "unit")
    assert [as_hex(tile.value_of_css_property("background-color")) for tile in tiles] == PALETTE
    for tile in tiles:
        ink, ground = (
            luminance(as_hex(tile.value_of_css_property(name)))
            for name in ("color", "background-color")
        )
        assert (max(ink, ground) + 0.05) / (min(ink, ground) + 0.05) > 4.5, tile.text


def test_unit_with_a_colour_beyond_the_palette_is_grey(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("FIRE", {0: Unit("E1", 17), 1: Unit("E2", 255)}))
    tiles = shown.screen.driver.find_elements("class name", "unit")
    colors = {as_hex(tile.value_of_css_property("background-color")) for tile in tiles}
    assert colors == {"#5f6368"}


def as_hex(color: str) -> str:
    channels = color[color.index("(") + 1 : -1].split(",")[:3]
    return "#" + "".join(f"{int(channel):02x}" for channel in channels)


def luminance(color: str) -> float:
    channels = [int(color[place : place + 2], 16) / 255 for place in (1, 3, 5)]
    linear = [c / 12.92 if c <= 0.03928 else ((c + 0.055) / 1.055) ** 2.4 for c in channels]
    return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]


OVERFLOW = """
    var e = document.getElementById(arguments[0]);
    return [e.scrollWidth > e.clientWidth || e.scrollHeight > e.clientHeight,
        parseFloat(getComputedStyle(e).fontSize) / innerHeight]"""


@pytest.mark.parametrize(
    "text, smallest",
    [
        ("FIRE", 0.25),
        ("STRUCTURE FIRE\n1200 MAIN ST, CROSS OAK AVE", 0.12),
        ("W" * 300, 0.05),
        ("smoke " * 500, 0.02),
        ("w" * 3500, 0.015),
    ],
)
def test_text_is_as_large_as_fits(shown: Shown, text: str, smallest: float) -> None:
    shown.deliver(gateway.detail_alert(text, {0: Unit("E1", 1)}, turnout_end=100))
    is_cut, size = shown.script(OVERFLOW, "text")
    assert not is_cut
    assert size > smallest
    grown = shown.script(
        """
        var e = document.getElementById('text'), size = parseFloat(e.style.fontSize), cut;
        e.style.fontSize = size + 2 + 'px';
        cut = e.scrollWidth > e.clientWidth || e.scrollHeight > e.clientHeight;
        e.style.fontSize = size + 'px';
        return cut"""
    )
    assert grown or size > 0.3


def test_sixteen_units_with_the_longest_names_fit(shown: Shown) -> None:
    units = {slot: Unit("N" * 29 + f"{slot:02}", 1) for slot in range(16)}
    shown.deliver(gateway.detail_alert("FIRE", units, turnout_end=100))
    assert len(shown.units()) == 16
    is_cut, _ = shown.script(OVERFLOW, "units")
    assert not is_cut


@pytest.mark.parametrize(
    "turns, corner", [(1, "top right"), (2, "bottom right"), (3, "bottom left"), (5, "top right")]
)
def test_rotation_turns_the_whole_page_clockwise(shown: Shown, turns: int, corner: str) -> None:
    deliver(shown.station, gateway.hdtv_settings(turns))
    shown.station.wait_for_calls("qt-webkit-kiosk", 2)
    shown.deliver(gateway.detail_alert("FIRE", {0: Unit("E1", 1)}, turnout_end=100))
    assert (shown.text("text"), shown.units()) == ("FIRE", ["E1"])
    # Where the alert's top left corner, its first unit, has moved.
    place = shown.script(
        """
        var box = document.querySelector('.unit').getBoundingClientRect();
        return [box.top + box.bottom < innerHeight ? 'top' : 'bottom',
            box.left + box.right < innerWidth ? 'left' : 'right'].join(' ')"""
    )
    assert place == corner
    page = shown.script(
        """
        var box = document.getElementById('page').getBoundingClientRect();
        return [box.left, box.top, box.right, box.bottom].map(Math.round)"""
    )
    assert page == [0, 0, *kiosk.SIZE]
    is_cut, size = shown.script(OVERFLOW, "text")
    assert not is_cut and size > 0.15
