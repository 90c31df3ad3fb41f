"""A station with a console, as the tests open it."""

import contextlib
import json
import re
import urllib.error
import urllib.request
from collections.abc import Iterator
from dataclasses import dataclass
from typing import Any

import pytest

from simulation import gateway
from simulation.console.server import Console
from simulation.demo.timeline import Timeline
from simulation.handles import Handles
from simulation.station import Station
from simulation.television import ON, Television
from simulation.waiting import wait_for


@dataclass(frozen=True)
class Answer:
    status: int
    text: str
    headers: dict[str, str]

    @property
    def error(self) -> str:
        return str(json.loads(self.text)["error"])


@dataclass(frozen=True)
class Bench:
    """All of a running station, and its console."""

    station: Station
    television: Television
    handles: Handles
    console: Console

    @property
    def token(self) -> str:
        found = re.search(r'X-Station-Token: ([^"]+)"', self.console.key.read_text())
        assert found
        return found[1]

    def ask(
        self, path: str, body: bytes | None = None, method: str | None = None, **headers: str
    ) -> Answer:
        """Header names are written with underscores."""
        request = urllib.request.Request(
            self.console.address.rstrip("/") + path,
            body,
            {name.replace("_", "-"): value for name, value in headers.items()},
            method=method,
        )
        try:
            with urllib.request.urlopen(request, timeout=30) as answer:
                return Answer(answer.status, answer.read().decode(), dict(answer.headers))
        except urllib.error.HTTPError as error:
            return Answer(error.code, error.read().decode(), dict(error.headers))

    def post(self, path: str, **values: Any) -> Answer:
        headers = {"X_Station_Token": self.token, "Content_Type": "application/json"}
        return self.ask(path, json.dumps(values).encode(), **headers)

    def do(self, path: str, **values: Any) -> None:
        answer = self.post(path, **values)
        assert answer.status == 200, answer.text

    def state(self) -> dict[str, Any]:
        return dict(json.loads(self.ask("/state").text))

    def events(self) -> list[str]:
        """Source and text of each."""
        return [f"{event.source}: {event.text}" for event in self.handles.events.since()]


@contextlib.contextmanager
def open_bench(name: str = "", has_browser: bool = False) -> Iterator[Bench]:
    """The service is idle when this returns. Without a real browser it has a stand-in."""
    with contextlib.ExitStack() as stack:
        station = stack.enter_context(Station(name=name))
        records = stack.enter_context(gateway.record_listener(station))
        television = stack.enter_context(Television(station, power=ON, tv_input=0x2000))
        station.write_config(f'{{"comm_gw":"{gateway.GATEWAY}"}}')
        station.start_web_server()
        if has_browser:
            station.use_real_browser()
        handles = Handles(station, television, records)
        service = handles.unit.start_service()
        timeline = Timeline(
            station, service, records, television, open("/dev/null", "w"), handles.events
        )
        handles.unit.listen_to_service(timeline.follow)
        stack.enter_context(timeline)
        station.wait_for_calls("qt-webkit-kiosk")
        console = stack.enter_context(Console(station, handles))
        yield Bench(station, television, handles, console)


@pytest.fixture(scope="module")
def shared() -> Iterator[Bench]:
    with open_bench() as opened:
        yield opened


@pytest.fixture
def bench(shared: Bench) -> Iterator[Bench]:
    """The same for all, and behaving well before each."""
    yield shared
    shared.handles.undo_all()


def wait_for_document(bench: Bench, **members: str) -> None:
    wait_for(lambda: members.items() <= bench.handles.view.document().items(), str(members))
