"""The test card."""

import math
import os
import re
from collections.abc import Iterator

import pytest
from folder_support import Folder, open_folder
from page_support import Shown

from simulation.places import LIVENESS_FILE
from simulation.waiting import wait_for

pytestmark = [pytest.mark.once, pytest.mark.browser]

SIZES = [(640, 480), (1280, 720), (1920, 1080), (3840, 2160), (1080, 1920)]
QUERIES = ["", "?rotation=90", "?rotation=180", "?rotation=270", "?safe=15", "?safe=0&rotation=90"]


@pytest.fixture(scope="module")
def folder() -> Iterator[Folder]:
    with open_folder() as opened:
        yield opened


# The boxes that the screen shows, by a selector; of a text's letters where an element has any.
BOXES = """
    return Array.prototype.map.call(document.querySelectorAll(arguments[0]), function (e) {
        var range = document.createRange(), box = e.getBoundingClientRect(), name;
        name = e.id || e.className + ' ' + e.textContent;
        if (e.textContent && !e.style.backgroundColor) {
            range.selectNodeContents(e);
            box = range.getBoundingClientRect();
        }
        return [name, box.left, box.top, box.right, box.bottom];
    })"""

Box = tuple[str, float, float, float, float]  # name, left, top, right, bottom


def boxes(folder: Folder, selector: str) -> list[Box]:
    found: list[Box] = folder.script(BOXES, selector)
    return found


def frame_box(percent: float, width: int, height: int) -> list[float]:
    x, y = width * percent / 100, height * percent / 100
    return [x, y, width - x, height - y]


def is_inside(box: Box, outer: list[float]) -> bool:
    left, top, right, bottom = box[1:]
    return (
        left > outer[0] - 0.5
        and top > outer[1] - 0.5
        and right < outer[2] + 0.5
        and bottom < outer[3] + 0.5
    )


@pytest.mark.parametrize("width, height", SIZES)
@pytest.mark.parametrize("query", ["", "?rotation=90", "?rotation=180", "?rotation=270"])
def test_frames_are_at_their_percentages(
    folder: Folder, width: int, height: int, query: str
) -> None:
    folder.open("card.html" + query, width, height)
    for name, percent in (("edge", 0), ("action", 3.5), ("text", 5)):
        ((_, *box),) = boxes(folder, f".frame.{name}")
        assert box == pytest.approx(frame_box(percent, width, height), abs=0.5), name
        labels = folder.script(
            "return Array.prototype.map.call("
            "document.querySelectorAll(arguments[0]), e => e.textContent)",
            f".label.{name}",
        )
        assert labels == [f"{percent} %"] * 4


def test_each_arrow_ends_at_its_frame(folder: Folder) -> None:
    folder.open("card.html?safe=8", 1920, 1080)
    assert len(boxes(folder, ".frame")) == 4
    for name, percent in (("edge", 0), ("action", 3.5), ("text", 5), ("own", 8)):
        left, top, right, bottom = frame_box(percent, 1920, 1080)
        ends = {"left": (1, left), "top": (2, top), "right": (3, right), "bottom": (4, bottom)}
        for side, (place, end) in ends.items():
            (box,) = boxes(folder, f".arrow.{side}.{name}")
            assert box[place] == pytest.approx(end, abs=0.5), (side, name)
    assert folder.script("return document.querySelector('.label.own').textContent") == "8 %"
    assert folder.text("safe") == "safe area 8 %"


@pytest.mark.parametrize("width, height", SIZES)
@pytest.mark.parametrize("query", QUERIES)
def test_card_is_inside_the_frames_and_nothing_overlaps(
    folder: Folder, width: int, height: int, query: str
) -> None:
    folder.open("card.html" + query, width, height)
    single = "#bars, #ramp, #dial, .corner, .label, .unit"
    parts = boxes(folder, f"{single}, .line, #viewing > div, #facts > div")
    assert len(parts) >= 2 + 1 + 4 + 12 + 16 + 2 + 2 + 5
    percent = 15 if "safe=15" in query else 5
    inner = frame_box(percent, width, height)
    assert [box for box in parts if not is_inside(box, inner)] == []
    assert [(a, b) for i, a in enumerate(parts) for b in parts[:i] if overlap(a, b)] == []
    # What an element hides of itself would be missing above.
    assert folder.script(
        "return Array.prototype.every.call(document.querySelectorAll('#ramp div, .unit, #time'),"
        "e => e.scrollWidth <= e.clientWidth + 1)"
    )


def overlap(a: Box, b: Box) -> bool:
    return (
        min(a[3], b[3]) - max(a[1], b[1]) > 0.5
        and min(a[4], b[4]) - max(a[2], b[2]) > 0.5
        and a[0] != b[0]
    )


@pytest.mark.parametrize(
    "query, width, height, distance, inches",
    [
        ("", 1280, 720, 5, 43),
        ("", 640, 480, 5, 43),
        ("", 1080, 1920, 5, 43),
        ("?rotation=90", 1920, 1080, 5, 43),
        ("?distance=8&inches=55&safe=15", 3840, 2160, 8, 55),
        ("?distance=2.5?rotation=180", 1280, 720, 2.5, 43),
    ],
)
def test_lines_say_the_arc_minutes_that_they_have(
    folder: Folder, query: str, width: int, height: int, distance: float, inches: float
) -> None:
    folder.open("card.html" + query, width, height)
    millimeters_per_pixel = inches * 25.4 / math.hypot(width, height)
    for name, size in (("good_line", 7.9), ("least_line", 6.35)):
        pixels, capital = folder.script(CAPITAL_HEIGHT, name)
        assert pixels == pytest.approx(size * min(width, height) / 100, rel=0.001)
        seen = 60 * math.degrees(math.atan2(capital * millimeters_per_pixel, distance * 1000))
        text = folder.text(name)
        assert re.fullmatch(r"[0-9.]+ arc min", text)
        assert float(text.split()[0]) == pytest.approx(seen, rel=0.005, abs=0.05)
    viewing = folder.text("viewing")
    assert f"from {distance} m on a {inches}-inch screen" in viewing
    is_warned = folder.script("return document.querySelector('.too_small') !== null")
    assert is_warned == (float(folder.text("least_line").split()[0]) < 16)


# The size of an element's font, and the height of its capitals as they are drawn, in pixels.
CAPITAL_HEIGHT = """
    var style = getComputedStyle(document.getElementById(arguments[0])),
        canvas = document.createElement('canvas'), drawing = canvas.getContext('2d'), ink, rows;
    canvas.width = canvas.height = 1000;
    drawing.font = style.fontWeight + ' 1000px ' + style.fontFamily;
    drawing.fillText('H', 0, 1000);
    ink = drawing.getImageData(0, 0, 1000, 1000).data;
    for (rows = 0; ink[4 * (1000 * (999 - rows) + 150) + 3]; rows += 1) {}
    return [parseFloat(style.fontSize), rows / 1000 * parseFloat(style.fontSize)]"""


def test_palette_has_sixteen_numbered_tiles_that_differ(folder: Folder) -> None:
    folder.open("card.html")
    tiles = folder.script(
        """
        return Array.prototype.map.call(document.querySelectorAll('#palette .unit'), e => {
            var style = getComputedStyle(e);
            return [e.textContent, style.backgroundColor + style.backgroundImage + style.border];
        })"""
    )
    assert [number for number, _ in tiles] == [str(number) for number in range(1, 17)]
    assert len({look for _, look in tiles}) == 16


@pytest.mark.parametrize(
    "rotation, corners", [(0, "ABCD"), (90, "DABC"), (180, "CDAB"), (270, "BCDA")]
)
def test_corners_and_arrow_show_how_the_page_is_turned(
    folder: Folder, rotation: int, corners: str
) -> None:
    # As the service does it, even after another query.
    folder.open(f"card.html?distance=4?rotation={rotation}")
    seen = folder.script(
        """
        function middle(e) {
            var box = e.getBoundingClientRect();
            return [box.left + box.width / 2 < innerWidth / 2,
                box.top + box.height / 2 < innerHeight / 2].join(' ');
        }
        var at = {};
        document.querySelectorAll('.corner').forEach(e => { at[middle(e)] = e.textContent; });
        return at['true true'] + at['false true'] + at['false false'] + at['true false']"""
    )
    assert seen == corners
    (tip,), (stem,) = boxes(folder, "#up"), boxes(folder, "#stem")
    x, y = (tip[1] + tip[3] - stem[1] - stem[3]) / 2, (tip[2] + tip[4] - stem[2] - stem[4]) / 2
    assert round(math.degrees(math.atan2(x, -y)) % 360) % 360 == pytest.approx(rotation, abs=3)
    assert folder.text("turn") == f"rotation {rotation}°"


@pytest.mark.parametrize(
    "width, height, ratio, resolution",
    [
        (1280, 720, 1, "1280 × 720 pixels"),
        (1280, 720, 1.5, "1920 × 1080 pixels"),
        (1080, 1920, 2, "2160 × 3840 pixels"),
    ],
)
def test_card_says_the_resolution(
    folder: Folder, width: int, height: int, ratio: float, resolution: str
) -> None:
    folder.open("card.html?rotation=90", width, height, ratio)
    assert folder.text("resolution") == resolution
    assert folder.text("ratio") == f"device pixel ratio {ratio}"


def test_bars_and_grays_are_the_usual_ones(folder: Folder) -> None:
    folder.open("card.html")
    look = """
        return Array.prototype.map.call(document.querySelectorAll(arguments[0]), e => [
            getComputedStyle(e).backgroundColor.match(/[0-9]+/g).map(Number), e.textContent,
            e.getBoundingClientRect().width])"""
    bars = folder.script(look, "#bars div")
    # White, yellow, cyan, green, magenta, red, blue, black: in the order of their brightness.
    on = ["111", "110", "011", "010", "101", "100", "001", "000"]
    levels = [[int(bit) * (255 if i == 0 else 191) for bit in bits] for i, bits in enumerate(on)]
    assert [color for color, _, _ in bars] == levels
    grays = folder.script(look, "#ramp div")
    assert [text for _, text, _ in grays][::14] == ["0", "100"]
    assert [color for color, _, _ in grays] == [
        [(int(t) * 255 + 50) // 100] * 3 for _, t, _ in grays
    ]
    assert [color for color, _, _ in grays] == sorted(color for color, _, _ in grays)
    for parts in (bars, grays):
        assert len({round(width) for _, _, width in parts}) <= 2


def test_card_fills_a_screen_that_changes_its_size(folder: Folder) -> None:
    folder.open("card.html", 640, 480)
    folder.script("window.is_same = true")
    folder.resize(1920, 1080)
    wait_for(lambda: folder.text("resolution") == "1920 × 1080 pixels", "the new resolution")
    ((_, *box),) = boxes(folder, ".frame.text")
    assert box == pytest.approx(frame_box(5, 1920, 1080), abs=0.5)
    assert folder.script("return is_same && document.querySelectorAll('.frame').length") == 3


def test_hand_moves_smoothly_while_the_page_draws(folder: Folder) -> None:
    folder.open("card.html")
    places = set()

    def is_seen_moving() -> bool:
        shown, now = folder.script(
            """
            var hand = document.getElementById('hand');
            return [Number(/[0-9.]+/.exec(hand.style.transform)), Date.now() % 60000 * 6 / 1000]"""
        )
        # Six degrees a second: it neither jumps nor flashes.
        assert (now - shown) % 360 < 6 * 5
        places.add(shown)
        return len(places) > 3

    wait_for(is_seen_moving, "four places of the hand")


HELD_FRAME = "window.requestAnimationFrame = function (draw) { window.held = draw; }"


def test_card_keeps_the_unit_alive_only_while_it_draws(script_page: Shown) -> None:
    script_page.screen.driver.get("http://127.0.0.1/station_web/card.html")
    file = script_page.station.path(LIVENESS_FILE)
    wait_for(file.exists, "the liveness file")
    os.utime(file, (1, 1))
    script_page.let_time_pass(31)
    wait_for(lambda: file.stat().st_mtime > 1, "a fresh liveness file")
    # From now on the browser draws no frame until it is told to.
    script_page.script(HELD_FRAME)
    wait_for(lambda: script_page.script("return typeof held === 'function'"), "a held frame")
    os.utime(file, (1, 1))
    script_page.let_time_pass(31)
    hand = "return document.getElementById('hand').style.transform"
    place = script_page.script(hand)
    assert script_page.script(hand) == place
    assert file.stat().st_mtime == 1
    script_page.script("held()")
    assert script_page.script(hand) != place
    wait_for(lambda: file.stat().st_mtime > 1, "a fresh liveness file")
