"""A station whose browser has an old engine, about the age of the board's."""

import base64
import contextlib
import json
import socket
from collections.abc import Iterator
from pathlib import Path
from typing import Any

from simulation.gateway import deliver
from simulation.station import Station
from simulation.waiting import DEADLINE, wait_for

PROGRAM = Path(__file__).with_name("webkit_kiosk.py")
PORT = 9333  # where it listens

# The page maps bytes above ASCII to private-use characters.
DRAWN = "(typeof station_page === 'object' && station_page.drawn)"


class OldBrowser:
    """The browser that the service started last. Use it in a with statement."""

    def __init__(self, station: Station) -> None:
        self.station = station
        self._connection: socket.socket | None = None

    def __enter__(self) -> "OldBrowser":
        return self

    def __exit__(self, *_: object) -> None:
        if self._connection:
            self._connection.close()
            self._connection = None

    def _connect(self) -> socket.socket:
        with self.station.in_unit():
            return socket.create_connection(("127.0.0.1", PORT), DEADLINE)

    def _exchange(self, request: bytes) -> bytes:
        """Empty while there is no browser, for example because the service is restarting it."""
        answer = b""
        with contextlib.suppress(ConnectionError):
            self._connection = self._connection or self._connect()
            self._connection.sendall(request)
            while not answer.endswith(b"\n"):
                part = self._connection.recv(65536)
                if not part:
                    raise ConnectionResetError
                answer += part
            return answer
        self.__exit__()
        return b""

    def _ask(self, action: str, value: object = "") -> Any:
        request = json.dumps({action: value}).encode() + b"\n"
        return json.loads(wait_for(lambda: self._exchange(request), "an answer from the browser"))

    def evaluate(self, script: str) -> Any:
        """The value of an expression, as JSON would keep it."""
        text = self._ask("evaluate", f"JSON.stringify({script})")
        return json.loads(text) if text else None

    def resize(self, width: int, height: int) -> None:
        self._ask("resize", [width, height])

    def picture(self) -> bytes:
        return base64.b64decode(self._ask("picture"))

    def pixel(self, x: float, y: float) -> str:
        """The color of a point on the screen, such as "#ff0000"."""
        return str(self._ask("pixel", [x, y]))

    def complaints(self) -> list[str]:
        """What the engine says on its console."""
        return list(self._ask("complaints"))

    def has_drawn_document(self) -> bool:
        content = self.station.document_text().encode(errors="surrogateescape")
        text = "".join(chr(byte if byte < 0x80 else 0xF700 + byte) for byte in content)
        return bool(self.evaluate(DRAWN) == text)

    def deliver(self, message: bytes) -> None:
        deliver(self.station, message)
        wait_for(self.has_drawn_document, f"on the screen: {self.station.document_text()}")

    def of(self, name: str, function: str) -> Any:
        """What a function returns for a page element."""
        return self.evaluate(f"({function})(document.getElementById('{name}'))")

    def text(self, name: str) -> str:
        """The text of a page element; empty while it is hidden."""
        is_seen = "getComputedStyle(e).visibility === 'visible' && e.offsetWidth > 0"
        return str(self.of(name, f"function (e) {{ return {is_seen} ? e.textContent : ''; }}"))


@contextlib.contextmanager
def old_browser() -> Iterator[OldBrowser]:
    with Station(programs={"webkit-kiosk": PROGRAM}) as station:
        station.write_config("{}")
        station.start_web_server()
        station.use_real_browser("webkit-kiosk")
        station.start_service()
        with OldBrowser(station) as browser:
            wait_for(browser.has_drawn_document, "the idle page")
            yield browser
