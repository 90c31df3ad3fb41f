"""The station page in a real browser: gateway bytes in, what the screen says out."""

import contextlib
import os
import socket
import subprocess
import time
import urllib.error
import urllib.request
import zlib
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import pytest
from conftest import StationMaker
from test_simulated_station import run_command

from station import gateway, kiosk
from station.forward import Forward
from station.gateway import Unit, deliver
from station.screen import Screen
from station.station import (
    DOCUMENT,
    LIVENESS_FILE,
    UNIT_ADDRESS,
    WEB_PORT,
    Process,
    Station,
    dying_with_starter,
)
from station.waiting import DEADLINE, wait_for

pytestmark = pytest.mark.once

BUDGET = 900  # kicks, one a second
OLD = 300  # seconds, of a liveness file

PALETTE = [
    *("#d32f2f", "#1e63d0", "#2e7d32", "#ffd600", "#ff8f00", "#8e3cc2", "#00bcd4", "#ffffff"),
    *("#ff80ab", "#aeea00", "#8d5524", "#00796b", "#283593", "#7f1d1d", "#b0bec5", "#5f6368"),
]


@dataclass
class Shown:
    """A station whose browser shows the page."""

    station: Station
    server: Process
    screen: Screen

    def deliver(self, message: bytes) -> None:
        deliver(self.station, message)
        self.screen.wait_until_drawn()

    def script(self, text: str, *arguments: object) -> Any:
        return self.screen.driver.execute_script(text, *arguments)

    def text(self, name: str) -> str:
        return self.screen.text(name)

    def units(self) -> list[str]:
        tiles = self.screen.driver.find_elements("class name", "unit")
        return [tile.text for tile in tiles]

    def let_time_pass(self, seconds: float) -> None:
        """For the page, whose clock from now on is so much ahead."""
        self.script(
            "var real = performance.now.bind(performance), ahead = 1000 * arguments[0];"
            "performance.now = function () { return real() + ahead; };",
            seconds,
        )

    def wait_for_drawings(self, count: int = 4) -> None:
        """Until the page has drawn so many times more."""
        self.script(
            "window.drawings = 0; var drift = view.drift;"
            "view.drift = function (seconds) { window.drawings += 1; drift(seconds); };"
        )
        wait_for(lambda: self.script("return window.drawings") >= count, f"{count} drawings")

    def processor_seconds(self) -> float:
        """What the browser has used of the processor so far."""
        ticks = 0
        for process in self.station.path("/proc").iterdir():
            with contextlib.suppress(OSError):
                name, _, fields = (process / "stat").read_text().rpartition(") ")
                if name.endswith("(chromium"):
                    ticks += int(fields.split()[11])
        return ticks / os.sysconf("SC_CLK_TCK")


@pytest.fixture
def shown(make_station: StationMaker) -> Iterator[Shown]:
    yield from show(make_station())


def show(
    station: Station, environment: dict[str, str] | None = None, browser: str = "kiosk"
) -> Iterator[Shown]:
    server = station.start_web_server()
    station.use_real_browser(browser)
    station.start_service(environment=environment)
    with Screen(station) as screen:
        screen.wait_until_drawn()
        yield Shown(station, server, screen)


# Idle.


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


# Alerts.


def test_detail_alert_shows_its_text_and_its_units_in_slot_order(shown: Shown) -> None:
    units = {9: Unit("M7", 1), 0: Unit("E1", 2), 4: Unit("BATTALION 3", 16)}
    shown.deliver(gateway.detail_alert("FIRE\nMAIN ST", units, turnout_end=120))
    assert shown.text("text") == "FIRE\nMAIN ST"
    assert shown.units() == ["E1", "BATTALION 3", "M7"]
    assert shown.text("idle") == ""
    assert shown.text("since").startswith("alerted ")


def test_display_alert_shows_its_text_and_timer(shown: Shown) -> None:
    shown.deliver(gateway.display_alert("ALL CREWS", turnout=90))
    assert shown.text("text") == "ALL CREWS"
    assert shown.text("timer") in ("1:30", "1:29", "1:28")
    assert shown.units() == []


def test_display_alert_with_no_time_has_no_timer(shown: Shown) -> None:
    shown.deliver(gateway.display_alert("ALL CREWS", turnout=0))
    assert shown.text("text") == "ALL CREWS"
    assert shown.text("timer") == ""


def test_hdtv_alert_gives_the_timer_more_time(shown: Shown) -> None:
    shown.deliver(gateway.display_alert("ALL CREWS", turnout=0))
    deliver(shown.station, gateway.hdtv_alert("", 60))
    shown.deliver(gateway.display_alert("ALL CREWS AGAIN"))
    assert shown.text("timer") in ("1:00", "0:59", "0:58")


def test_new_text_of_an_alert_replaces_the_old_one(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("FIRE", {0: Unit("E1", 1)}, turnout_end=100))
    shown.deliver(gateway.detail_alert("FIRE OUT", {1: Unit("L3", 1)}))
    assert shown.text("text") == "FIRE OUT"
    assert shown.units() == ["L3"]
    # The timer runs to the new message's expiration, which was at once.
    assert shown.text("timer") == ""


def test_end_of_an_alert_brings_the_idle_screen_back(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("FIRE", turnout_end=100))
    shown.deliver(gateway.detail_alert(""))
    assert shown.text("alert") == ""
    assert shown.text("idle_text") == UNIT_ADDRESS
    shown.deliver(gateway.display_alert("FIRE"))
    shown.deliver(gateway.display_alert(""))
    assert shown.text("alert") == ""
    assert shown.text("idle_text") == UNIT_ADDRESS


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
        # A clock set back, and times that wrap.
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


@pytest.fixture(scope="module")
def script_page() -> Iterator[Shown]:
    """One page for all tests that only call its scripts."""
    with Station() as station:
        station.write_config("{}")
        yield from show(station)


def test_timer_past_zero_looks_different(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("FIRE", turnout_end=100, turnout_zero=1))
    color = "return getComputedStyle(document.getElementById('timer')).backgroundColor"
    wait_for(lambda: shown.script(color) == "rgb(211, 47, 47)", "red")
    assert shown.text("timer").startswith("+0:0") or shown.text("timer") == "0:00"


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


# Size and place.

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
    # Where the upper left corner of the alert, its first unit, has gone.
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


# Maps.


def test_picture_of_a_map_is_shown_beside_the_text(shown: Shown) -> None:
    with gateway.web_server(shown.station, Path(kiosk.__file__).parent):
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


# What a document cannot do.

HOSTILE_TEXT = "<script>hacked=1</script><img src=x onerror=hacked=1>&lt;i&gt;"
HOSTILE_NAME = "<img src=x onerror=hacked=1>"


def test_hostile_text_and_names_stay_text(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert(HOSTILE_TEXT, {0: Unit(HOSTILE_NAME, 1)}))
    assert shown.text("text") == HOSTILE_TEXT
    assert shown.units() == [HOSTILE_NAME]
    shown.deliver(gateway.detail_alert(""))
    shown.deliver(gateway.display_alert(HOSTILE_TEXT, flag=0))
    assert shown.text("idle_text") == HOSTILE_TEXT
    assert shown.script("return typeof hacked") == "undefined"


@pytest.mark.parametrize(
    "address",
    [
        "javascript:hacked=1",
        " javascript:hacked=1",
        "JavaScript:hacked=1//http://",
        "data:text/html,<script>parent.hacked=1</script>",
        "file:///etc/passwd",
        "//10.87.33.20/map.svg",
        "map.svg",
    ],
)
def test_map_address_that_is_not_of_the_web_is_not_followed(shown: Shown, address: str) -> None:
    shown.deliver(gateway.detail_alert("FIRE"))
    shown.deliver(gateway.set_map_address(address))
    assert shown.script("return document.querySelectorAll('img, iframe').length") == 0
    assert shown.script("return typeof hacked") == "undefined"
    assert shown.text("text") == "FIRE"


def test_map_address_cannot_leave_its_place(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("FIRE"))
    shown.deliver(gateway.set_map_address("http://x/'><script>hacked=1</script>"))
    assert shown.script("return document.querySelectorAll('#map > *').length") == 1
    assert shown.script("return typeof hacked") == "undefined"


def test_quotation_mark_in_a_name_keeps_the_last_good_document(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("FIRE", {0: Unit("E1", 1)}))
    deliver(shown.station, gateway.detail_alert("MORE", {0: Unit('"}],x', 1)}))
    shown.let_time_pass(11)
    wait_for(lambda: shown.text("mark").startswith("no news since "), "the mark")
    assert (shown.text("text"), shown.units()) == ("FIRE", ["E1"])
    shown.deliver(gateway.detail_alert("ALL OUT", {0: Unit("E1", 1)}))
    assert shown.text("text") == "ALL OUT"
    wait_for(lambda: shown.text("mark") == "", "no mark")


@pytest.mark.parametrize(
    "text, seen",
    [
        ('AT&T <b> "x" &amp;lt; \\ / é €', 'AT&T <b> "x" &amp;lt; \\ / é €'),
        (b"caf\xe9 \xfc", "café ü"),
        (b"a\x01b\x1fc\x7f", "a b c"),
    ],
)
def test_text_is_shown_as_it_was_meant(shown: Shown, text: str | bytes, seen: str) -> None:
    shown.deliver(gateway.detail_alert(text))
    assert shown.text("text").rstrip("\x7f") == seen


def test_name_cut_within_a_character_spoils_no_other_text(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("É", {0: Unit("x" * 30 + "É", 1)}))
    assert shown.text("text") == "É"


@pytest.mark.parametrize(
    "text",
    [
        "",
        '[{"alert_type":"hdtv_alert", "show_turnout_ti',
        "null",
        "[]",
        "[null]",
        '[{"alert_type":"hdtv_alert"}]',
        "{}{}",
    ],
)
def test_page_takes_no_document_that_is_not_one(script_page: Shown, text: str) -> None:
    assert script_page.script("return alert_document.read(arguments[0])", text) is None


@pytest.mark.parametrize(
    "member, value",
    [
        ("units", "5"),
        ("units", "[5]"),
        ("units", '[{"unit":"E1","color":5}]'),
        ("alert_area", "5"),
        ("alert_time", '"soon"'),
        ("alert_time", '"-1"'),
        ("map_url", "null"),
    ],
)
def test_page_takes_no_document_with_a_member_of_another_kind(
    script_page: Shown, member: str, value: str
) -> None:
    text = script_page.station.document_text()
    good = '"units":[]' if member == "units" else text[text.index(f'"{member}":') :].split(",")[0]
    bad = text.replace(good, f'"{member}":{value}')
    assert bad != text
    assert script_page.script("return alert_document.read(arguments[0])", text) is not None
    assert script_page.script("return alert_document.read(arguments[0])", bad) is None


# Trouble.


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


# The liveness file.


def test_page_keeps_the_liveness_file_fresh(shown: Shown) -> None:
    file = shown.station.path(LIVENESS_FILE)
    wait_for(file.exists, "the liveness file")
    os.utime(file, (1, 1))
    shown.let_time_pass(31)
    wait_for(lambda: file.stat().st_mtime > 1, "a fresh liveness file")


def test_page_does_not_touch_the_liveness_file_more_often_than_needed(shown: Shown) -> None:
    file = shown.station.path(LIVENESS_FILE)
    wait_for(file.exists, "the liveness file")
    os.utime(file, (1, 1))
    shown.wait_for_drawings()
    assert file.stat().st_mtime == 1


# The page's clock runs ahead with each look, so a page that drew once more would report at once. What
# it does last, in the middle of a drawing, is to touch the file by itself.
HANG = """
    var t = 0;
    performance.now = function () { t += 31000; return t; };
    view.drift = function () {
        var request = new XMLHttpRequest();
        request.open('POST', 'alive.cgi', false);
        request.setRequestHeader('X-Station-Page', 'alive');
        request.send();
        for (;;) {}
    }"""


def test_page_that_hangs_lets_the_liveness_file_grow_old(shown: Shown) -> None:
    file = shown.station.path(LIVENESS_FILE)
    wait_for(file.exists, "the liveness file")
    os.utime(file, (1, 1))
    shown.script(HANG)
    wait_for(lambda: file.stat().st_mtime > 1, "the page's last sign")
    os.utime(file, (1, 1))
    # While it hangs it works for nothing, and as long as six drawings would take.
    before = shown.processor_seconds()
    wait_for(lambda: shown.processor_seconds() > before + 1.5, "a second and a half of hanging")
    assert file.stat().st_mtime == 1


def test_page_that_hears_nothing_does_not_say_that_it_is_alive(shown: Shown) -> None:
    file = shown.station.path(LIVENESS_FILE)
    wait_for(file.exists, "the liveness file")
    # Every poll is refused from now on, while reports would still arrive.
    shown.station.path(DOCUMENT).unlink()
    shown.let_time_pass(31)
    os.utime(file, (1, 1))
    shown.wait_for_drawings()
    assert file.stat().st_mtime == 1


def test_document_that_cannot_be_read_is_no_reason_for_a_reset(shown: Shown) -> None:
    file = shown.station.path(LIVENESS_FILE)
    wait_for(file.exists, "the liveness file")
    shown.station.path(DOCUMENT).write_text('[{"alert_type":"hdtv_alert", "map_url":"a"b"')
    shown.let_time_pass(31)
    os.utime(file, (1, 1))
    wait_for(lambda: file.stat().st_mtime > 1, "a fresh liveness file")


def request(port: int, path: str, **settings: Any) -> int:
    address = f"http://127.0.0.1:{port}/station_web/{path}"
    try:
        with urllib.request.urlopen(urllib.request.Request(address, **settings)) as answer:
            return int(answer.status)
    except urllib.error.HTTPError as error:
        return error.code


@pytest.mark.parametrize(
    "settings",
    [
        {"method": "POST", "headers": {"Host": "127.0.0.1"}},
        {"method": "GET", "headers": {"Host": "127.0.0.1", "X-Station-Page": "alive"}},
        {"method": "POST", "headers": {"X-Station-Page": "alive"}},
    ],
    ids=["another page", "a link", "a copy of the page elsewhere"],
)
def test_only_the_televisions_own_page_is_taken_for_alive(
    station: Station, settings: dict[str, Any]
) -> None:
    station.start_web_server()
    with Forward(station, WEB_PORT) as forward:
        assert request(forward.port, "alive.cgi", **settings) == 403
        assert not station.path(LIVENESS_FILE).exists()
        headers = {"Host": "127.0.0.1", "X-Station-Page": "alive"}
        assert request(forward.port, "alive.cgi", method="POST", headers=headers) == 204
        assert station.path(LIVENESS_FILE).exists()


def answer_to(station: Station, *parts: bytes) -> bytes:
    """What the web server says before it closes the connection. Of the parts all but the first are
    sent as long as it listens."""
    with station.in_unit():
        connection = socket.create_connection(("127.0.0.1", WEB_PORT), timeout=DEADLINE)
    with connection:
        answer = b""
        with contextlib.suppress(ConnectionResetError, BrokenPipeError):
            for part in parts:
                connection.sendall(part)
        with contextlib.suppress(ConnectionResetError):
            while piece := connection.recv(4096):
                answer += piece
    return answer


SIGN = b"POST /station_web/alive.cgi HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Station-Page: alive\r\n"


@pytest.mark.parametrize(
    "parts, status",
    [
        ((SIGN + b"Content-Length: 1000000000\r\n\r\n", b"x" * 4096), b"413"),
        ((SIGN + b"Transfer-Encoding: chunked\r\n\r\n", *[b"1000\r\n" + b"x" * 4096] * 9), b""),
        ((SIGN + b"Content-Length: 100\r\n\r\n", b"x" * 50), b""),
        ((SIGN + b"X: " + b"x" * 5000 + b"\r\n\r\n",), b"431"),
        ((SIGN,), b""),
    ],
    ids=["large", "endless", "never complete", "large header", "endless header"],
)
def test_sign_of_life_that_is_no_small_request_is_none(
    station: Station, parts: tuple[bytes, ...], status: bytes
) -> None:
    station.start_web_server()
    answer = answer_to(station, *parts)
    assert b" 204 " not in answer
    assert status in answer[:20]
    assert not station.path(LIVENESS_FILE).exists()
    assert b" 204 " in answer_to(station, SIGN + b"Content-Length: 0\r\nConnection: close\r\n\r\n")


def test_page_in_another_pages_frame_shows_nothing(station: Station, tmp_path: Path) -> None:
    """Nor does it say that it is alive."""
    (tmp_path / "frame.html").write_text(
        "<iframe id=own src='own.html'></iframe>"
        "<iframe id=page src='http://127.0.0.1/station_web/'></iframe>"
    )
    (tmp_path / "own.html").write_text("<p id=idle_text>own")
    station.start_web_server()
    station.use_real_browser()
    with gateway.web_server(station, tmp_path) as requests, Screen(station) as screen:
        station.start_service()
        wait_for(station.path(LIVENESS_FILE).exists, "the page by itself")
        deliver(station, gateway.set_page_address(f"http://{gateway.GATEWAY}/frame.html"))
        station.wait_for_calls("qt-webkit-kiosk", 2)
        wait_for(lambda: "/own.html" in requests, "the other page")
        station.path(LIVENESS_FILE).unlink()
        driver = screen.driver
        loaded = "return document.readyState === 'complete' && frames.length === 2"
        wait_for(lambda: driver.execute_script(loaded), "both frames")
        shown = {}
        for frame in ("own", "page"):
            driver.switch_to.frame(frame)
            shown[frame] = len(driver.find_elements("id", "idle_text"))
            driver.switch_to.default_content()
        assert shown == {"own": 1, "page": 0}
        assert not station.path(LIVENESS_FILE).exists()


@pytest.mark.slow
def test_page_that_hangs_ends_the_watchdog_kicks(tmp_path: Path) -> None:
    """From end to end, with a 200 times as fast a clock for the service: while the page lives its
    file and the gateway's messages keep the kicks coming; it hangs, the file grows old, the messages
    no longer count, and the budget runs out."""
    faster = {
        "LD_PRELOAD": "/usr/$LIB/faketime/libfaketime.so.1",
        "FAKETIME": "+0 x200",
    }
    browser = tmp_path / "browser"  # without the service's clock
    browser.write_text('#!/bin/sh\nunset LD_PRELOAD FAKETIME\nexec /run/station/bin/kiosk "$@"\n')
    browser.chmod(0o755)
    with Station(programs={"browser": browser}) as station:
        station.write_config("{}")
        watch_the_kicks_end(station, faster)


def watch_the_kicks_end(station: Station, environment: dict[str, str]) -> None:
    for shown in show(station, environment, browser="browser"):
        shown.script(
            "var real = performance.now.bind(performance);"
            # A leap every 900 ms, three minutes for the service, makes the next report due.
            "performance.now = function () {"
            "    return real() + 31000 * Math.floor(real() / 900);"
            "}"
        )
        kicks, last = 0, time.monotonic()

        def count_kicks() -> int:
            nonlocal kicks, last
            deliver(shown.station, b"\0")
            if new := len(shown.station.read_kicks()):
                kicks, last = kicks + new, time.monotonic()
            return kicks

        wait_for(lambda: count_kicks() > BUDGET + OLD, "more than one budget's kicks")
        shown.script("view.drift = function () { for (;;) {} }")
        kicks = 0
        wait_for(lambda: count_kicks() and time.monotonic() - last > 1, "the last kick", 60)
        assert BUDGET <= kicks < BUDGET + 2 * OLD


# The web server.


def test_document_is_never_kept_by_a_browser(station: Station) -> None:
    station.start_web_server()
    station.path(DOCUMENT).write_text("[]")
    with Forward(station, WEB_PORT) as forward:
        address = f"http://127.0.0.1:{forward.port}/station_web/alerts.json"
        with urllib.request.urlopen(address) as answer:
            assert answer.headers["Cache-Control"] == "no-store"
            assert answer.headers["ETag"] is None
            assert answer.read() == b"[]"
        # Rewritten within the same second, and of the same length.
        station.path(DOCUMENT).write_text("{}")
        with urllib.request.urlopen(address) as answer:
            assert answer.read() == b"{}"


def test_web_server_offers_nothing_but_the_page(station: Station) -> None:
    station.start_web_server()
    with Forward(station, WEB_PORT) as forward:
        assert request(forward.port, "") == 200
        assert request(forward.port, "current_gateway") == 404
        station.path("/dev/shm/current_gateway").write_text("{}")
        assert request(forward.port, "current_gateway") == 200
        for path in (
            "lighttpd.conf",
            "../config.json",
            "..%2fconfig.json",
            "../dev/shm/alerts.json",
        ):
            assert request(forward.port, path) in (400, 403, 404), path


def test_web_server_is_not_to_be_reached_from_outside(station: Station) -> None:
    station.start_web_server()
    with pytest.raises(ConnectionRefusedError):
        gateway.connect(station, port=WEB_PORT)


# The demonstration's pictures and window.


def pixels(picture: Path) -> set[int]:
    """The values that occur in a PNG's bytes, the rows' filter marks aside."""
    content, data, place = picture.read_bytes(), b"", 8
    while place < len(content):
        size = int.from_bytes(content[place : place + 4], "big")
        if content[place + 4 : place + 8] == b"IDAT":
            data += content[place + 8 : place + 8 + size]
        place += 12 + size
    rows, width = zlib.decompress(data), 1 + 3 * kiosk.SIZE[0]
    return {value for row in range(kiosk.SIZE[1]) for value in rows[row * width + 1 :][: width - 1]}


def test_pictures_show_what_a_viewer_sees(tmp_path: Path) -> None:
    name = f"pictures-{os.getpid()}"
    result = run_command("--once", "--pause", "0", "--name", name, "--pictures", str(tmp_path))
    assert result.returncode == 0, result.stdout + result.stderr
    pictures = sorted(tmp_path.iterdir())
    assert len(pictures) == 16
    for picture in pictures:
        assert picture.read_bytes()[16:24] == b"\0\0\x05\0\0\0\x02\xd0"  # 1280 by 720
    by_step = {picture.name[3:].split("-")[0] + picture.name[:2]: picture for picture in pictures}
    assert pixels(by_step["roll02"]) == {0}  # the television is in standby
    other_input = by_step["somebody14"].read_bytes()
    assert by_step["end16"].read_bytes() == other_input
    assert len(pixels(by_step["somebody14"])) > 2
    alerts = [
        by_step[x].read_bytes() for x in ("detail09", "map10", "the11", "stop12", "display15")
    ]
    assert len({other_input, *alerts}) == 6


def test_browser_opens_a_window_where_there_is_a_display(make_station: StationMaker) -> None:
    read, write = os.pipe()
    command = ["Xvfb", "-displayfd", str(write), "-screen", "0", "1400x900x24", "-nolisten", "tcp"]
    with subprocess.Popen(
        # By a signal that leaves it the time to take its files away.
        dying_with_starter(command, "TERM"),
        pass_fds=[write],
        stderr=subprocess.DEVNULL,
    ) as server:
        os.close(write)
        try:
            display = ":" + os.read(read, 16).decode().strip()
            for shown in show(make_station(has_display=True), {"DISPLAY": display}):
                shown.deliver(gateway.detail_alert("FIRE"))
                assert shown.text("text") == "FIRE"
                assert shown.script("return [outerWidth, outerHeight]") == list(kiosk.SIZE)
        finally:
            os.close(read)
            server.terminate()


def test_window_without_a_display_is_refused() -> None:
    result = subprocess.run(
        ["/usr/bin/python3", "-m", "station", "--window"],
        cwd=Path(kiosk.__file__).parents[1],
        env={key: value for key, value in os.environ.items() if key != "DISPLAY"},
        capture_output=True,
        text=True,
    )
    assert result.returncode == 2
    assert "--window needs a display, and DISPLAY names none" in result.stderr


def test_proxy_settings_become_the_browsers(make_station: StationMaker) -> None:
    station = make_station()
    settings = "/usr/etc/xdg/QtWebkitKiosk/proxy.ini"
    station.path(settings).write_text("[proxy]\nhost=10.87.33.20\nport=8888\n")
    station.use_real_browser()
    with gateway.accepting_proxy(station):
        station.start_service()
        station.wait_for_calls("qt-webkit-kiosk")
        flag = "--proxy-server=10.87.33.20:8888"
        wait_for(lambda: flag in station.run("ps", "axww", "-o", "args"), "the browser's proxy")
