"""Who and where the sides of a running station are, as its keeper records it.

Each side describes itself, the keeper adds the process ids, and the record stays in the keeper's
memory, sealed, for as long as the keeper lives: a station that is gone has none.
"""

import contextlib
import fcntl
import json
import os
from typing import TypedDict

# The user namespace is the machine's, except in a unit with a board's root.
KINDS = ("user", "mnt", "uts", "ipc", "net", "pid")
NAME_FILE = "run/station/name"  # on both sides, below their roots

_MEMORY = "station-record"
_COMPLETE = fcntl.F_SEAL_SHRINK | fcntl.F_SEAL_GROW | fcntl.F_SEAL_WRITE | fcntl.F_SEAL_SEAL


class Side(TypedDict):
    side: str  # gateway, or as unit_side() names it
    pid: int  # of its first process, in the keeper's PID namespace
    namespaces: dict[str, int]  # inode numbers by kind
    root: list[int]  # device and inode number


class Record(TypedDict):
    name: str  # of the station
    pid_namespace: int  # the keeper's, as an inode number
    sides: list[Side]  # the gateway's first, then the units' in their order


def unit_side(number: int) -> str:
    """The first unit, most often the only one, goes without its number."""
    return f"unit {number}" if number else "unit"


def name_file(station: str, side: str) -> str:
    """What the name file contains."""
    return f"{station}\n{side}\n"


def describe_self(side: str) -> bytes:
    """The calling process's side, once it has all its namespaces and its root."""
    described: Side = {
        "side": side,
        "pid": 0,
        "namespaces": {kind: os.stat(f"/proc/self/ns/{kind}").st_ino for kind in KINDS},
        "root": root_of(os.stat("/")),
    }
    return json.dumps(described).encode()


def root_of(status: os.stat_result) -> list[int]:
    return [status.st_dev, status.st_ino]


def keep(record: Record) -> bytes:
    """Lays the record down in the calling process's memory, where read() finds it; returns its
    text."""
    text = json.dumps(record).encode()
    memory = os.memfd_create(_MEMORY, os.MFD_CLOEXEC | os.MFD_ALLOW_SEALING)
    os.write(memory, text)
    fcntl.fcntl(memory, fcntl.F_ADD_SEALS, _COMPLETE)
    return text


def read(process: int) -> Record | None:
    """The record of a process, given as a descriptor of its directory in /proc; None if it has
    none, or none yet."""
    for name in os.listdir(f"/proc/self/fd/{process}/fd"):
        with contextlib.suppress(OSError, ValueError):
            if _MEMORY in os.readlink(f"fd/{name}", dir_fd=process):
                return _read_sealed(os.open(f"fd/{name}", os.O_RDONLY, dir_fd=process))
    return None


def _read_sealed(memory: int) -> Record | None:
    with open(memory, "rb") as file:
        if fcntl.fcntl(file, fcntl.F_GET_SEALS) != _COMPLETE:
            return None
        record: Record = json.load(file)
        return record
