"""The turns of an event loop, each from the end of one wait to the next wait, which counts, read from
the log of what executes the program."""

import re
from collections.abc import Iterable
from dataclasses import dataclass
from pathlib import Path

ACCEPT, CLOCK, STAT, WAIT, WRITE = "accept", "clock_gettime", "stat", "epoll_wait", "write"

# Of those calls that mean something here, by their numbers on x86-64 and their names on ARM.
X86_NAMES = {"1": WRITE, "43": ACCEPT, "232": WAIT, "262": STAT}
ARM_NAMES = {"statx": STAT, "clock_gettime64": CLOCK}


@dataclass(frozen=True)
class Turn:
    instructions: int
    calls: tuple[str, ...]

    @property
    def is_message(self) -> bool:
        return ACCEPT in self.calls

    @property
    def is_clock_tick(self) -> bool:
        """It looks at the browser and kicks the watchdog; the others do something else."""
        return sorted(call for call in self.calls if call != CLOCK) == sorted([STAT, WAIT, WRITE])


class StepLog:
    """The report of bench/step_counter."""

    def __init__(self, path: Path) -> None:
        self._path = path

    def turns(self) -> list[Turn]:
        lines = self._path.read_text().splitlines(keepends=True) if self._path.exists() else []
        fields = [line.split() for line in lines if line.endswith("\n")]
        return [
            Turn(int(count), tuple(X86_NAMES.get(x, x) for x in calls.split(",")))
            for count, calls in fields
        ]


class EmulatorLog:
    """The emulator's own, with a line for each instruction before it is executed and one for each
    call: its end is added when the call returns."""

    OPTIONS = ("-singlestep", "-d", "nochain,exec,strace", "-D")

    def __init__(self, path: Path) -> None:
        self._path = path
        self._position = 0
        self._line = b""
        self._turns: list[Turn] = []
        self._instructions = 0
        self._calls: list[str] = []

    def turns(self) -> list[Turn]:
        if self._path.exists():
            with self._path.open("rb") as log:
                log.seek(self._position)
                new = log.read()
            self._position += len(new)
            *lines, self._line = (self._line + new).split(b"\n")
            self._take(lines)
        if self._call(self._line) != WAIT:
            return self._turns
        # It waits now.
        return [*self._turns, Turn(self._instructions, (*self._calls, WAIT))]

    def _take(self, lines: Iterable[bytes]) -> None:
        for line in lines:
            if line.startswith(b"Trace "):
                self._instructions += 1
            elif call := self._call(line):
                self._calls.append(call)
                if call == WAIT:
                    self._turns.append(Turn(self._instructions, tuple(self._calls)))
                    self._instructions, self._calls = 0, []

    @staticmethod
    def _call(line: bytes) -> str:
        name = re.match(rb"\d+ (\w+)\(.*\)", line)
        return ARM_NAMES.get(name[1].decode(), name[1].decode()) if name else ""
