"""Writes what happens in a station as a scenario that can be run again.

What is done through the handles becomes what the scenario does. What could then be seen, up to the
next thing that was done, becomes what it expects. The times of day in documents are left out, and
so are the tools that the service starts every 30 seconds.
"""

import ast
import contextlib
import functools
import inspect
import threading
import time
from pathlib import Path
from typing import Any, cast

from simulation.gateway import GATEWAY, message_name
from simulation.handles import GatewayHandles, Handles, TelevisionHandles
from simulation.message_source import source_of
from simulation.scenario import Setup
from simulation.station import Station, StationError
from simulation.unit_handles import UnitHandles

_SHORTEST_PAUSE = 0.1
_LINE = 100

# What the handles offer that changes nothing.
_LOOKS = frozenset(
    "state received broken listen_to_service wait_until_service_ends start_service".split()
)
_PERIODIC = frozenset(["tvservice", "ifconfig", "lsusb"])
_TIMES = frozenset(["alert_time", "alert_expiration"])

_HEADER = '''\
"""Recorded by ./scripts/station --record on {date}."""

from simulation import gateway
from simulation.gateway import Unit
from simulation.scenario import Scene, Setup

{setup}


def play(scene: Scene) -> None:
    """As it happened."""
'''


class Recorder:
    """From its start on, the handles record what is done through them. Use it in a with statement:
    at its end it adds what the last deed has led to. The file is a whole scenario at any time."""

    def __init__(self, path: Path, station: Station, handles: Handles, setup: Setup) -> None:
        self._station = station
        self._handles = handles
        self._lock = threading.Lock()
        self._last = time.monotonic()
        self._document: dict[str, Any] = {}
        self._television: tuple[str, str] = (setup.tv_power, setup.tv_input)
        self._calls = 0
        self._records = 0
        try:
            self._file = path.open("w", encoding="utf-8")
        except OSError as error:
            raise StationError(f"{path} cannot be written: {error.strerror}.") from error
        date = time.strftime("%Y-%m-%d at %H:%M")
        self._file.write(_HEADER.format(date=date, setup=_laid_out(f"SETUP = {setup!r}", 0)))
        self._file.flush()
        handles.tv = cast(TelevisionHandles, _Recorded(handles.tv, "tv", self))
        handles.gateway = cast(GatewayHandles, _Recorded(handles.gateway, "gateway", self))
        handles.unit = cast(UnitHandles, _Recorded(handles.unit, "unit", self))

    def __enter__(self) -> "Recorder":
        return self

    def __exit__(self, *_: object) -> None:
        self.add_effects()
        self._file.close()

    def add_message(self, message: bytes, words: str, is_datagram: bool, source: str) -> None:
        """That somebody else's gateway sends."""
        self.add_effects()
        self.add_deed(_send(message, words, is_datagram, source))

    def add_deed(self, line: str) -> None:
        with self._lock:
            self._write(line)
            self._last = time.monotonic()

    def add_effects(self) -> None:
        """What can be seen now and could not before."""
        with self._lock:
            pause = time.monotonic() - self._last
            if pause >= _SHORTEST_PAUSE:
                self._write(f"scene.pause({pause:.1f})")
            self._add_calls()
            self._add_document()
            self._add_television()
            self._add_records()
            self._last = time.monotonic()

    def _add_calls(self) -> None:
        calls = self._station.calls()
        for call in calls[self._calls :]:
            if call.parent == "hdtv" and call.name not in _PERIODIC:
                self._write(f"scene.expect_call({', '.join(map(repr, call.argv))})")
        self._calls = len(calls)

    def _add_document(self) -> None:
        document = self._handles.view.document()
        changed = {
            name: value
            for name, value in document.items()
            if self._document.get(name) != value and (name not in _TIMES or value == "0")
        }
        if changed:
            members = ", ".join(f"{name}={value!r}" for name, value in changed.items())
            self._write(f"scene.expect_document({members})")
        if document:
            self._document = document

    def _add_television(self) -> None:
        now = (self._handles.tv.power, self._handles.tv.input)
        if now != self._television and now[0] in ("on", "in standby"):
            self._television = now
            self._write(f"scene.expect_tv{now!r}")

    def _add_records(self) -> None:
        records = [record[0] for record in self._handles.gateway.received() if record]
        if len(records) > self._records:
            codes = ", ".join(map(str, records[self._records :]))
            self._write(f"scene.expect_records({codes}, since={self._records})")
        self._records = len(records)

    def _write(self, line: str) -> None:
        with contextlib.suppress(ValueError):  # closed: the station is ending
            self._file.write(_laid_out(line, 4) + "\n")
            self._file.flush()


class _Recorded:
    """Stands in for one of the handles."""

    def __init__(self, target: object, name: str, recorder: Recorder) -> None:
        self._target = target
        self._name = name
        self._recorder = recorder

    def __getattr__(self, name: str) -> Any:
        attribute = getattr(self._target, name)
        if not inspect.ismethod(attribute) or name in _LOOKS:
            return attribute

        @functools.wraps(attribute)
        def recorded(*positional: Any, **named: Any) -> Any:
            self._recorder.add_effects()
            result = attribute(*positional, **named)
            if self._name == "gateway" and name == "send":
                bound = inspect.signature(attribute).bind(*positional, **named)
                bound.apply_defaults()
                names = ("message", "words", "is_datagram", "source")
                line = _send(*(bound.arguments[name] for name in names))
            else:
                arguments = [*map(repr, positional), *(f"{k}={v!r}" for k, v in named.items())]
                line = f"scene.{self._name}.{name}({', '.join(arguments)})"
            self._recorder.add_deed(line)
            return result

        return recorded


def _send(message: bytes, words: str, is_datagram: bool, source: str) -> str:
    told = words or message_name(message)
    datagram = ", is_datagram=True" if is_datagram else ""
    sender = f", source={source!r}" if source != GATEWAY else ""
    return f"scene.send({told!r}, {source_of(message)}{datagram}{sender})"


def _laid_out(line: str, indentation: int) -> str:
    """A call or an assignment, with an argument a line where it would be too long for one."""
    (statement,) = ast.parse(line).body
    assert isinstance(statement, (ast.Expr, ast.Assign))
    before = "SETUP = " if isinstance(statement, ast.Assign) else ""
    return _lay_out(line, statement.value, indentation, before)


def _lay_out(line: str, node: ast.expr, indentation: int, before: str = "") -> str:
    text = before + (ast.get_source_segment(line, node) or "")
    margin = " " * indentation
    if not isinstance(node, ast.Call) or len(margin + text) < _LINE:
        return margin + text
    parts = [(arg, "") for arg in node.args] + [(x.value, f"{x.arg}=") for x in node.keywords]
    arguments = [_lay_out(line, value, indentation + 4, name) + ",\n" for value, name in parts]
    function = ast.get_source_segment(line, node.func)
    return f"{margin}{before}{function}(\n{''.join(arguments)}{margin})"
