"""The units' tiles are told apart by everybody, their names can be read, and nothing blinks."""

import json
import re

import pytest
from bench import palette
from page_support import Shown

from simulation import gateway
from simulation.gateway import Unit
from simulation.places import top_directory

pytestmark = pytest.mark.once

TILES = palette.read_tiles()


def test_tiles_have_the_colors_of_the_protocol() -> None:
    protocol = (top_directory() / "docs" / "protocol.md").read_text()
    (names,) = re.findall(r"^\| (red .*) \|$", protocol, re.MULTILINE)
    assert [tile.name for tile in TILES] == [name.strip() for name in names.split("|")]


@pytest.mark.parametrize("vision", palette.VISIONS)
def test_any_two_tiles_differ_in_color_or_in_pattern(vision: str) -> None:
    found = palette.pairs(TILES, vision)
    assert len(found) == 120
    alike = [
        f"{pair.names}: {pair.difference:.1f}"
        for pair in found
        if pair.difference < palette.THRESHOLD and not pair.have_different_patterns
    ]
    assert alike == []


def test_names_are_readable() -> None:
    assert [tile for tile in TILES if tile.contrast < palette.READABLE] == []
    # The others are of a lightness for which neither black nor white has more.
    very_readable = [tile for tile in TILES if tile.contrast >= palette.VERY_READABLE]
    assert len(very_readable) >= 11
    for tile in TILES:
        (other,) = set(palette.INKS) - {tile.ink}
        if tile not in very_readable:
            assert palette.contrast(tile.ground, other) < palette.VERY_READABLE


def test_document_states_the_differences() -> None:
    document = (top_directory() / "docs" / "station-page.md").read_text()
    assert "\n".join(palette.table_of_differences(TILES)) in document


# From the test data of G. Sharma, W. Wu, E. N. Dalal, "The CIEDE2000 Color-Difference Formula", 2005.
@pytest.mark.parametrize(
    "one, other, expected",
    [
        ((50, 2.6772, -79.7751), (50, 0, -82.7485), 2.0425),
        ((50, 0, 0), (50, -1, 2), 2.3669),
        ((50, 2.49, -0.001), (50, -2.49, 0.0011), 7.2195),
        ((50, 2.5, 0), (61, -5, 29), 22.8977),
        ((60.2574, -34.0099, 36.2677), (60.4626, -34.1751, 39.4387), 1.2644),
        ((22.7233, 20.0904, -46.694), (23.0331, 14.973, -42.5619), 2.0373),
        ((2.0776, 0.0795, -1.135), (0.9033, -0.0636, -0.5514), 0.9082),
    ],
)
def test_differences_are_computed_correctly(
    one: palette.Color, other: palette.Color, expected: float
) -> None:
    assert palette.difference(one, other) == pytest.approx(expected, abs=1e-4)


DRAW = """
    var box = document.createElement('div'), color, seen;
    box.style.cssText = 'position:absolute;left:0;top:0;width:60rem;font:bold 6rem sans-serif';
    for (color of arguments[0]) {
        box.appendChild(tiles.make({name: 'E' + color, color: color}));
    }
    document.body.appendChild(box);
    seen = Array.from(box.children).map(function (tile) {
        var range = document.createRange(), mark = getComputedStyle(tile, ':before');
        range.selectNodeContents(tile);
        return {
            text: tile.textContent,
            classes: tile.className,
            ground: getComputedStyle(tile).backgroundColor,
            ink: getComputedStyle(tile).color,
            mark: mark.content === 'none' ? 0 : parseFloat(mark.left) + parseFloat(mark.width),
            name: range.getBoundingClientRect().left - tile.getBoundingClientRect().left,
            look: mark.content === 'none' ? '' : mark.background
        };
    });
    box.remove();
    return seen"""


@pytest.fixture(scope="module")
def page(script_page: Shown) -> Shown:
    """With its tiles, whatever else it shows."""
    script_page.load("tiles.css", "tiles.js")
    return script_page


def as_rgb(color: str) -> str:
    digits = palette.INKS.get(color, color)[1:]
    red, green, blue = (int(digits[place : place + 2], 16) for place in (0, 2, 4))
    return f"rgb({red}, {green}, {blue})"


@pytest.mark.browser
def test_page_draws_the_tiles_and_their_marks_beside_the_names(page: Shown) -> None:
    seen = page.script(DRAW, list(range(1, 17)))
    for number, (tile, drawn) in enumerate(zip(TILES, seen, strict=True), 1):
        assert drawn["text"] == f"E{number}"
        marked = [tile.pattern, tile.ink] if tile.pattern else []
        assert drawn["classes"].split() == ["unit", *marked]
        assert (drawn["ground"], drawn["ink"]) == (as_rgb(tile.ground), as_rgb(tile.ink))
        assert (drawn["mark"] > 0) == (tile.pattern != "")
        assert drawn["ink"] in drawn["look"] or not tile.pattern
        assert drawn["name"] > drawn["mark"], "the mark is under the name"


@pytest.mark.browser
def test_any_other_color_is_gray(page: Shown) -> None:
    gray, *others = page.script(DRAW, [16, 0, 17, 255])
    assert {drawn["ground"] for drawn in others} == {gray["ground"]}


WATCH = """
    var done = arguments[arguments.length - 1], started = performance.now(), last = new Map(),
        changes = new Map(), looks;
    function watch() {
        document.querySelectorAll('*').forEach(function (e) {
            var style = getComputedStyle(e), look = [style.display, style.visibility, style.opacity,
                style.color, style.backgroundColor, style.borderColor].join(' ');
            if (last.has(e) && last.get(e) !== look) {
                changes.set(e, (changes.get(e) || 0) + 1);
            }
            last.set(e, look);
        });
        if (performance.now() - started < 2000) {
            requestAnimationFrame(watch);
        } else {
            done({
                most: Math.max(0, ...changes.values()),
                animations: document.getAnimations().length,
                seen: last.size
            });
        }
    }
    watch();"""


# A look that changes and changes back is one flash: six changes a second are three flashes.
@pytest.mark.browser
def test_nothing_blinks(script_page: Shown) -> None:
    driver = script_page.screen.driver
    driver.set_script_timeout(30)
    units = {slot: Unit(f"E{slot}", slot + 1) for slot in range(16)}
    for message in (
        gateway.display_alert(""),
        gateway.detail_alert("FIRE", units, turnout_end=100, turnout_zero=1),  # soon past zero
    ):
        script_page.deliver(message)
        watched = driver.execute_async_script(WATCH)
        assert watched["seen"] > 20
        assert watched["animations"] == 0
        assert watched["most"] <= 6, json.dumps(watched)
