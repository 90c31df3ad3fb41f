"""Where everything on the station page is, and whether it can be read from across the bay."""

import random
from dataclasses import dataclass, field
from typing import Any

import pytest
from page_stage import NOW, Stage, alert_document
from page_support import Shown

from simulation import gateway, kiosk
from simulation.gateway import Unit, deliver

pytestmark = [pytest.mark.once, pytest.mark.browser]

PAGE = 8  # seconds
LARGE = 7.9  # rem: 20 minutes of arc

SCREENS = [
    *((640, 480, ""), (1280, 720, ""), (1920, 1080, ""), (3840, 2160, ""), (1080, 1920, "")),
    *((1280, 720, f"?rotation={turn}") for turn in (90, 180, 270)),
]

each_screen = pytest.mark.parametrize(
    "screen", SCREENS, ids=[f"{width}x{height}{search}" for width, height, search in SCREENS]
)

DISPATCH = [
    *("STRUCTURE FIRE", "1200 MAIN ST", "CROSS OAK AVE", "SMOKE FROM ROOF"),
    *("TWO STORY DWELLING", "HYDRANT N SIDE", "CALLER REPORTS OCCUPANTS OUT", "TAC 4", "MAP 33B"),
]
FOUR = [Unit("E1", 1), Unit("L3", 2), Unit("M7", 3), Unit("BC2", 4)]


@dataclass
class Case:
    text: str
    units: list[Unit] = field(default_factory=list)
    has_map: bool = False
    timing: dict[str, Any] = field(default_factory=dict)


CASES = {
    "one word": Case("FIRE"),
    "one word with a map": Case("FIRE", has_map=True),
    "two lines": Case("STRUCTURE FIRE\n1200 MAIN ST, CROSS OAK AVE", FOUR),
    **{f"{n} lines": Case("\n".join(DISPATCH[:n]), FOUR) for n in (6, 9)},
    **{f"{n} lines, map": Case("\n".join(DISPATCH[:n]), FOUR, True) for n in (6, 7, 8, 9)},
    "no timer": Case("\n".join(DISPATCH[:6]), FOUR, timing={"turnout": 0}),
    "no units, no timer": Case("\n".join(DISPATCH[:6]), timing={"turnout": 0}),
    "past zero": Case("\n".join(DISPATCH[:6]), FOUR, timing={"start": NOW - 70, "zero": 60}),
    "three hours ago": Case("\n".join(DISPATCH[:6]), FOUR, timing={"start": NOW - 11000}),
    "long timer": Case("\n".join(DISPATCH[:6]), FOUR, timing={"turnout": 65535, "end": 65535}),
    "1,500 characters": Case("smoke from the roof " * 75, FOUR),
    "1,500 characters, map": Case("smoke from the roof " * 75, FOUR, True),
    "3,500 characters": Case("smoke from the roof " * 175, FOUR),
    "no spaces": Case("w" * 3500),
    "a long word": Case("W" * 300, FOUR),
    "long first lines": Case("smoke " * 80 + "\n" + "flames " * 80 + "\nEND", FOUR),
    "many short lines": Case("\n".join(f"LINE {n}" for n in range(1, 60)), FOUR, True),
    "empty lines": Case("\n\nFIRE\n\n\n\nMAIN ST\n" * 9, FOUR),
    "spaces": Case("  FIRE      MAIN ST  \n   " * 30, FOUR),
    "sixteen units": Case("FIRE\nMAIN ST", [Unit(f"E{n}", n) for n in range(1, 17)]),
    "sixteen units, map": Case("FIRE\nMAIN ST", [Unit(f"E{n}", n) for n in range(1, 17)], True),
    "sixteen long names": Case(
        "\n".join(DISPATCH[:6]), [Unit("N" * 29 + f"{n:02}", n) for n in range(1, 17)]
    ),
    "sixteen long names, 3,500 characters": Case(
        "smoke from the roof " * 175, [Unit("ENGINE COMPANY NORTH BATTALION" + "X", 3)] * 16, True
    ),
    "units only": Case("", FOUR),
}


def give(stage: Stage, case: Case) -> None:
    address = stage.map_address if case.has_map else ""
    stage.give(alert_document(case.text, case.units, address=address, **case.timing))
    if case.has_map:
        stage.wait_for_map()


def audit(stage: Stage, case: Case) -> list[str]:
    """Of its first pages and its last."""
    found: list[str] = []
    last = max(int(stage.text(name).partition("/")[2] or 1) for name in ("pages", "units_page"))
    at = 0
    for page in sorted({0, 1, last - 1} & set(range(last))):
        stage.let_time_pass(PAGE * (page - at))
        at = page
        found += [f"page {page + 1}: {fault}" for fault in stage.faults(case.text)]
    return found


@each_screen
def test_alert_can_be_read_on_any_screen(stage: Stage, screen: tuple[int, int, str]) -> None:
    faults = {}
    for name, case in CASES.items():
        stage.open(*screen)
        give(stage, case)
        if found := audit(stage, case):
            faults[name] = found
    assert faults == {}
    assert stage.complaints() == []


def generated(chance: random.Random) -> Case:
    words = [
        "FIRE",
        "smoke",
        "Hauptstraße",
        "N/E",
        "12345",
        "x" * chance.randrange(1, 60),
        "\n",
        "é",
    ]
    length = chance.choice([0, 1, 10, 60, 200, 600, 1500, 3500])
    text = ""
    while len(text) < length:
        text += chance.choice(words) + chance.choice([" ", " ", " ", "\n", "  "])
    units = [
        Unit(
            "".join(chance.choices("ENGWM 147i-", k=chance.randrange(1, 32))), chance.randrange(18)
        )
        for _ in range(chance.choice([0, 1, 2, 4, 7, 16]))
    ]
    turnout = chance.choice([0, 60, 600, 40000])
    return Case(text[:length], units, chance.random() < 0.4, {"turnout": turnout})


@each_screen
def test_generated_alerts_can_be_read(stage: Stage, screen: tuple[int, int, str]) -> None:
    chance = random.Random(str(screen))
    stage.open(*screen)
    faults = {}
    for _ in range(10):
        case = generated(chance)
        give(stage, case)
        if found := audit(stage, case):
            faults[str(case)] = found
        stage.let_time_pass(4)  # so that no map of this alert is kept for the next
    assert faults == {}


def test_first_lines_stay_while_the_rest_is_paged(stage: Stage) -> None:
    stage.open()
    stage.give(alert_document("\n".join(f"LINE {n}" for n in range(1, 31))))
    seen = set()
    for page in ("1/4", "2/4", "3/4", "4/4", "1/4"):
        assert stage.text("pages") == page
        assert stage.text("first") == "LINE 1\nLINE 2"
        assert stage.size("first") == pytest.approx(LARGE, abs=0.1)
        seen.add(stage.script("return document.getElementById('rest_text').style.top"))
        stage.let_time_pass(PAGE)
    assert len(seen) == 4


def test_new_text_begins_with_its_first_page(stage: Stage) -> None:
    stage.open()
    stage.give(alert_document("smoke " * 500))
    stage.let_time_pass(PAGE + 1)
    assert stage.text("pages").startswith("2/")
    stage.give(alert_document("flames " * 500))
    assert stage.text("pages").startswith("1/")
    stage.let_time_pass(PAGE + 1)
    assert stage.text("pages").startswith("2/")
    stage.give(alert_document("flames " * 500, start=NOW + 9))
    assert stage.text("pages").startswith("1/")


def test_text_wins_over_the_map(stage: Stage) -> None:
    """Wide map, narrow map, map below, and text and map in turn."""
    stage.open()
    widths = []
    for count in (2, 9, 12):
        give(stage, Case("\n".join([*DISPATCH, *DISPATCH][:count]), FOUR, has_map=True))
        widths.append(
            stage.script("return document.getElementById('map').offsetWidth / innerWidth")
        )
    assert widths[0] > 0.35 > widths[1] > 0.2
    assert stage.text("pages") == "1/3"
    map_shown = "return getComputedStyle(document.getElementById('map')).visibility"
    shown = []
    for _ in range(3):
        shown.append(stage.script(map_shown))
        assert stage.text("first") == "STRUCTURE FIRE\n1200 MAIN ST"
        stage.let_time_pass(PAGE)
    assert shown == ["hidden", "hidden", "visible"]


def test_characters_that_only_stand_together_hide_nothing_after_them(stage: Stage) -> None:
    stage.open()
    stage.give(alert_document("FIRE\nMAIN ST\n" + "\u1100" * 600 + "\n" + "smoke " * 200 + "END"))
    count = int(stage.text("pages").partition("/")[2])
    stage.let_time_pass((count - 1) * PAGE)
    end = stage.script(
        """
        var range = document.createRange(), text = document.getElementById('rest_text').firstChild;
        range.setStart(text, text.length - 3);
        range.setEnd(text, text.length);
        return range.getBoundingClientRect()"""
    )
    seen = stage.script("return document.getElementById('rest').getBoundingClientRect()")
    assert seen["top"] <= end["top"] and end["bottom"] <= seen["bottom"] + 1
    stage.give(alert_document("\u1100" * 600, kind="display_alert", flag=0))
    assert "Infinity" not in stage.text("idle_pages")


LETTERS = """
    var text = document.getElementById('first').firstChild;
    return arguments[0].map(function (place) {
        var range = document.createRange();
        range.setStart(text, place);
        range.setEnd(text, place + 1);
        return range.getBoundingClientRect().left;
    })"""


def test_scripts_from_right_to_left_end_at_the_left(stage: Stage) -> None:
    stage.open()
    text = "\u05d0\u05d1\u05d2 12.\nFIRE."
    stage.give(alert_document(text, FOUR))
    letter, digit, stop, latin, latin_stop = stage.script(LETTERS, [0, 4, 6, 8, 12])
    assert stop < digit < letter and latin < latin_stop
    assert stage.faults(text) == []


def test_empty_lines_push_nothing_away(stage: Stage) -> None:
    stage.open()
    stage.give(alert_document("\r\n \n\nFIRE" + " \n" * 300 + "MAIN ST" + "\n \r" * 300))
    assert (stage.text("first"), stage.text("pages")) == ("FIRE\n\nMAIN ST", "")
    stage.give(alert_document("\n\n\nFIRE\nMAIN ST\n" + "smoke " * 300))
    assert stage.text("first") == "FIRE\nMAIN ST"


def test_head_is_no_empty_band(stage: Stage) -> None:
    stage.open()
    stage.give(alert_document("FIRE", turnout=0))
    top = "return document.getElementById('first').getBoundingClientRect().top / innerHeight"
    assert stage.script(top) < 0.06


def test_units_do_not_dwarf_the_timer_in_portrait(stage: Stage) -> None:
    stage.open(1080, 1920)
    stage.give(alert_document("FIRE", [Unit("E1", 1)]))
    assert stage.size("units") < stage.size("timer")


def test_sixteen_units_with_the_longest_names_take_turns(stage: Stage) -> None:
    stage.open()
    names = [f"{n:02}" + "N" * 29 for n in range(1, 17)]
    stage.give(alert_document("FIRE", [Unit(name, 1) for name in names]))
    count = int(stage.text("units_page").partition("/")[2])
    seen: list[str] = []
    for _ in range(count):
        seen += [name.replace("\n", "") for name in stage.units()]
        stage.let_time_pass(PAGE)
    assert seen == names


@pytest.mark.parametrize("safe", ["3.5", "10", "15"])
@pytest.mark.parametrize("search", ["", "?rotation=90"])
def test_foot_line_stays_in_any_safe_area(stage: Stage, safe: str, search: str) -> None:
    for width, height in ((640, 480), (480, 640)):
        stage.open(width, height, f"?safe={safe}{search}")
        stage.give(alert_document("w" * 3500, FOUR))
        stage.let_time_pass(9 * PAGE)  # long after the last poll
        assert stage.text("mark").startswith("no news since ")
        assert stage.faults("w" * 3500, float(safe)) == []
        stage.give(alert_document("w" * 3499, FOUR))
        stage.let_time_pass(9)
        assert stage.text("since").startswith("Updated ")
        assert stage.faults("w" * 3499, float(safe)) == []


@pytest.mark.parametrize("safe", ["0", "5", "10"])
def test_safe_area_can_be_set_and_is_remembered(stage: Stage, safe: str) -> None:
    case = CASES["sixteen units"]
    stage.open(search=f"?safe={safe}")
    give(stage, case)
    assert stage.faults(case.text, float(safe)) == []


@pytest.mark.parametrize(
    "search, turned",
    [
        ("?rotation=0?rotation=90", True),
        ("?safe=5&rotation=90", True),
        ("?rotation=90?rotation=0", False),
        ("?rotation=" + "9" * 40, True),
    ],
)
def test_last_rotation_counts(stage: Stage, search: str, turned: bool) -> None:
    stage.open(search=search)
    portrait = "return document.getElementById('page').className === 'portrait'"
    assert stage.script(portrait) is turned


def test_safe_area_is_kept_when_an_alert_opens_the_page_again(shown: Shown) -> None:
    place = "return document.getElementById('area').getBoundingClientRect().left / innerWidth"
    standard = shown.script(place)
    deliver(shown.station, gateway.set_page_address("http://127.0.0.1/station_web/?safe=8"))
    shown.station.wait_for_calls("qt-webkit-kiosk", 2)
    shown.screen.wait_until_drawn()
    assert shown.script(place) > standard
    shown.script("location.href = 'http://127.0.0.1/station_web/'")
    shown.screen.wait_until_drawn()
    assert shown.script(place) > standard


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
