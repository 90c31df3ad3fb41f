"""A station that is already running, as a second terminal finds it, checks it and enters it."""

import contextlib
import os
import subprocess
from collections.abc import Iterator, Mapping
from pathlib import Path

from simulation import whereabouts
from simulation.places import BIN
from simulation.whereabouts import KINDS, NAME_FILE, Record, Side

# As nsenter calls them.
_WORDS = {kind: "mount" if kind == "mnt" else kind for kind in KINDS}


class NotEntered(Exception):
    """Nothing has been run; the text says why."""


def run_inside(
    name: str, side: str, command: list[str], environment: Mapping[str, str] | None = None
) -> int:
    """Runs a command on one side of the newest running station with this name, confined like the
    service; returns its exit status, as a shell would tell it. Raises NotEntered."""
    with _opened(find_station(name), side) as (options, users):
        board_root = ["--board-root"] if users else []
        started = ["nsenter", *options, "--", f"{BIN}/launch", *board_root, *command]
        status = subprocess.run(started, env={**os.environ, **(environment or {})}).returncode
    return status if status >= 0 else 128 - status


def gateway_pid(name: str) -> int:
    """Of the first process on the gateway's side of the newest running station with this name, after
    the same checks. Raises NotEntered."""
    record = find_station(name)
    with _opened(record, "gateway"):
        return next(side["pid"] for side in record["sides"] if side["side"] == "gateway")


def find_station(name: str) -> Record:
    """What its keeper has recorded. Only keepers of the caller's own PID namespace count, and only
    its own user's: the numbers of any other one's processes mean something else here."""
    if len(_status_field("/proc/self", "NSpid")) != 1:
        raise NotEntered("/proc shows the processes of another PID namespace than this one.")
    found = [record for pid in _processes() for record in _record_of(pid, name)]
    if not found:
        raise NotEntered(
            f'No station named "{name}" is running here: start one with ./scripts/station, or give'
            " the name of one that runs with --name."
        )
    return max(found, key=lambda started: started[0])[1]


def _processes() -> list[str]:
    return [name for name in os.listdir("/proc") if name.isdigit()]


def _record_of(pid: str, name: str) -> Iterator[tuple[int, Record]]:
    """The record, with the keeper's start time, if the process is such a keeper."""
    with contextlib.suppress(OSError, ValueError), _directory(f"/proc/{pid}") as keeper:
        # All of it is read through the same descriptor: never of a process that took its number.
        place = f"/proc/self/fd/{keeper}"
        words = Path(f"{place}/cmdline").read_bytes().split(b"\0")
        is_keeper = len(words) >= 6 and words[3].endswith(b"/world.py")
        if not is_keeper or words[5] != name.encode() or not _is_of_caller(keeper):
            return
        record = whereabouts.read(keeper)
        if record and record["name"] == name and record["pid_namespace"] == _own("pid"):
            started = Path(f"{place}/stat").read_text().rpartition(")")[2].split()[19]
            yield int(started), record


def _is_of_caller(keeper: int) -> bool:
    pids = os.stat("ns/pid", dir_fd=keeper).st_ino
    return pids == _own("pid") and os.fstat(keeper).st_uid == os.geteuid()


def _own(kind: str) -> int:
    return os.stat(f"/proc/self/ns/{kind}").st_ino


def _status_field(process: str, field: str) -> list[str]:
    lines = Path(f"{process}/status").read_text().splitlines()
    return next(line for line in lines if line.startswith(f"{field}:")).split()[1:]


@contextlib.contextmanager
def _directory(path: str, at: int | None = None, flags: int = 0) -> Iterator[int]:
    fd = os.open(path, os.O_RDONLY | os.O_DIRECTORY | flags, dir_fd=at)
    try:
        yield fd
    finally:
        os.close(fd)


@contextlib.contextmanager
def _opened(record: Record, name: str) -> Iterator[tuple[list[str], bool]]:
    """Opens one side's namespaces and root, and checks them. What nsenter is then given is what
    has been checked, whatever happens to the processes meanwhile: its options, and whether the
    side has users of its own."""
    side = next((side for side in record["sides"] if side["side"] == name), None)
    if side is None:
        raise NotEntered(f"The station {record['name']} has no {name}.")
    with contextlib.ExitStack() as stack:
        try:
            process = stack.enter_context(_directory(f"/proc/{side['pid']}"))
            opened = {kind: os.open(f"ns/{kind}", os.O_RDONLY, dir_fd=process) for kind in KINDS}
            for fd in opened.values():
                stack.callback(os.close, fd)
            root = stack.enter_context(_directory("root", process))
            _check(record["name"], side, opened, root)
        except OSError as error:
            raise _refusal(record["name"], f"it cannot be looked at ({error})") from error
        has_users = side["namespaces"]["user"] != _own("user")
        # nsenter opens them from this process: what it starts does not inherit them.
        place = f"/proc/{os.getpid()}/fd"
        options = [
            f"--{_WORDS[kind]}={place}/{fd}"
            for kind, fd in opened.items()
            if kind != "user" or has_users
        ]
        # What a command line says there has the meaning that it has here, as far as it goes.
        start = _own_directory(root, stack) if name == "gateway" else root
        yield [*options, f"--root={place}/{root}", f"--wd={place}/{start}"], has_users


def _own_directory(root: int, stack: contextlib.ExitStack) -> int:
    """The caller's working directory below another root; the root if it does not exist there."""
    place = root
    try:
        for name in Path.cwd().parts[1:]:
            # A link could lead out of that root.
            place = stack.enter_context(_directory(name, place, os.O_NOFOLLOW))
    except OSError:
        return root
    return place


def _check(station: str, side: Side, opened: Mapping[str, int], root: int) -> None:
    for kind, fd in opened.items():
        word = _WORDS[kind]
        if os.fstat(fd).st_ino != side["namespaces"][kind]:
            raise _refusal(station, f"its {word} namespace is another one")
        if kind != "user" and os.fstat(fd).st_ino == _own(kind):
            raise _refusal(station, f"its {word} namespace is not a private one")
    if whereabouts.root_of(os.fstat(root)) != side["root"]:
        raise _refusal(station, "its root is another one")
    name = os.open(NAME_FILE, os.O_RDONLY | os.O_NOFOLLOW, dir_fd=root)
    with open(name, encoding="utf-8") as file:
        if file.read(4096) != whereabouts.name_file(station, side["side"]):
            raise _refusal(station, "it has another name")


def _refusal(station: str, reason: str) -> NotEntered:
    return NotEntered(
        f"The station {station} is not what its keeper recorded: {reason}. Nothing has been run."
    )
