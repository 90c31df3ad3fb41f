"""A guest page: another machine's, in a frame of one that reports that it is alive."""

import os
from collections.abc import Iterator
from typing import Any
from urllib.parse import quote

import pytest
from selenium.webdriver.remote.webdriver import WebDriver

from simulation import gateway
from simulation.gateway import GATEWAY, deliver
from simulation.places import LIVENESS_FILE
from simulation.screen import Screen
from simulation.station import Station
from simulation.waiting import wait_for

pytestmark = [pytest.mark.once, pytest.mark.browser]

OWN = "http://127.0.0.1/station_web/"

PAGES = {
    "plain.html": "<p id=name>plain</p><script>document.title = 'its scripts run'</script>",
    "query.html": "<p id=name></p><script>"
    "document.getElementById('name').textContent = location.search</script>",
    "rude.html": "<p id=name>rude</p><script>"
    "try { top.location = '/plain.html'; } catch (error) { document.title = 'cannot'; }</script>",
    "back.html": f"<p>back</p><script>location = '{OWN}'</script>",
}


def guest(address: str) -> str:
    return OWN + "guest.html?u=" + quote(address, safe="")


class Guests:
    """A station whose browser shows guest pages, which are on the gateway."""

    def __init__(self, station: Station, screen: Screen, requests: list[str]) -> None:
        self.station = station
        self.screen = screen
        self.requests = requests

    @property
    def driver(self) -> WebDriver:
        return self.screen.driver

    def show(self, name: str, suffix: str = "") -> None:
        self.driver.get(guest(f"http://{GATEWAY}/{name}") + suffix)

    def script(self, text: str, *arguments: object) -> Any:
        return self.driver.execute_script(text, *arguments)

    def in_frame(self, text: str, *arguments: object) -> Any:
        """What a script in the guest page returns."""
        self.driver.switch_to.frame(0)
        try:
            return self.driver.execute_script(text, *arguments)
        finally:
            self.driver.switch_to.default_content()

    def name(self) -> Any:
        return self.in_frame("var e = document.getElementById('name'); return e && e.textContent")


@pytest.fixture(scope="module")
def guests(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Guests]:
    directory = tmp_path_factory.mktemp("guests")
    for name, text in PAGES.items():
        (directory / name).write_text("<!DOCTYPE html><html><body>" + text)
    with Station() as station:
        station.write_config("{}")
        station.start_web_server()
        station.use_real_browser()
        station.start_service()
        with gateway.web_server(station, directory) as requests, Screen(station) as screen:
            screen.wait_until_drawn()
            yield Guests(station, screen, requests)


def test_guest_asked_for_by_the_gateway_fills_the_turned_screen(guests: Guests) -> None:
    station = guests.station
    browsers = len(station.calls("qt-webkit-kiosk"))
    # Each browser has to have started before the next one replaces it.
    deliver(station, gateway.hdtv_settings(1))
    station.wait_for_calls("qt-webkit-kiosk", browsers + 1)
    station.path(LIVENESS_FILE).unlink(missing_ok=True)
    address = guest(f"http://{GATEWAY}/query.html?a=1&b=%22x%22?c")
    deliver(station, gateway.set_page_address(address))
    calls = station.wait_for_calls("qt-webkit-kiosk", browsers + 2)
    assert calls[-1].argv[-1] == address + "?rotation=90"
    wait_for(lambda: guests.script("return frames.length") == 1, "the guest page")
    wait_for(lambda: guests.name() == "?a=1&b=%22x%22?c", "its query")
    assert guests.in_frame("return [innerWidth, innerHeight]") == [720, 1280]
    box = "var box = document.getElementsByTagName('iframe')[0].getBoundingClientRect();"
    assert guests.script(box + "return [box.left, box.top, box.width, box.height]") == [
        *(0, 0, 1280, 720)
    ]
    wait_for(station.path(LIVENESS_FILE).exists, "a sign of life")
    deliver(station, gateway.hdtv_settings(0))
    station.wait_for_calls("qt-webkit-kiosk", browsers + 3)
    deliver(station, gateway.display_alert("FIRE"))
    station.wait_for_calls("qt-webkit-kiosk", browsers + 4)
    guests.screen.wait_until_drawn()
    deliver(station, gateway.display_alert(""))


def test_guest_keeps_its_scripts_and_its_origin(guests: Guests) -> None:
    guests.show("plain.html")
    wait_for(lambda: guests.name() == "plain", "the guest page")
    assert guests.in_frame("return document.title") == "its scripts run"
    assert guests.in_frame("return window.origin") == f"http://{GATEWAY}"


def test_guest_with_the_longest_address_gets_through_to_the_page(guests: Guests) -> None:
    """As long as gatewayctl sends one."""
    begin = f"http://{GATEWAY}/query.html?"
    query = "x" * (3000 - len(quote(begin, safe="")))
    guests.show("query.html?" + query, "?rotation=180")
    wait_for(lambda: guests.name() == "?" + query, "its query")


def test_guest_cannot_take_the_heartbeats_place(guests: Guests) -> None:
    guests.show("rude.html")
    wait_for(lambda: guests.name() == "rude", "the guest page")
    assert guests.in_frame("return document.title") == "cannot"
    assert "guest.html" in guests.driver.current_url


def test_guest_cannot_become_a_page_of_the_unit(guests: Guests) -> None:
    guests.requests.clear()
    guests.show("back.html")
    wait_for(lambda: "/back.html" in guests.requests, "the guest page")
    changed = "return location.href.indexOf('back.html') < 0 && document.readyState === 'complete'"
    wait_for(lambda: guests.in_frame(changed), "its next page")
    assert guests.in_frame("return document.getElementById('page') === null")


@pytest.mark.parametrize(
    "address",
    [
        "http://127.0.0.1/station_web/",
        "http://127.0.0.1:9222/",
        "HTTP://LOCALHOST/",
        "https://page.localhost./x",
        "http://2130706433/",
        "http://0x7f.1/",
        "http://0/",
        "http://[::1]/",
        "http://[::ffff:127.0.0.1]/",
        "http://x@127.0.0.1/",
        "http:///127.0.0.1/",
        "javascript:alert(1)",
        "data:text/html,<p>x",
        "file:///etc/passwd",
        "ftp://10.87.33.20/plain.html",
        "//10.87.33.20/plain.html",
        "plain.html",
        "http://",
        "",
    ],
)
def test_any_other_address_is_named_and_not_framed(guests: Guests, address: str) -> None:
    guests.driver.get(guest(address))
    words = guests.screen.text("words")
    assert words.endswith(address or "percent-encoded.")
    assert guests.script("return frames.length") == 0


@pytest.mark.parametrize("query", ["", "?u=%E0%A4", "?u=", "?rotation=180"])
def test_page_without_an_address_says_what_it_needs(guests: Guests, query: str) -> None:
    guests.driver.get(OWN + "guest.html" + query)
    assert guests.screen.text("words").startswith("This page needs an address")


def test_words_are_inside_the_safe_area(guests: Guests) -> None:
    guests.driver.get(guest("ftp://" + "x" * 300) + "?rotation=270")
    box = "var box = document.getElementById('words').getBoundingClientRect();"
    left, top, right, bottom = guests.script(
        box + "return [box.left, box.top, box.right, box.bottom]"
    )
    assert left >= 0.035 * 1280 - 1 and right <= 0.965 * 1280 + 1
    assert top >= 0.035 * 720 - 1 and bottom <= 0.965 * 720 + 1


def test_page_is_alive_only_while_it_draws(guests: Guests) -> None:
    file = guests.station.path(LIVENESS_FILE)
    guests.show("plain.html")
    file.unlink(missing_ok=True)
    guests.script(
        "var real = performance.now.bind(performance);"
        "performance.now = function () { return real() + 31000; };"
    )
    wait_for(file.exists, "a sign of life")
    # From now on the browser does not draw; the page's clock runs on.
    guests.script("window.requestAnimationFrame = function () { window.has_stopped = true; };")
    wait_for(lambda: guests.script("return window.has_stopped"), "the last drawing")
    guests.script(
        "var real = performance.now.bind(performance);"
        "performance.now = function () { return real() + 62000; };"
        "var ticks = 0; setInterval(function () { window.ticks = ticks += 1; }, 250);"
    )
    os.utime(file, (1, 1))
    wait_for(lambda: guests.script("return window.ticks >= 6"), "the time of six drawings")
    assert file.stat().st_mtime == 1
