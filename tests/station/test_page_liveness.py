"""The station page's signs of life, and their end."""

import os
import time
from pathlib import Path

import pytest
from page_support import Shown, show

from simulation import gateway
from simulation.gateway import deliver
from simulation.places import DOCUMENT, LIVENESS_FILE
from simulation.screen import Screen
from simulation.station import Station
from simulation.waiting import wait_for

pytestmark = [pytest.mark.once, pytest.mark.browser]

BUDGET = 900  # kicks, one a second
OLD = 300  # seconds, of a liveness file


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


# The page's clock jumps ahead at every reading, so a page that drew again would report at once. Its
# last act, in the middle of a drawing, is to touch the file itself.
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
    # It is busy hanging, for as long as six drawings would take.
    before = shown.processor_seconds()
    wait_for(lambda: shown.processor_seconds() > before + 1.5, "a second and a half of hanging")
    assert file.stat().st_mtime == 1


def test_page_that_hears_nothing_does_not_say_that_it_is_alive(shown: Shown) -> None:
    file = shown.station.path(LIVENESS_FILE)
    wait_for(file.exists, "the liveness file")
    # From now on every poll fails, while reports would still get through.
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


def test_page_in_another_pages_frame_shows_nothing(station: Station, tmp_path: Path) -> None:
    """It does not report that it is alive, either."""
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


@pytest.mark.waits
@pytest.mark.slow
def test_page_that_hangs_ends_the_watchdog_kicks(tmp_path: Path) -> None:
    """End to end, with a clock 200 times as fast for the service: while the page is alive, its file
    and the gateway's messages keep the kicks coming. Then it hangs, the file gets old, the messages
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
            # A jump every 900 ms, three minutes for the service, makes the next report due.
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
