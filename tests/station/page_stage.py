"""The station page alone in a real browser: documents are given to it by hand, and its time is ours."""

import contextlib
import functools
import http.server
import itertools
import re
import threading
from collections.abc import Iterator, Sequence
from pathlib import Path
from typing import Any

from browser_support import Browser, open_driver
from selenium.webdriver.remote.webdriver import WebDriver

from simulation import kiosk
from simulation.gateway import Unit
from simulation.waiting import DEADLINE, wait_for

_TOP = Path(kiosk.__file__).parents[1]
_PAGE = _TOP / "station_web"
_MAP = _TOP / "simulation" / "demo" / "map.svg"
_AUDIT = Path(__file__).with_name("page_audit.js").read_text()

NOW = 1_800_000_000  # seconds since 1970, when a page is opened

# Before the page's own scripts. Its time stands still until a test
# lets it pass, while its drawing loop runs as often as the browser draws.
_PREPARATION = """
    if (location.hash !== '#polling') {
        window.station_preview = {search: location.search};
    }
    (function () {
        var set_timeout = setTimeout, real_date = Date;
        window.ahead = 0; /* milliseconds */
        window.clock_set_by = 0;
        performance.now = function () { return ahead; };
        Date = function (time) {
            return new real_date(arguments.length ? time : Date.now());
        };
        Date.now = function () { return %d + performance.now() + clock_set_by; };
        setTimeout = function (action, delay, ...rest) {
            return set_timeout(action, delay / 25, ...rest);
        };
    }());
""" % (
    NOW * 1000
)


_copies = itertools.count()


class _Files(http.server.SimpleHTTPRequestHandler):
    missing: set[str] = set()
    missing_once: set[str] = set()
    released = threading.Event()

    def do_GET(self) -> None:
        if self.path.endswith("?wait"):
            self.released.wait(DEADLINE)
        name = self.path.strip("/")
        if name in self.missing | self.missing_once:
            self.missing_once.discard(name)
            self.send_error(503)
        else:
            super().do_GET()

    def translate_path(self, path: str) -> str:
        path = re.sub(r"^/copy\d+/", "/", path)
        return str(_MAP) if "map.svg" in path else super().translate_path(path)

    def log_message(self, *_: object) -> None:
        pass


class Stage(Browser):
    """A browser on which the page can be opened at any size."""

    def __init__(self, driver: WebDriver, port: int) -> None:
        super().__init__(driver, port)
        self.command("Page.addScriptToEvaluateOnNewDocument", {"source": _PREPARATION})

    @property
    def map_address(self) -> str:
        return f"{self.origin}/map.svg"

    def open(
        self, width: int = 1280, height: int = 720, search: str = "", page: str = "index.html"
    ) -> None:
        """It remembers nothing of the pages before."""
        self.forget()
        self.resize(width, height)
        self._driver.get(f"{self.origin}/{page}{search}")

    def miss(self, *files: str) -> None:
        """From now on the web server cannot serve these."""
        _Files.missing = set(files)

    def copy_without(self, file: str) -> str:
        """The folder of a copy of the page of which the browser has kept nothing. The web server cannot
        serve this file when it is asked for it first."""
        folder = f"copy{next(_copies)}"
        _Files.missing_once.add(f"{folder}/{file}")
        return folder

    def has_missed(self, folder: str) -> bool:
        """Whether the web server has been asked for the copy's missing file."""
        return not any(name.startswith(f"{folder}/") for name in _Files.missing_once)

    def release(self) -> None:
        """The answers to addresses that end in "?wait"."""
        _Files.released.set()

    def wait_script(self, text: str, *arguments: object) -> Any:
        """Until it calls its last argument."""
        return self._driver.execute_async_script(text, *arguments)

    def give(self, document: bytes) -> None:
        """The page has drawn it when this returns."""
        text = document.decode("latin-1")
        self.script("station_page.give(arguments[0])", text)
        wait_for(lambda: bool(self.script("return station_page.drawn") == text), "the document")

    def let_time_pass(self, seconds: float) -> None:
        """The page has drawn again when this returns."""
        self.script("ahead += 1000 * arguments[0]", seconds)
        self.wait_for_drawing()

    def wait_for_drawing(self) -> None:
        self.wait_script(
            """
            var done = arguments[0], draw = view.draw;
            view.draw = function (date, news) {
                draw(date, news);
                view.draw = draw;
                done();
            };"""
        )

    def wait_for_map(self) -> None:
        wait_for(lambda: bool(self.script("return map_panel.is_shown()")), "the map")
        self.wait_for_drawing()

    def units(self) -> list[str]:
        tiles = self._driver.find_elements("class name", "unit")
        return [tile.text for tile in tiles if tile.is_displayed()]

    def size(self, name: str) -> float:
        """An element's font size in rem."""
        script = """
            function size(e) { return parseFloat(getComputedStyle(e).fontSize); }
            return size(document.getElementById(arguments[0])) / size(document.documentElement)"""
        return float(self.script(script, name))

    def faults(self, text: str = "", safe: float = 3.5) -> list[str]:
        return list(self.script(_AUDIT, safe, text))


@contextlib.contextmanager
def open_stage() -> Iterator[Stage]:
    handler = functools.partial(_Files, directory=str(_PAGE))
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler) as server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        with open_driver() as driver:
            yield Stage(driver, server.server_port)
        server.shutdown()


# In the service's order, which prevents double escaping.
_ESCAPES = [
    *((b"&", b"&amp;"), (b"<", b"&lt;"), (b">", b"&gt;"), (b'"', b"&quot;"), (b"\\", b"\\\\")),
    *((b"/", b"\\/"), (b"\b", b"\\b"), (b"\f", b"\\f"), (b"\n", b"\\n"), (b"\r", b"\\r")),
    (b"\t", b"\\t"),
]


def alert_document(
    text: str | bytes,
    units: Sequence[Unit] = (),
    *,
    kind: str = "hdtv_alert",
    flag: int = 1,
    start: int = NOW,
    turnout: int = 120,
    end: int = 0,
    zero: int = 0,
    reverse: int = 0,
    address: str | bytes = "",
) -> bytes:
    """As the service writes it: neither the address nor the names are escaped."""
    area = text.encode() if isinstance(text, str) else text
    for find, replacement in _ESCAPES:
        area = area.replace(find, replacement)
    where = address.encode() if isinstance(address, str) else address
    entries = [b'{"unit":"%s","color":"%d"}' % (_name(unit), unit.color) for unit in units]
    return (
        b'[{"alert_type":"%s", "show_turnout_timer":"%d", "alert_time":"%d", '
        b'"turnout_end":"%d", "turnout_zero":"%d", "turnout_reverse":"%d", '
        b'"alert_expiration":"%d", "alert_area":"%s", "map_url":"%s", "units":[%s]}]'
    ) % (
        *(kind.encode(), flag, start, end, zero, reverse, (start + turnout) % 2**32),
        *(area, where, b",".join(entries)),
    )


def _name(unit: Unit) -> bytes:
    name = unit.name.encode() if isinstance(unit.name, str) else unit.name
    return name[:31]
