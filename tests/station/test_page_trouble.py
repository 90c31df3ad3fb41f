"""The station page without updates, and with a clock that jumps."""

import pytest
from page_stage import Stage, alert_document
from page_support import Shown

from simulation import gateway
from simulation.gateway import deliver
from simulation.places import DOCUMENT
from simulation.waiting import wait_for

pytestmark = [pytest.mark.once, pytest.mark.browser]


@pytest.mark.parametrize("file", ["page.js", "measure.js", "placement.css"])
def test_page_whose_files_could_not_all_be_had_tries_again(stage: Stage, file: str) -> None:
    """The network may change while the page loads, most likely when a unit starts."""
    drawn = "return typeof view === 'object' && document.getElementById('idle_clock').textContent"
    placed = "return getComputedStyle(document.getElementById('page')).position"
    folder = stage.copy_without(file)
    stage.open(page=f"{folder}/index.html", search="#polling")
    wait_for(lambda: bool(stage.script(drawn)) and stage.script(placed) == "absolute", "the page")
    assert stage.has_missed(folder)


@pytest.mark.parametrize("file", ["pulse.js", "placement.css", "index.html", "preview.js"])
def test_preview_whose_files_could_not_all_be_had_tries_again(stage: Stage, file: str) -> None:
    text = (
        "var frame = document.querySelector('iframe');"
        "return frame !== null && frame.contentDocument.body !== null"
        " && frame.contentDocument.body.innerText.includes('FIRE')"
        " && frame.contentWindow.getComputedStyle("
        "frame.contentDocument.getElementById('page')).position === 'absolute'"
    )
    folder = stage.copy_without(file)
    stage.open(page=f"{folder}/preview.html", search="#polling")
    wait_for(lambda: bool(stage.script(text)), "the alert")
    assert stage.has_missed(folder)


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


@pytest.mark.parametrize("screen", [(640, 480), (1280, 720), (1080, 1920)], ids=str)
def test_missing_news_is_part_of_the_foot_line(stage: Stage, screen: tuple[int, int]) -> None:
    stage.open(*screen)
    stage.give(alert_document("smoke " * 500))
    stage.let_time_pass(11)
    assert stage.text("mark").startswith("no news since ")
    assert stage.text("since") == ""
    assert stage.faults("smoke " * 500) == []


def test_missing_news_can_be_read_while_nothing_happens(stage: Stage) -> None:
    stage.open()
    stage.let_time_pass(11)
    assert stage.text("idle_mark") == "no news"
    assert stage.size("idle_mark") >= 4
    assert stage.faults() == []
