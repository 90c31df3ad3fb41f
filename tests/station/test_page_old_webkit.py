"""The station page in an old browser engine, about the age of the board's."""

import json
import zlib
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest
from glyph_support import NOT_SHOWN, SHOWN
from webkit_support import OldBrowser, old_browser

from simulation import gateway
from simulation.gateway import Unit
from simulation.places import LIVENESS_FILE, UNIT_ADDRESS
from simulation.waiting import wait_for

pytestmark = [pytest.mark.once, pytest.mark.browser]

SIZES = [(1280, 720), (800, 480)]

# It has no such directive, and takes the header X-Frame-Options instead. A map runs no scripts.
KNOWN = (
    ":0: Unrecognized Content-Security-Policy directive 'frame-ancestors'.",
    ":0: Blocked script execution in 'http://10.87.33.20/map.html'",
)

AUDIT = Path(__file__).with_name("page_audit.js").read_text()

TILES = """Array.prototype.map.call(document.querySelectorAll('.unit'), function (tile) {
    var box = tile.getBoundingClientRect();
    return {
        name: tile.textContent,
        color: getComputedStyle(tile).backgroundColor,
        box: [box.left, box.top, box.right, box.bottom]
    };
})"""


@pytest.fixture(scope="module")
def old() -> Iterator[OldBrowser]:
    with old_browser() as browser:
        yield browser
        assert [x for x in browser.complaints() if not x.startswith(KNOWN)] == []


@pytest.fixture(autouse=True)
def idle(old: OldBrowser) -> None:
    old.resize(*SIZES[0])
    old.deliver(gateway.detail_alert(""))


def faults(old: OldBrowser, text: str = "") -> Any:
    """Sentences about what is wrong with the page as it is drawn now."""
    return old.evaluate(f"(function () {{ {AUDIT} }}(3.5, {json.dumps(text)}))")


def as_hex(color: str) -> str:
    channels = color[color.index("(") + 1 : -1].split(",")[:3]
    return "#" + "".join(f"{int(channel):02x}" for channel in channels)


def test_old_engine_draws_an_alert_and_its_end(old: OldBrowser) -> None:
    units = {slot: Unit(f"E{slot + 1}", slot + 1) for slot in range(16)}
    old.deliver(gateway.detail_alert("FÜR EINEN BRAND\n1200 MAIN ST", units, turnout_end=120))
    assert old.text("first").split() == ["FÜR", "EINEN", "BRAND", "1200", "MAIN", "ST"]
    assert old.text("idle_clock") == ""
    assert old.text("timer") in ("2:00", "1:59", "1:58", "1:57")
    tiles = old.evaluate(TILES)
    assert [tile["name"] for tile in tiles] == [f"E{n + 1}" for n in range(16)]
    for tile in tiles:
        left, top, right, bottom = tile["box"]
        # Beside the name, at half the height: the corners are round.
        assert old.pixel(right - 3, (top + bottom) / 2) == as_hex(tile["color"]), tile
        assert 0 <= left < right <= SIZES[0][0] and 0 <= top < bottom <= SIZES[0][1], tile
    old.deliver(gateway.display_alert(""))
    assert old.text("first") == ""
    assert ":" in old.text("idle_clock")


def test_old_engine_shows_the_stations_address(old: OldBrowser) -> None:
    with old_browser() as fresh:
        assert fresh.text("idle_text") == UNIT_ADDRESS
        assert faults(fresh) == []


@pytest.mark.parametrize("size", SIZES, ids=lambda size: "x".join(map(str, size)))
@pytest.mark.parametrize(
    "text",
    ["FIRE", "STRUCTURE FIRE\n1200 MAIN ST, CROSS OAK AVE", "W" * 300, "smoke  smoke " * 125],
    ids=["a word", "two lines", "a long word", "many words"],
)
def test_old_engine_keeps_the_text_on_the_screen(
    old: OldBrowser, size: tuple[int, int], text: str
) -> None:
    old.resize(*size)
    wait_for(lambda: old.evaluate("[innerWidth, innerHeight]") == list(size), "the size")
    units = {slot: Unit(f"ENGINE {slot + 1}", slot + 1) for slot in range(16)}
    old.deliver(gateway.detail_alert(text, units, turnout_end=100))
    assert faults(old, text) == []


def test_old_engine_draws_and_reports_that_it_is_alive(old: OldBrowser) -> None:
    wait_for(old.station.path(LIVENESS_FILE).exists, "a sign of life")
    old.evaluate(
        """(function () {
            var request = window.requestAnimationFrame, now = performance.now.bind(performance);
            window.frames_drawn = 0;
            window.requestAnimationFrame = function (action) {
                return request.call(window, function (time) {
                    window.frames_drawn += 1;
                    action(time);
                });
            };
            performance.now = function () { return now() + 60000; };
        }())"""
    )
    old.station.path(LIVENESS_FILE).unlink()
    wait_for(lambda: old.evaluate("window.frames_drawn") >= 3, "three drawings")
    wait_for(old.station.path(LIVENESS_FILE).exists, "another sign of life")


def picture_of_one_color(color: bytes) -> bytes:
    """A PNG of 40 by 30."""

    def chunk(kind: bytes, content: bytes) -> bytes:
        sum_of_it = zlib.crc32(kind + content).to_bytes(4, "big")
        return len(content).to_bytes(4, "big") + kind + content + sum_of_it

    size = (40).to_bytes(4, "big") + (30).to_bytes(4, "big")
    rows = zlib.compress((b"\0" + 40 * color) * 30)
    header = chunk(b"IHDR", size + bytes([8, 2, 0, 0, 0]))
    return b"\x89PNG\r\n\x1a\n" + header + chunk(b"IDAT", rows) + chunk(b"IEND", b"")


MAPS = {"map.png": "#00ff00", "map.svg": "#ffff00", "map.html": "#0000ff"}

MIDDLE = """function (element) {
    var box = element.getBoundingClientRect();
    return [(box.left + box.right) / 2, (box.top + box.bottom) / 2];
}"""


def test_old_engine_shows_a_picture_and_a_page_as_a_map(old: OldBrowser) -> None:
    directory = old.station.gateway_directory()
    (directory / "map.png").write_bytes(picture_of_one_color(b"\x00\xff\x00"))
    drawing = "<svg xmlns='http://www.w3.org/2000/svg' width='40' height='30'>"
    drawing += "<rect width='40' height='30' fill='#ffff00'/></svg>"
    (directory / "map.svg").write_text(drawing)
    page = "<body style='background:#0000ff'><script>document.body.style = ''</script>"
    (directory / "map.html").write_text(page)
    with gateway.web_server(old.station, directory):
        old.deliver(gateway.detail_alert("FIRE"))
        for name, color in MAPS.items():
            old.deliver(gateway.set_map_address(f"http://{gateway.GATEWAY}/{name}"))
            wait_for(lambda: old.pixel(*old.of("map", MIDDLE)) == color, name)
            assert faults(old, "FIRE") == []


def test_old_engine_shows_what_it_cannot_draw_by_its_code(old: OldBrowser) -> None:
    old.evaluate(
        """(function () {
            var script = document.createElement('script');
            script.src = 'glyphs.js';
            document.body.appendChild(script);
        }())"""
    )
    wait_for(lambda: old.evaluate("typeof glyphs === 'object'"), "the script")
    texts = {**{text: text for text in SHOWN.values()}, **NOT_SHOWN}
    shown = old.evaluate(f"{json.dumps(list(texts))}.map(glyphs.readable)")
    assert dict(zip(texts, shown, strict=True)) == texts


def test_old_engine_turns_the_page(old: OldBrowser) -> None:
    station = old.station
    for turns in (1, 0):
        browsers = len(station.calls("qt-webkit-kiosk"))
        gateway.deliver(station, gateway.hdtv_settings(turns))
        station.wait_for_calls("qt-webkit-kiosk", browsers + 1)
        wait_for(old.has_drawn_document, "the page after its restart")
        text = f"TURNED BY {90 * turns}"
        old.deliver(gateway.detail_alert(text, {0: Unit("E1", 1)}))
        assert faults(old, text) == []
        line = "function (e) { var r = document.createRange(); r.selectNodeContents(e);"
        line += "r = r.getBoundingClientRect(); return [r.width, r.height]; }"
        width, height = old.of("clock", line)
        assert (height > width) == (turns == 1)
        old.deliver(gateway.detail_alert(""))
