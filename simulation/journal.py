"""The stand-ins' journal: every call of one of the board's tools."""

import json
from dataclasses import dataclass
from pathlib import Path


@dataclass(frozen=True)
class Call:
    """One call of a tool. Arguments are bytes in a str, one character per byte."""

    time: float  # seconds since the epoch
    path: str
    pid: int  # as seen in the unit, like ppid
    ppid: int
    parent: str  # the parent's name
    argv: list[str]
    descriptors: dict[str, str]  # inherited ones above 2, and what they refer to
    death_signal: int  # sent when the parent dies; 0 for none
    ignored_signals: str  # mask in hex

    @property
    def name(self) -> str:
        return self.path.rpartition("/")[2]


def read_journal(path: Path) -> list[Call]:
    """The calls so far, oldest first. Skips a line that is still being written, and the fragment
    left by a tool that was killed while it wrote."""
    lines = path.read_text().split("\n")[:-1]
    return [call for call in map(_parse, lines) if call]


def _parse(line: str) -> Call | None:
    try:
        return Call(**json.loads(line))
    except ValueError:
        return None
