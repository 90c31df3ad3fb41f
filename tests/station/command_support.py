"""The simulated station's own command, as the tests run it."""

import contextlib
import os
import subprocess
from collections.abc import Iterator, Sequence
from pathlib import Path

from simulation.places import build_directory
from simulation.process import dying_with_starter
from simulation.waiting import wait_for

TOP = Path(__file__).resolve().parents[2]

# What programs in a station keep: dac_override, kill, net_bind_service, net_admin, net_raw.
KEPT_CAPABILITIES = {1, 5, 10, 12, 13}

# The way a shell starts background jobs, and worse.
UNWILLING = [
    "env",
    "--ignore-signal=INT,QUIT,HUP,TERM,PIPE",
    "--block-signal=INT,QUIT,HUP,TERM",
]

STATUS = ("/bin/cat", "/proc/self/status")


def environment(**more: str) -> dict[str, str]:
    own = {"HDTV_BUILD": str(build_directory()), "PYTHONUNBUFFERED": "1", "PYTHONPATH": str(TOP)}
    return {**os.environ, **own, **more}


def command_line(*arguments: str, prefix: Sequence[str] = ()) -> list[str]:
    return dying_with_starter([*prefix, "/usr/bin/python3", "-m", "simulation.demo", *arguments])


def run_command(
    *arguments: str, unprivileged: bool = False, timeout: float = 60
) -> subprocess.CompletedProcess[str]:
    prefix = ["setpriv", "--bounding-set=-all", "--inh-caps=-all"] if unprivileged else []
    return subprocess.run(
        command_line(*arguments, prefix=prefix),
        cwd=TOP,
        env=environment(),
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        timeout=timeout,
    )


@contextlib.contextmanager
def running_command(
    *arguments: str, prefix: Sequence[str] = (), **more: str
) -> Iterator[subprocess.Popen[str]]:
    """It is gone afterward, whatever happens to the test."""
    with subprocess.Popen(
        command_line(*arguments, prefix=prefix),
        cwd=TOP,
        env=environment(**more),
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    ) as running:
        try:
            yield running
        finally:
            running.kill()


def read_until_line(running: subprocess.Popen[str], words: str) -> None:
    assert running.stdout is not None
    assert any(words in line for line in running.stdout)


def wait_for_end_of_station(name: str) -> None:
    wait_for(lambda: not processes_of(name), f"the end of {name}")


def processes_of(name: str) -> list[str]:
    """A station's keeper and the first processes of its sides, wherever they are."""
    found = []
    for process in Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):
            words = (process / "cmdline").read_bytes().split(b"\0")
            if words[3:4] and words[3].endswith(b"/world.py") and name.encode() in words[5:6]:
                found.append(process.name)
    return found


def capabilities_of(status: str) -> dict[str, set[int]]:
    """By set, from the text of a process's status file."""
    sets = {}
    for line in status.splitlines():
        if line.startswith("Cap"):
            name, number = line.split()
            sets[name[3:-1]] = {bit for bit in range(64) if int(number, 16) >> bit & 1}
    return sets
