"""A station whose browser shows the page, and its web server."""

import contextlib
import os
import urllib.error
import urllib.request
from collections.abc import Iterator
from dataclasses import dataclass
from typing import Any


from simulation.gateway import deliver
from simulation.process import Process
from simulation.screen import Screen
from simulation.station import Station
from simulation.waiting import wait_for


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

    def load(self, *names: str) -> None:
        """Scripts and style sheets of the page's directory, whether the page uses them or not."""
        for name in names:
            self.screen.driver.execute_async_script(
                """
                var name = arguments[0], done = arguments[1], is_script = /js$/.test(name),
                    made = document.createElement(is_script ? 'script' : 'link');
                made.rel = 'stylesheet';
                made[is_script ? 'src' : 'href'] = name;
                made.onload = function () { done(); };
                document.head.appendChild(made);""",
                name,
            )

    def let_time_pass(self, seconds: float) -> None:
        """For the page: puts its clock ahead from now on."""
        self.script(
            "var real = performance.now.bind(performance), ahead = 1000 * arguments[0];"
            "performance.now = function () { return real() + ahead; };",
            seconds,
        )

    def wait_for_drawings(self, count: int = 4) -> None:
        """Until the page has drawn this many more times."""
        self.script(
            "window.drawings = 0; var drift = view.drift;"
            "view.drift = function (seconds) { window.drawings += 1; drift(seconds); };"
        )
        wait_for(lambda: self.script("return window.drawings") >= count, f"{count} drawings")

    def processor_seconds(self) -> float:
        """The processor time that the browser has used so far."""
        ticks = 0
        for process in self.station.path("/proc").iterdir():
            with contextlib.suppress(OSError):
                name, _, fields = (process / "stat").read_text().rpartition(") ")
                if name.endswith("(chromium"):
                    ticks += int(fields.split()[11])
        return ticks / os.sysconf("SC_CLK_TCK")


def show(
    station: Station, environment: dict[str, str] | None = None, browser: str = "kiosk"
) -> Iterator[Shown]:
    server = station.start_web_server()
    station.use_real_browser(browser)
    station.start_service(environment=environment)
    with Screen(station) as screen:
        screen.wait_until_drawn()
        yield Shown(station, server, screen)


def request(port: int, path: str, **settings: Any) -> int:
    address = f"http://127.0.0.1:{port}/station_web/{path}"
    try:
        with urllib.request.urlopen(urllib.request.Request(address, **settings)) as answer:
            return int(answer.status)
    except urllib.error.HTTPError as error:
        return error.code
