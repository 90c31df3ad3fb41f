"""The status page, and the figures that the unit's web server has for it."""

import http.client
import json
import os
import time
from collections.abc import Iterator
from typing import Any

import pytest
from support import start

from simulation import gateway
from simulation.forward import Forward
from simulation.gateway import VERSION, deliver
from simulation.places import (
    DOCUMENT,
    GATEWAY_FILE,
    HARDWARE_ADDRESS,
    LIVENESS_FILE,
    UNIT_ADDRESS,
    WEB_PORT,
)
from simulation.screen import Screen
from simulation.station import Station
from simulation.waiting import DEADLINE, wait_for

pytestmark = pytest.mark.once

ASKING = {"Host": "127.0.0.1", "X-Station-Page": "status"}
STATUS_PAGE = "http://127.0.0.1/station_web/status.html"


def ask(station: Station, method: str = "GET", headers: dict[str, str] | None = None) -> Any:
    """The figures, or the status of an answer without any."""
    with Forward(station, WEB_PORT) as forward:
        connection = http.client.HTTPConnection("127.0.0.1", forward.port, timeout=DEADLINE)
        connection.request(method, "/station_web/status.cgi", headers=headers or ASKING)
        answer = connection.getresponse()
        text = answer.read()
        connection.close()
    return json.loads(text) if answer.status == 200 else answer.status


@pytest.fixture
def served(station: Station) -> Station:
    station.start_web_server()
    return station


def test_figures_of_a_unit_that_has_just_started(served: Station) -> None:
    figures = ask(served)
    uptime = float(served.path("/proc/uptime").read_text().split()[0])
    assert abs(int(figures.pop("uptime")) - uptime) < 10
    figures.pop("zone")
    assert figures == {
        "addresses": UNIT_ADDRESS,
        "hardware_address": HARDWARE_ADDRESS,
        "gateway": "",
        "gateway_changed": "",
        "document_changed": "",
        "alive_changed": "",
        "service_version": str(VERSION),
    }


def test_figures_of_a_unit_at_work(served: Station) -> None:
    start(served)
    deliver(served, gateway.display_alert("FIRE"))
    served.path(LIVENESS_FILE).touch()
    for age, file in enumerate((DOCUMENT, GATEWAY_FILE, LIVENESS_FILE)):
        os.utime(served.path(file), (1, 1_700_000_000 + age))
    figures = ask(served)
    assert figures["document_changed"] == "1700000000"
    assert figures["gateway_changed"] == "1700000001"
    assert figures["alive_changed"] == "1700000002"
    assert json.loads(figures["gateway"])["gateway_addr"] == gateway.GATEWAY


def test_figures_of_files_that_hold_anything(served: Station) -> None:
    served.path(GATEWAY_FILE).write_bytes(b'a"b\\c\n\x01\xff$(id)`id`' + b"x" * 1000)
    assert ask(served)["gateway"] == 'a"b\\c??$(id)`id`' + "x" * 283
    served.path(GATEWAY_FILE).unlink()
    served.path(GATEWAY_FILE).mkdir()
    assert ask(served)["gateway"] == ""


def test_figures_without_addresses(make_station: Any) -> None:
    station = make_station(address=None, interface="eth1")
    station.start_web_server()
    assert (ask(station)["addresses"], ask(station)["hardware_address"]) == ("", "")


@pytest.mark.parametrize(
    "settings",
    [
        {"headers": {"Host": "127.0.0.1"}},
        {"headers": {"Host": "127.0.0.1", "X-Station-Page": "alive"}},
        {"headers": {**ASKING, "Host": "127.0.0.1:8080"}},
        {"method": "POST"},
    ],
    ids=["another page", "another purpose", "a copy elsewhere", "no question"],
)
def test_figures_are_for_the_televisions_own_page(served: Station, settings: Any) -> None:
    assert ask(served, **settings) == 403


# The page.


class StatusPage:
    """One that is shown; the clock of its unit's files is this machine's."""

    def __init__(self, station: Station, screen: Screen) -> None:
        self.station = station
        self.screen = screen

    def open(self, query: str = "") -> None:
        self.screen.driver.get(STATUS_PAGE + query)
        self.wait_for_line("Versions service")

    def text(self) -> str:
        """A line for each row."""
        return self.screen.text("status")

    def wait_for_line(self, text: str) -> None:
        wait_for(lambda: text in self.text(), f"{text!r} in:\n{self.text()}")

    def script(self, text: str, *arguments: object) -> Any:
        return self.screen.driver.execute_script(text, *arguments)

    def outside(self) -> list[str]:
        """The texts that are not wholly on the screen, or not legible."""
        return list(self.script(OUTSIDE))


# Where text is, not where boxes are: an element may be larger than what it shows.
OUTSIDE = """
    var rem = parseFloat(getComputedStyle(document.documentElement).fontSize), found = [],
        walker = document.createTreeWalker(document.getElementById('status'), NodeFilter.SHOW_TEXT);
    while (walker.nextNode()) {
        var node = walker.currentNode, range = document.createRange();
        if (!node.data.trim()) { continue; }
        range.selectNodeContents(node);
        var size = parseFloat(getComputedStyle(node.parentNode).fontSize);
        [].forEach.call(range.getClientRects(), function (place) {
            if (place.left < .035 * innerWidth - 1 || place.right > .965 * innerWidth + 1 ||
                place.top < .035 * innerHeight - 1 || place.bottom > .965 * innerHeight + 1 ||
                size < 4 * rem - .01) {
                found.push(node.data + JSON.stringify(place));
            }
        });
    }
    return found;
"""


@pytest.fixture(scope="module")
def status_page() -> Iterator[StatusPage]:
    with Station() as station:
        station.write_config("{}")
        station.start_web_server()
        station.use_real_browser()
        station.start_service()
        with Screen(station) as screen:
            screen.wait_until_drawn()
            yield StatusPage(station, screen)


@pytest.mark.browser
def test_page_says_what_an_installer_wants_to_know(status_page: StatusPage) -> None:
    station = status_page.station
    deliver(station, gateway.display_alert("FIRE <b>\n\x0112"))
    os.utime(station.path(GATEWAY_FILE), (1, time.time() - 200))
    status_page.open()
    status_page.wait_for_line(f"Address {UNIT_ADDRESS}")
    status_page.wait_for_line(f"Hardware {HARDWARE_ADDRESS}")
    status_page.wait_for_line(f"Gateway {gateway.GATEWAY}, learnt 3 min 2")
    status_page.wait_for_line(f"Versions service {VERSION}, page {VERSION}")
    status_page.wait_for_line('alert_area "FIRE &lt;b&gt;\\n 12"')
    status_page.wait_for_line("Time zone UTC+00:00")
    for row in ("Page alive reported ", "Running for ", "characters, written "):
        status_page.wait_for_line(row)
    assert status_page.outside() == []


@pytest.mark.browser
def test_page_notices_what_changes(status_page: StatusPage) -> None:
    station = status_page.station
    deliver(station, gateway.display_alert("FIRST"))
    status_page.open()
    status_page.wait_for_line('alert_area "FIRST"')
    deliver(station, gateway.display_alert("SECOND"))
    status_page.wait_for_line('alert_area "SECOND"')
    deliver(station, gateway.detail_alert("THIRD", {0: gateway.Unit('A"B', 1)}))
    status_page.wait_for_line('Not JSON: [{"alert_type":')
    for file in (DOCUMENT, GATEWAY_FILE):
        station.path(file).rename(station.path(file + ".away"))
    status_page.wait_for_line("Gateway none yet")
    status_page.wait_for_line("Document none yet")
    assert status_page.outside() == []
    for file in (DOCUMENT, GATEWAY_FILE):
        station.path(file + ".away").rename(station.path(file))
    status_page.wait_for_line(f"Gateway {gateway.GATEWAY}, learnt ")


@pytest.mark.browser
def test_page_keeps_the_liveness_file_fresh(status_page: StatusPage) -> None:
    file = status_page.station.path(LIVENESS_FILE)
    file.unlink(missing_ok=True)
    status_page.open()
    wait_for(file.exists, "the liveness file")
    os.utime(file, (1, time.time() - 1000))
    status_page.wait_for_line("Page alive reported 16 min 4")
    colors = "return getComputedStyle(document.getElementById('alive')).color"
    assert status_page.script(colors) == "rgb(255, 179, 0)"
    status_page.script(
        "var real = performance.now.bind(performance);"
        "performance.now = function () { return real() + 31000; };"
    )
    wait_for(lambda: file.stat().st_mtime > time.time() - 900, "a fresh liveness file")


@pytest.mark.browser
@pytest.mark.parametrize("rotation", [0, 90, 180, 270])
def test_everything_is_on_the_screen_and_legible(status_page: StatusPage, rotation: int) -> None:
    """With the longest document and the longest address of a gateway."""
    station = status_page.station
    units = {slot: gateway.Unit(f"{slot:02}" + "W" * 29, 1) for slot in range(16)}
    deliver(station, gateway.detail_alert("STRUCTURE FIRE " * 230, units))
    original = station.path(GATEWAY_FILE).read_bytes()
    station.path(GATEWAY_FILE).write_text('{"gateway_addr": "' + "W" * 1000)
    status_page.open(f"?rotation={rotation}")
    status_page.wait_for_line('show_turnout_timer "1"')
    assert "\u2026" in status_page.text()
    assert status_page.outside() == []
    station.path(GATEWAY_FILE).write_bytes(original)


@pytest.mark.browser
def test_page_elsewhere_says_that_it_gets_no_figures(status_page: StatusPage) -> None:
    status_page.screen.driver.get(STATUS_PAGE.replace("127.0.0.1", "localhost"))
    status_page.wait_for_line("Address refused: this is not the unit")
    status_page.wait_for_line(f"Versions service unknown, page {VERSION}")
    status_page.wait_for_line("Document ")
    assert status_page.outside() == []
