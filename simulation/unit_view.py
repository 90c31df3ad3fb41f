"""Looks into a running unit without touching it."""

import contextlib
import fcntl
import functools
import json
import math
import os
import socket
import struct
import subprocess
import time
from collections.abc import Mapping
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from simulation.places import CONFIG, GATEWAY_FILE, LIVENESS_FILE, build_directory
from simulation.process import Process
from simulation.station import Station

FULL_BUDGET = 900  # kicks between two refills, as in hdtv/watchdog.cpp
LIVENESS_LIMIT = 300  # seconds: an older file no longer counts as a page that is alive

_DEEPEST = 16  # levels of a document

_SIOCGIFADDR = 0x8915
_BUDGET = "wdt_seconds"  # a kept name


@dataclass(frozen=True)
class ProcessView:
    """A process in the unit."""

    pid: int  # as the unit sees it
    parent: int
    name: str
    state: str  # a letter, as in /proc/PID/stat
    command: str
    kilobytes: int  # resident


@dataclass(frozen=True)
class Change:
    """Of one member of the alert document. None: there is no such member."""

    member: str
    before: Any
    after: Any


def changes(before: Mapping[str, Any], after: Mapping[str, Any]) -> list[Change]:
    members = [*after, *(member for member in before if member not in after)]
    return [
        Change(member, before.get(member), after.get(member))
        for member in members
        if before.get(member) != after.get(member)
    ]


class UnitView:
    """What a person may look at in the unit."""

    def __init__(self, station: Station) -> None:
        self._station = station
        self._marked: dict[str, Any] | None = None
        self.service: Process | None = (
            None  # the one that runs now; simulation.unit_handles sets it
        )

    # The alert document.

    def document_text(self) -> str:
        return self._station.document_text()

    def document(self) -> dict[str, Any]:
        """Empty if there is none, or if it is not the document's form: a quotation mark in an alert
        can turn it into anything."""
        try:
            objects = json.loads(
                self.document_text(), strict=False, parse_float=_finite, parse_constant=_finite
            )
        except (ValueError, RecursionError):
            return {}
        is_document = isinstance(objects, list) and objects and isinstance(objects[0], dict)
        return dict(objects[0]) if is_document and not _is_deeper(objects[0], _DEEPEST) else {}

    def mark_document(self) -> None:
        """From now on, changes are those since now."""
        self._marked = self.document()

    def changes_since_mark(self) -> list[Change]:
        """None before the first mark."""
        return [] if self._marked is None else changes(self._marked, self.document())

    # Files.

    def current_gateway(self) -> str:
        """The gateway file's text; empty if there is none."""
        return self._read(GATEWAY_FILE)

    def configuration(self) -> str:
        return self._read(CONFIG)

    def liveness_age(self) -> float | None:
        """Seconds since the page last said that it is alive; None if it never has."""
        with contextlib.suppress(FileNotFoundError):
            return max(time.time() - self._station.path(LIVENESS_FILE).stat().st_mtime, 0.0)
        return None

    def _read(self, name: str) -> str:
        try:
            return self._station.path(name).read_text(errors="backslashreplace")
        except FileNotFoundError:
            return ""

    # The watchdog.

    def kicks(self) -> int:
        """Of the hardware watchdog, since the station's start."""
        return self._station.count_kicks()

    def kicks_left(self) -> int | None:
        """Until the service stops kicking, unless a message refills the budget: read from the
        service's memory. None if it does not run, or its program has no names in it."""
        offset = _offset_of(_BUDGET)
        if self.service is None or offset is None or not self.service.is_running():
            return None
        try:
            pid = self.service.pid
            memory = os.open(f"/proc/{pid}/mem", os.O_RDONLY)
            try:
                content = os.pread(memory, 4, _base(pid) + offset)
            finally:
                os.close(memory)
            return int(struct.unpack("i", content)[0])
        except (OSError, IndexError, ValueError, struct.error):
            return None

    # Network and processes.

    def address(self) -> str | None:
        """Of eth0; None if it has none."""
        request = struct.pack("16s16x", b"eth0")
        with self._station.in_unit(), socket.socket(
            socket.AF_INET, socket.SOCK_DGRAM
        ) as any_socket:
            try:
                answer = fcntl.ioctl(any_socket, _SIOCGIFADDR, request)
            except OSError:
                return None
        return socket.inet_ntoa(answer[20:24])

    def processes(self) -> list[ProcessView]:
        """By process id."""
        numbers = [int(x.name) for x in self._station.path("/proc").iterdir() if x.name.isdigit()]
        views = [self._process(number) for number in sorted(numbers)]
        return [view for view in views if view]

    def find_processes(self, name: str) -> list[int]:
        """Without those that have ended, and whose parents have not noticed."""
        return [x.pid for x in self.processes() if x.name == name and x.state != "Z"]

    def family_of(self, pid: int) -> list[int]:
        """The process and all that it has started, directly or not."""
        processes = self.processes()
        family = [process.pid for process in processes if process.pid == pid]
        for member in family:
            family += [process.pid for process in processes if process.parent == member]
        return family

    def _process(self, pid: int) -> ProcessView | None:
        place = self._station.path(f"/proc/{pid}")
        try:
            stat = (place / "stat").read_text(errors="replace")
            command = (place / "cmdline").read_bytes().replace(b"\0", b" ").decode(errors="replace")
        except OSError:
            return None  # it has just ended
        name = stat[stat.index("(") + 1 : stat.rindex(")")]
        fields = stat[stat.rindex(")") + 2 :].split()
        pages = int(fields[21])
        size = pages * os.sysconf("SC_PAGE_SIZE") // 1024
        return ProcessView(pid, int(fields[1]), name, fields[0], command.strip(), size)


def _finite(text: str) -> float:
    """Other numbers cannot be passed on as JSON."""
    number = float(text)
    if not math.isfinite(number):
        raise ValueError(f"{text} is no number")
    return number


def _is_deeper(value: Any, most: int) -> bool:
    """Than so many objects and lists in each other: what walks through it needs no more."""
    if most == 0:
        return True
    inner = value.values() if isinstance(value, dict) else value if isinstance(value, list) else ()
    return any(_is_deeper(one, most - 1) for one in inner)


@functools.cache
def _offset_of(name: str) -> int | None:
    """Of a variable in the service's program."""
    listing = subprocess.run(
        ["nm", "--defined-only", "--format=posix", build_directory() / "hdtv" / "hdtv"],
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
    )
    for line in listing.stdout.splitlines():
        fields = line.split()
        if fields[0] == name:
            return int(fields[2], 16)
    return None


def _base(pid: int) -> int:
    """Where the program is in its memory."""
    first = Path(f"/proc/{pid}/maps").read_text().partition("-")[0]
    return int(first, 16)
