"""What the stand-ins journal: every call of a tool of the board."""

import json
from dataclasses import dataclass
from pathlib import Path


@dataclass(frozen=True)
class Call:
    """One call of a tool. Arguments are bytes held in a str, one character a byte."""

    time: float  # seconds since the epoch
    path: str
    pid: int  # as the unit sees it, like ppid
    ppid: int
    parent: str  # the parent's name
    argv: list[str]
    descriptors: dict[str, str]  # inherited ones above 2, and what they are
    death_signal: int  # sent when the parent dies; 0 for none
    ignored_signals: str  # mask in hex

    @property
    def name(self) -> str:
        return self.path.rpartition("/")[2]


def read_journal(path: Path) -> list[Call]:
    """The calls so far, oldest first. A line that is still being written is left for later, and a
    piece of a line, from a tool that was killed while it wrote, is passed over."""
    lines = path.read_text().split("\n")[:-1]
    return [call for call in map(_parse, lines) if call]


def _parse(line: str) -> Call | None:
    try:
        return Call(**json.loads(line))
    except ValueError:
        return None
