"""A day on the station page: what it brings, it does not leave behind."""

import http.server
import random
import threading
from collections.abc import Iterator
from dataclasses import dataclass, field
from functools import partial
from pathlib import Path
from typing import Any

import pytest
from browser_support import open_driver
from page_stage import NOW, alert_document
from selenium.webdriver.remote.webdriver import WebDriver

from simulation import kiosk
from simulation.gateway import Unit
from simulation.waiting import DEADLINE, wait_for

pytestmark = [pytest.mark.once, pytest.mark.browser, pytest.mark.slow]

_TOP = Path(kiosk.__file__).parents[1]
_MAP = (_TOP / "simulation" / "demo" / "map.svg").read_bytes()

# An alert every half an hour. Between two of them the page's clock jumps: a day at 50 times the
# speed would still take half an hour. So it has a day's alerts, updates, maps and hours, but the
# polls and drawings of minutes only.
ALERTS = 48
BETWEEN = 1800  # seconds
SPEED = 50

# For half a day. The browser keeps something of each script that it is asked to run here, and of
# what it compiles; a page that kept its documents would need twice as much.
SLACK = 120_000  # bytes

# What a poll in progress has of its own. There are 24 alerts in half a day.
FEW = 8

_FASTER = """
    (function () {
        var real = performance.now.bind(performance), began = real(), set_timeout = setTimeout;
        var real_date = Date;
        window.ahead = 0; /* milliseconds */
        performance.now = function () { return (real() - began) * %d + ahead; };
        Date = function (time) {
            return new real_date(arguments.length ? time : Date.now());
        };
        Date.now = function () { return %d + performance.now(); };
        setTimeout = function (action, delay, ...rest) {
            return set_timeout(action, delay / %d, ...rest);
        };
    }());
""" % (
    SPEED,
    NOW * 1000,
    SPEED,
)


@dataclass
class Served:
    """What the unit's web server serves, and what has been asked of it."""

    document: bytes = b""
    polls: int = 0
    signs_of_life: int = 0
    maps: set[str] = field(default_factory=set)


class _Handler(http.server.SimpleHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    disable_nagle_algorithm = True

    def __init__(self, served: Served, *arguments: Any) -> None:
        self._served = served
        super().__init__(*arguments, directory=str(_TOP / "station_web"))

    def do_GET(self) -> None:
        name = self.path.partition("?")[0]
        if name == "/alerts.json":
            self._served.polls += 1
            self._answer(200, "application/json", self._served.document)
        elif name == "/map.svg":
            self._served.maps.add(self.path)
            self._answer(200, "image/svg+xml", _MAP)
        elif name == "/map.html":
            self._served.maps.add(self.path)
            self._answer(200, "text/html", b"<p>A map")
        elif name == "/map.cgi":
            self._answer(204)
        else:
            super().do_GET()

    def do_POST(self) -> None:
        self._served.signs_of_life += 1
        self._answer(204)

    def _answer(self, status: int, kind: str = "text/plain", content: bytes = b"") -> None:
        self.send_response(status)
        self.send_header("Content-Type", kind)
        if status != 204:
            self.send_header("Content-Length", str(len(content)))
        self.end_headers()
        self.wfile.write(content)

    def log_message(self, *_: object) -> None:
        pass


@dataclass(frozen=True)
class Level:
    heap: int  # bytes of scripts, with texts outside their heap
    nodes: int
    listeners: int
    documents: int


class Day:
    def __init__(self, driver: WebDriver, served: Served, origin: str) -> None:
        self._driver = driver
        self._served = served
        self._origin = origin
        self._chosen = random.Random(1)
        self._command("Page.addScriptToEvaluateOnNewDocument", source=_FASTER)
        self._served.document = alert_document("10.87.33.50", kind="display_alert", flag=0, start=0)
        driver.set_script_timeout(DEADLINE)
        driver.get(origin + "/index.html")
        self._wait_until_drawn()

    def _command(self, name: str, **arguments: object) -> Any:
        """Of the DevTools protocol."""
        return self._driver.execute("executeCdpCommand", {"cmd": name, "params": arguments})[
            "value"
        ]

    def _wait_until(self, condition: str) -> None:
        """In the page, always by the same few scripts: the browser keeps what it is asked and what
        it answers."""
        self._driver.execute_async_script(
            "var done = arguments[0]; (function look() {"
            f"if ({condition}) {{ done(); }} else {{ requestAnimationFrame(look); }}"
            "}());"
        )

    def _wait_until_drawn(self) -> None:
        self._wait_until("station_page.drawn !== window.seen")
        self._driver.execute_script("window.seen = station_page.drawn")

    def _show(self, document: bytes) -> None:
        self._served.document = document
        self._wait_until_drawn()

    def _show_unreadable(self, document: bytes) -> None:
        self._served.document = document
        polls = self._served.polls
        wait_for(lambda: self._served.polls > polls + 2, "some polls")

    def _map(self, number: int) -> str:
        kind = "html" if number % 8 == 0 else "svg"
        return f"{self._origin}/map.{kind}?{number}"

    def _text(self, number: int) -> str:
        letters = [self._chosen.randrange(65, 91) for _ in range(1500 if number % 4 == 0 else 100)]
        return f"ALERT {number}\n" + "".join(chr(x) if x % 6 else " " for x in letters)

    def alert(self, number: int) -> None:
        """One alert from its start to its end, and the time until the next one."""
        start = int(self._driver.execute_script("return Math.floor(Date.now() / 1000)"))
        count = 16 if number % 4 == 0 else 3
        units = [Unit(f"E{number}-{slot}", slot + 1) for slot in range(count)]
        text, settings = self._text(number), {"start": start, "end": 90, "zero": 60}
        give = partial(alert_document, units=units, **settings)
        self._show(give(text))
        self._show(give(text, address=self._map(number)))
        self._wait_until("map_panel.is_shown()")
        self._show(give(text + "\nUPDATE", address=self._map(number)))
        self._show_unreadable(give(text)[:200])
        self._show(alert_document("", kind="stop_turnout", start=start))
        self._show(alert_document("", start=0))
        if number % 6 == 0:
            self._show(alert_document(f"NOTICE {number}", kind="display_alert", flag=0, start=0))
        self._driver.execute_script(f"ahead += {1000 * BETWEEN}")
        polls = self._served.polls
        wait_for(lambda: self._served.polls > polls + 2, "some polls")

    def level(self) -> Level:
        for _ in range(3):
            self._command("HeapProfiler.collectGarbage")
        counted = self._command("Memory.getDOMCounters")
        return Level(
            heap=self._driver.execute_script("return performance.memory.usedJSHeapSize"),
            nodes=counted["nodes"],
            listeners=counted["jsEventListeners"],
            documents=counted["documents"],
        )


@pytest.fixture
def web() -> Iterator[tuple[Served, str]]:
    served = Served()
    handler = partial(_Handler, served)
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler) as server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        try:
            yield served, f"http://127.0.0.1:{server.server_port}"
        finally:
            server.shutdown()


def test_day_leaves_nothing_behind(web: tuple[Served, str]) -> None:
    served, origin = web
    levels = []
    with open_driver("--enable-precise-memory-info") as driver:
        day = Day(driver, served, origin)
        for number in range(1, ALERTS + 1):
            day.alert(number)
            if number % (ALERTS // 4) == 0:
                levels.append(day.level())
    assert len(served.maps) == ALERTS
    assert served.polls > 10 * ALERTS
    assert served.signs_of_life > ALERTS
    early, late = levels[1], levels[-1]
    assert late.heap < early.heap + SLACK, levels
    assert late.nodes < early.nodes + FEW, levels
    assert late.listeners < early.listeners + FEW, levels
    assert late.documents < early.documents + FEW, levels
