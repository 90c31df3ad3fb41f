"""Scenarios: what is done to a station, and what has to be seen then (docs/workbench.md).

    from simulation import gateway
    from simulation.scenario import Scene, Setup

    SETUP = Setup(tv_power="on", tv_input="3.0.0.0")


    def play(scene: Scene) -> None:
        scene.send("a drill", gateway.display_alert("DRILL"))
        scene.expect_tv("on", "1.0.0.0")
        scene.expect_document(alert_area="DRILL")
"""

import contextlib
import importlib.util
import threading
import time
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from simulation.gateway import GATEWAY
from simulation.handle_error import HandleError
from simulation.handles import Handles
from simulation.places import UNIT_ADDRESS
from simulation.station import Station
from simulation.waiting import wait_for

DIRECTORY = Path(__file__).with_name("scenarios")
DEADLINE = 10.0  # seconds for what is expected, unless a scenario says otherwise
HARDWARE_LIMIT = 15.0  # seconds without a kick until the board's watchdog resets it

# Not less: on a busy machine the service may be held up for as long.
_SHORTEST_LIMIT = 3.0

_LONGEST_START = 5.0
_BROWSER = "qt-webkit-kiosk"
_CLOCK_LIBRARY = "/usr/$LIB/faketime/libfaketime.so.1"

Seen = Callable[[], object]  # what it returns counts as true or false


@dataclass(frozen=True)
class Setup:
    """How the station is when the service starts."""

    address: str | None = UNIT_ADDRESS  # of the unit; None: it has none yet
    tv_power: str = "in standby"  # or "on"
    tv_input: str = "2.0.0.0"
    tv_wake_delay: float = 1.2  # seconds
    tv_is_deaf: bool = False
    configuration: str = f'{{"comm_gw":"{GATEWAY}"}}'
    # How many times as fast the unit's time runs: its seconds and its clock, not the television's.
    speed: float = 1.0


def speed_environment(speed: float) -> dict[str, str]:
    """What the service is started with so that its time runs this fast."""
    if speed == 1:
        return {}
    return {"LD_PRELOAD": _CLOCK_LIBRARY, "FAKETIME": f"+0 x{speed:g}", "NO_FAKE_STAT": "1"}


class NotObserved(Exception):
    """A scenario has not gone as it should; the text says what is missing."""


@dataclass
class Scene:
    """The station, as a scenario handles it and looks at it.

    Each send, do, expect and stays is a step: it returns when its effect has been observed, and
    raises NotObserved if that takes too long.
    """

    station: Station
    handles: Handles
    setup: Setup = field(default_factory=Setup)
    # Called after each step with its words, and whether they are still to be told.
    after_step: Callable[[str, bool], None] = lambda words, is_untold: None
    steps: int = 0
    kicks_before_reset: int = 0  # of the watchdog, at the last expect_reset

    def __post_init__(self) -> None:
        self.tv = self.handles.tv
        self.gateway = self.handles.gateway
        self.unit = self.handles.unit
        self.view = self.handles.view

    def wait_for_start(self) -> None:
        """The unit's start ends with its browser's. A scenario itself notices if it does not come."""
        with contextlib.suppress(TimeoutError):
            wait_for(lambda: self.calls(_BROWSER), "the browser", _LONGEST_START)

    # Steps.

    def send(
        self,
        words: str,
        message: bytes,
        seen: Seen | None = None,
        is_datagram: bool = False,
        deadline: float = DEADLINE,
        source: str = GATEWAY,
    ) -> None:
        """The gateway sends a message; simulation.gateway builds them."""
        try:
            self.gateway.send(message, words, is_datagram, source, deadline)
        except HandleError as error:
            raise NotObserved(f"{words} ({error})") from error
        self._observe(words, seen, deadline)
        self._finish(words, is_untold=False)

    def do(
        self,
        words: str,
        action: Callable[[], object],
        seen: Seen | None = None,
        deadline: float = DEADLINE,
    ) -> None:
        """Something else is done, such as scene.tv.turn_off."""
        action()
        self._observe(words, seen, deadline)
        self._finish(words)

    def expect(self, words: str, seen: Seen, deadline: float = DEADLINE) -> None:
        self._observe(words, seen, deadline)
        self._finish(words)

    def stays(self, words: str, holds: Seen, seconds: float) -> None:
        """What holds now does so all the time."""
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            if not holds():
                raise NotObserved(f"{words}: not for {seconds:g} s")
            time.sleep(0.01)
        self._finish(words)

    def say(self, text: str) -> None:
        self.handles.events.add("station", text)

    def pause(self, seconds: float) -> None:
        threading.Event().wait(seconds)

    # Frequent expectations.

    def expect_document(self, deadline: float = DEADLINE, **members: object) -> None:
        """The alert document has these members, such as alert_area="FIRE"."""
        told = ", ".join(f"{name} {value!r}" for name, value in members.items())
        self.expect(f"the document has {told}", lambda: self.has_document(**members), deadline)

    def expect_tv(self, power: str, tv_input: str, deadline: float = DEADLINE) -> None:
        """Such as "on", "1.0.0.0"."""
        self.expect(
            f"the television is {power}, input {tv_input}",
            lambda: self.tv_is(power, tv_input),
            deadline,
        )

    def expect_records(
        self, *codes: int, since: int | None = None, deadline: float = DEADLINE
    ) -> None:
        """The last records that the gateway has received (2, 39 and 47, see docs/protocol.md), or
        those after as many as since."""
        told = ", ".join(map(str, codes))
        self.expect(
            f"the gateway has received {told}",
            lambda: self.has_received(*codes, since=since),
            deadline,
        )

    def expect_call(self, *argv: str, deadline: float = DEADLINE) -> None:
        """The unit has started a tool with these arguments, the first of which is its name."""
        self.expect(
            f"the unit has started {' '.join(argv)}",
            lambda: list(argv) in self.calls(argv[0]),
            deadline,
        )

    def expect_reset(self, longest_wait: float = 60.0) -> None:
        """The service stops kicking the board's watchdog, for as long as that waits; then the unit
        is reset, as the watchdog would do it. The last kick comes within longest_wait seconds."""
        limit = max(HARDWARE_LIMIT / self.setup.speed, _SHORTEST_LIMIT)
        start = time.monotonic()
        last, self.kicks_before_reset = start, self.view.kicks()
        while time.monotonic() < last + limit:
            if self.view.kicks() != self.kicks_before_reset:
                last, self.kicks_before_reset = time.monotonic(), self.view.kicks()
            if last > start + longest_wait:
                raise NotObserved("the watchdog is kicked no more")
            time.sleep(0.01)
        browsers = len(self.calls(_BROWSER))
        self.do(
            "the watchdog has reset the board: it was kicked no more",
            self.unit.reset,
            lambda: len(self.calls(_BROWSER)) > browsers,
        )

    # What can be looked at, besides view.

    def document(self) -> dict[str, Any]:
        return self.view.document()

    def has_document(self, **members: object) -> bool:
        document = self.document()
        return all(document.get(name) == value for name, value in members.items())

    def tv_is(self, power: str, tv_input: str) -> bool:
        return (self.tv.power, self.tv.input) == (power, tv_input)

    def records(self) -> list[int]:
        """The codes of all that the gateway has received."""
        return [record[0] for record in self.gateway.received() if record]

    def has_received(self, *codes: int, since: int | None = None) -> bool:
        """Whether these are the last, or those after as many as since."""
        records = self.records()
        first = len(records) - len(codes) if since is None else since
        return records[max(first, 0) :][: len(codes)] == list(codes)

    def calls(self, tool: str) -> list[list[str]]:
        """How the unit has started a tool so far, oldest first: its name and its arguments."""
        return [call.argv for call in self.station.calls(tool)]

    def service_output(self) -> str:
        """What the service has printed since its last start."""
        return self.view.service.output if self.view.service else ""

    def _observe(self, words: str, seen: Seen | None, deadline: float) -> None:
        try:
            wait_for(lambda: self._has_ended() or not seen or seen(), words, deadline)
        except OSError as error:  # includes TimeoutError
            raise NotObserved(f"{words} ({error})") from error
        if self._has_ended() and self.view.service:
            status = self.view.service.wait()
            raise NotObserved(f"{words} (the service has ended with status {status})")

    def _has_ended(self) -> bool:
        service = self.view.service
        return service is not None and not service.is_running()

    def _finish(self, words: str, is_untold: bool = True) -> None:
        self.steps += 1
        self.after_step(words, is_untold)


@dataclass(frozen=True)
class Scenario:
    title: str
    setup: Setup
    play: Callable[[Scene], None]


class ScenarioError(Exception):
    """The file is no scenario; the text says why."""


def load(name: str) -> Scenario:
    """By its file, or one of those that come along by its name."""
    path = Path(name)
    if not path.exists() and path.name == name:
        path = DIRECTORY / f"{name.replace('-', '_')}.py"
    if not path.is_file():
        raise ScenarioError(
            f"There is no scenario {name}. Those that come along: {', '.join(names())}."
        )
    spec = importlib.util.spec_from_file_location(path.stem, path)
    if spec is None or spec.loader is None:
        raise ScenarioError(f"{name} is no scenario: it is not a Python file.")
    module = importlib.util.module_from_spec(spec)
    try:
        spec.loader.exec_module(module)
    except SyntaxError as error:
        raise ScenarioError(f"{name} is no scenario: {error}.") from error
    play = getattr(module, "play", None)
    if not callable(play):
        raise ScenarioError(f"{name} is no scenario: it has no function play(scene).")
    return Scenario(path.stem.replace("_", "-"), getattr(module, "SETUP", Setup()), play)


def names() -> list[str]:
    """Of those that come along."""
    files = sorted(path.stem for path in DIRECTORY.glob("*.py") if path.stem != "__init__")
    return [stem.replace("_", "-") for stem in files]
