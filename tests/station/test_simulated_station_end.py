"""The end of a simulated station, however it comes about: nothing is left behind."""

import contextlib
import os
import pty
import signal
import subprocess
import sys
from pathlib import Path

import pytest
from command_support import (
    TOP,
    UNWILLING,
    command_line,
    environment,
    read_until_line,
    running_command,
    wait_for_end_of_station,
)

from simulation.process import dying_with_starter
from simulation.waiting import wait_for

# The station does not depend on how the service is built.
pytestmark = pytest.mark.once


@pytest.mark.parametrize("made", ["Station()", "Fleet(3)"])
def test_killed_starter_leaves_nothing_behind(made: str) -> None:
    script = (
        "import sys, time\n"
        "from simulation.fleet import Fleet\n"
        "from simulation.station import Station\n"
        f"station = {made}\n"
        "service = station.start_service()\n"
        "station.wait_for_calls('qt-webkit-kiosk')\n"
        "print(station.gateway_pid, *station.unit_pids, service.pid, flush=True)\n"
        "time.sleep(1000)\n"
    )
    with subprocess.Popen(
        dying_with_starter([sys.executable, "-c", script]),
        env=environment(),
        stdout=subprocess.PIPE,
        text=True,
    ) as starter:
        try:
            assert starter.stdout is not None
            pids = [int(pid) for pid in starter.stdout.readline().split()]
            assert len(pids) == (5 if made == "Fleet(3)" else 3)
            mounts = Path("/proc/self/mounts").read_text()
        finally:
            starter.kill()
    for pid in pids:
        wait_for(lambda: not Path(f"/proc/{pid}").exists(), f"the end of process {pid}")
    assert Path("/proc/self/mounts").read_text() == mounts


@pytest.mark.browser
@pytest.mark.parametrize("name", ["SIGINT", "SIGQUIT", "SIGHUP", "SIGTERM"])
def test_signal_ends_it_even_where_its_starter_ignored_and_blocked_it(name: str) -> None:
    number = signal.Signals[name]
    station_name = f"test-{os.getpid()}-{name}"
    with running_command("--once", "--name", station_name, prefix=UNWILLING) as running:
        read_until_line(running, "the station is idle")
        running.send_signal(number)
        _, errors = running.communicate(timeout=30)
    assert running.returncode == 128 + number
    assert errors == ""
    wait_for_end_of_station(station_name)


@pytest.mark.browser
def test_reader_that_goes_away_ends_it() -> None:
    station_name = f"test-{os.getpid()}-reader"
    with running_command("--name", station_name, "--pause", "0.1", prefix=UNWILLING) as running:
        read_until_line(running, "the station is idle")
        assert running.stdout is not None and running.stderr is not None
        running.stdout.close()
        assert running.wait(30) == 128 + signal.SIGHUP
        assert running.stderr.read() == ""
    wait_for_end_of_station(station_name)


@pytest.mark.browser
@pytest.mark.parametrize("closed", ["<&-", ">&-", "<&- >&- 2>&-"])
def test_closed_standard_descriptors_do_not_matter(closed: str) -> None:
    command = f'exec "$@" {closed}'
    with running_command("--once", "--pause", "0", prefix=["sh", "-c", command, "sh"]) as running:
        _, errors = running.communicate(timeout=60)
    assert (running.returncode, errors) == (0, "")


def test_closed_standard_descriptors_are_taken_by_nothing_else() -> None:
    script = (
        "import os, sys; from simulation import linux; linux.open_standard_descriptors();"
        " sys.exit(os.open('/', os.O_RDONLY))"
    )
    result = subprocess.run(
        ["sh", "-c", 'exec "$@" <&- >&- 2>&-', "sh", sys.executable, "-c", script],
        env=environment(),
        timeout=60,
    )
    assert result.returncode == 3


@pytest.mark.browser
def test_killed_command_leaves_no_files_behind(tmp_path: Path) -> None:
    station_name = f"test-{os.getpid()}-killed"
    with running_command(
        *("--name", station_name, "--pause", "0.1", "--pictures", str(tmp_path / "pictures")),
        TMPDIR=str(tmp_path),
    ) as running:
        read_until_line(running, "roll call")
        running.kill()
    wait_for_end_of_station(station_name)
    assert [path.name for path in tmp_path.iterdir()] == ["pictures"]


ENDLESS_TEST = """
import time
from pathlib import Path
from simulation.station import Station

def test_endless(tmp_path):
    with Station() as station:
        service = station.start_service()
        outer = station.start_in_gateway_network("/bin/sleep", "1000")
        pids = station.gateway_pid, station.unit_pid, service.pid, outer.pid
        draft = Path(__file__).with_name("draft")
        draft.write_text(" ".join(str(pid) for pid in pids))
        draft.rename(draft.with_name("pids"))
        time.sleep(1000)
"""


@pytest.mark.waits
@pytest.mark.slow
@pytest.mark.parametrize("workers", ["0", "1"])
@pytest.mark.parametrize("end", ["killed", "at its time limit"])
def test_endless_test_leaves_no_process_behind(tmp_path: Path, workers: str, end: str) -> None:
    """Neither of a station nor of a program on the gateway's network."""
    (tmp_path / "test_endless.py").write_text(ENDLESS_TEST)
    command = [*UNWILLING, "/usr/bin/python3", "-m", "pytest", "-p", "no:cacheprovider"]
    options = ["-n", workers, "--timeout", "3" if end == "at its time limit" else "100"]
    with subprocess.Popen(
        dying_with_starter([*command, *options, f"--basetemp={tmp_path}/temporary", str(tmp_path)]),
        cwd=tmp_path,
        env=environment(),
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        text=True,
    ) as tests:
        try:
            names = tmp_path / "pids"
            wait_for(lambda: names.exists() or tests.poll() is not None, "the test's start")
            pids = [int(pid) for pid in names.read_text().split()]
            if end == "at its time limit":
                output, _ = tests.communicate(timeout=60)
                assert "Failed: Timeout >3.0s" in output
                assert tests.returncode == 1
        finally:
            tests.kill()
    for pid in pids:
        wait_for(lambda: not Path(f"/proc/{pid}").exists(), f"the end of process {pid}")


@pytest.mark.browser
def test_ctrl_c_on_a_terminal_ends_it_quietly_and_in_colour() -> None:
    terminal, inside = pty.openpty()
    with contextlib.ExitStack() as stack:
        stack.callback(os.close, terminal)
        # In a new session that has this as its terminal.
        running = subprocess.Popen(
            command_line("--pause", "0.1", prefix=[*UNWILLING, "setsid", "--ctty"]),
            cwd=TOP,
            env=environment(),
            stdin=inside,
            stdout=inside,
            stderr=inside,
        )
        stack.callback(running.wait)
        stack.callback(running.kill)
        os.close(inside)
        text = read_until(terminal, b"Ctrl-C ends it")
        os.write(terminal, b"\x03")
        text += read_until(terminal, b"")
        assert running.wait(20) == 130
    assert b"\033[32mdocument" in text
    assert b"Traceback" not in text
    assert b"the service has ended" not in text


@pytest.mark.browser
def test_terminal_that_goes_away_ends_it() -> None:
    terminal, inside = pty.openpty()
    running = subprocess.Popen(
        command_line("--pause", "0.1", prefix=[*UNWILLING, "setsid", "--ctty"]),
        cwd=TOP,
        env=environment(),
        stdin=inside,
        stdout=inside,
        stderr=subprocess.DEVNULL,
    )
    try:
        os.close(inside)
        read_until(terminal, b"the station is idle")
        os.close(terminal)
        assert running.wait(30) == 128 + signal.SIGHUP
    finally:
        running.kill()
        running.wait()


def read_until(terminal: int, words: bytes) -> bytes:
    """What the terminal shows up to these words, or until no one writes to it anymore."""
    text = b""
    while not (words and words in text):
        try:
            text += os.read(terminal, 4096)
        except OSError:
            break
    return text
