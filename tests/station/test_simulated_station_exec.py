"""A second terminal enters the station that was meant, or nothing at all."""

import contextlib
import copy
import json
import os
import signal
import subprocess
import sys
import tempfile
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest
from command_support import TOP, command_line, environment, run_command

from simulation import running, whereabouts
from simulation.process import dying_with_starter
from simulation.station import Station
from simulation.whereabouts import Record, Side

# The station does not depend on how the service is built.
pytestmark = pytest.mark.once

MARK = "/run/mark"  # on both sides
SIDES = [["exec"], ["exec", "--gateway"]]
NOBODY = "No station named .* is running here"

# A station of the same name, and of another PID namespace; then a second terminal in there.
NESTED = """
import subprocess, sys
from pathlib import Path
from simulation.station import Station
with Station(name=sys.argv[1]) as station:
    for pid in (station.gateway_pid, station.unit_pid):
        Path(f"/proc/{pid}/root/run/mark").write_text("nested")
    print("ready", flush=True)
    sys.stdin.readline()
    found = [
        subprocess.check_output([*sys.argv[2:], "exec", *side, "cat", "/run/mark"], text=True)
        for side in ([], ["--gateway"])
    ]
    print(*found, flush=True)
    sys.stdin.readline()
"""


@pytest.fixture(scope="module")
def name() -> str:
    return f"test-{os.getpid()}-exec"


@pytest.fixture(scope="module")
def marked(name: str) -> Iterator[Station]:
    with Station(name=name) as station:
        for pid in (station.gateway_pid, station.unit_pid):
            Path(f"/proc/{pid}/root{MARK}").write_text("meant")
        yield station


@pytest.fixture(scope="module")
def record(marked: Station, name: str) -> Record:
    return running.find_station(name)


@contextlib.contextmanager
def nested_station(name: str) -> Iterator[subprocess.Popen[str]]:
    namespaces = ["unshare", "--pid", "--mount-proc", "--fork", "--kill-child"]
    again = command_line("--name", name)
    with subprocess.Popen(
        dying_with_starter([*namespaces, sys.executable, "-c", NESTED, name, *again]),
        cwd=TOP,
        env=environment(),
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
        text=True,
    ) as process:
        try:
            assert process.stdout is not None and process.stdout.readline() == "ready\n"
            yield process
        finally:
            process.kill()


def test_each_terminal_enters_the_station_of_its_own_pid_namespace(
    marked: Station, name: str
) -> None:
    with nested_station(name) as nested:
        for side in SIDES:
            result = run_command("--name", name, *side, "cat", MARK)
            assert (result.stdout, result.stderr) == ("meant", "")
        assert nested.stdin is not None and nested.stdout is not None
        nested.stdin.write("look\n")
        nested.stdin.flush()
        assert nested.stdout.readline() == "nested nested\n"


def test_station_of_a_nested_pid_namespace_is_not_found(name: str) -> None:
    with nested_station(f"{name}-nested"):
        for side in ("unit", "gateway"):
            with pytest.raises(running.NotEntered, match=NOBODY):
                running.run_inside(f"{name}-nested", side, ["true"])


def test_newest_of_two_stations_with_a_name_is_entered(
    marked: Station, name: str, capfd: pytest.CaptureFixture[str]
) -> None:
    with Station(name=name) as newer:
        newer.path(MARK).write_text("newer")
        running.run_inside(name, "unit", ["cat", MARK])
    running.run_inside(name, "unit", ["cat", MARK])
    assert capfd.readouterr().out == "newermeant"


def test_processes_of_another_pid_namespace_are_not_looked_at(marked: Station, name: str) -> None:
    # Its /proc is still the one from outside, and the numbers there mean other processes.
    result = subprocess.run(
        ["unshare", "--pid", "--fork", *command_line("--name", name, "exec", "cat", MARK)],
        cwd=TOP,
        env=environment(),
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        timeout=60,
    )
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == "/proc shows the processes of another PID namespace than this one.\n"


# Keeps a record as a station's keeper does.
FAKE_KEEPER = """
import json, os, sys, time
from pathlib import Path
sys.path.insert(0, os.environ["PYTHONPATH_OF_STATION"])
from simulation import whereabouts
if sys.argv[2].endswith("unfinished"):
    os.memfd_create("station-record")
else:
    whereabouts.keep(json.loads(os.environ["RECORD"]))
print("ready", flush=True)
time.sleep(1000)
"""


@pytest.fixture
def keep() -> Iterator[Callable[[str, Record], None]]:
    """Starts a process that looks like a station's keeper, with a name and any record."""
    started = []
    directory = tempfile.TemporaryDirectory()
    os.chmod(directory.name, 0o755)
    script = Path(directory.name) / "world.py"
    script.write_text(FAKE_KEEPER)

    def start(name: str, record: Record) -> None:
        users = ["setpriv", "--reuid=65534", "--clear-groups", "--"] if "user" in name else []
        process = subprocess.Popen(
            dying_with_starter([*users, sys.executable, "-I", "-S", str(script), "0", name]),
            env={"RECORD": json.dumps(record), "PYTHONPATH_OF_STATION": str(TOP)},
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            text=True,
        )
        started.append(process)
        assert process.stdout is not None and process.stdout.readline() == "ready\n"

    yield start
    for process in started:
        process.kill()
        process.communicate()
    directory.cleanup()


def own_namespaces(side: Side) -> None:
    side["pid"] = os.getpid()
    side["namespaces"] = {x: os.stat(f"/proc/self/ns/{x}").st_ino for x in whereabouts.KINDS}


def other_namespace(kind: str) -> Callable[[Side], None]:
    def change(side: Side) -> None:
        side["namespaces"][kind] += 1

    return change


def other_root(side: Side) -> None:
    side["root"][1] += 1


def nobody(side: Side) -> None:
    side["pid"] = 1 << 22  # one more than there can be


REFUSED = {
    "its mount namespace is another one": other_namespace("mnt"),
    "its uts namespace is another one": other_namespace("uts"),
    "its ipc namespace is another one": other_namespace("ipc"),
    "its net namespace is another one": other_namespace("net"),
    "its pid namespace is another one": other_namespace("pid"),
    "its user namespace is another one": other_namespace("user"),
    "its mount namespace is not a private one": own_namespaces,
    "its root is another one": other_root,
    "it cannot be looked at ([Errno 2] No such file or directory: '/proc/4194304')": nobody,
}


@pytest.mark.parametrize("reason", REFUSED)
@pytest.mark.parametrize("side", ["unit", "gateway"])
def test_what_is_not_as_recorded_is_not_entered(
    record: Record, keep: Callable[[str, Record], None], name: str, side: str, reason: str
) -> None:
    fake = copy.deepcopy(record)
    REFUSED[reason](next(x for x in fake["sides"] if x["side"] == side))
    keep(name, fake)
    with pytest.raises(running.NotEntered) as refused:
        running.run_inside(name, side, ["touch", "/run/touched"])
    assert str(refused.value) == (
        f"The station {name} is not what its keeper recorded: {reason}. Nothing has been run."
    )
    pid = next(x["pid"] for x in record["sides"] if x["side"] == side)
    assert not Path(f"/proc/{pid}/root/run/touched").exists()


def test_station_of_another_name_is_not_entered(
    record: Record, keep: Callable[[str, Record], None], name: str
) -> None:
    fake = copy.deepcopy(record)
    fake["name"] = f"{name}-other"
    keep(fake["name"], fake)
    for command in (["exec", "cat", MARK], ["tv", "on"]):
        result = run_command("--name", fake["name"], *command)
        assert (result.returncode, result.stdout) == (1, "")
        assert result.stderr == (
            f"The station {name}-other is not what its keeper recorded: it has another name."
            " Nothing has been run.\n"
        )


def test_side_of_another_name_is_not_entered(
    record: Record, keep: Callable[[str, Record], None], name: str
) -> None:
    fake = copy.deepcopy(record)
    fake["sides"][0]["side"], fake["sides"][1]["side"] = "unit", "gateway"
    keep(name, fake)
    with pytest.raises(running.NotEntered, match="it has another name"):
        running.run_inside(name, "gateway", ["true"])


@pytest.mark.parametrize(
    "flaw", ["another PID namespace", "another name", "another user", "unfinished"]
)
def test_keeper_without_a_record_of_its_own_does_not_count(
    record: Record, keep: Callable[[str, Record], None], name: str, flaw: str
) -> None:
    fake = copy.deepcopy(record)
    fake["name"] = f"{name}-{flaw}"
    if flaw == "another PID namespace":
        fake["pid_namespace"] += 1
    if flaw == "another name":
        fake["name"] = name
    keep(f"{name}-{flaw}", fake)
    with pytest.raises(running.NotEntered, match=NOBODY):
        running.run_inside(f"{name}-{flaw}", "unit", ["true"])


def test_programs_inherit_nothing_of_what_was_opened_to_enter(
    marked: Station, name: str, capfd: pytest.CaptureFixture[str]
) -> None:
    # The last descriptor is the one that lists them.
    script = "import os; print(sorted(os.listdir('/proc/self/fd')))"
    running.run_inside(name, "unit", ["python3", "-c", script])
    assert capfd.readouterr().out == "['0', '1', '2', '3']\n"


def test_program_starts_in_the_callers_directory_on_the_gateways_side_if_it_is_there(
    marked: Station,
    name: str,
    monkeypatch: pytest.MonkeyPatch,
    capfd: pytest.CaptureFixture[str],
) -> None:
    def directory(side: str) -> str:
        assert running.run_inside(name, side, ["pwd", "-P"]) == 0
        return capfd.readouterr().out

    monkeypatch.chdir(TOP / "docs")
    assert directory("gateway") == f"{TOP}/docs\n"
    assert directory("unit") == "/\n"
    # The side has one of its own.
    with tempfile.TemporaryDirectory(dir="/dev/shm") as only_here:
        monkeypatch.chdir(only_here)
        assert directory("gateway") == "/\n"
        Path(f"/proc/{marked.gateway_pid}/root{only_here}").symlink_to("/usr")
        assert directory("gateway") == "/\n"
    assert directory("gateway") == "/\n"


@pytest.mark.parametrize(
    "command, status",
    [(["sh", "-c", "exit 7"], 7), (["sh", "-c", "kill -9 $$"], 137), (["no-such-program"], 1)],
)
def test_programs_end_is_told(marked: Station, name: str, command: list[str], status: int) -> None:
    assert running.run_inside(name, "unit", command) == status


def test_program_decides_what_ctrl_c_does(marked: Station, name: str) -> None:
    script = "trap 'exit 5' INT; echo ready; while :; do sleep 0.1; done"
    with subprocess.Popen(
        command_line("--name", name, "exec", "sh", "-c", script),
        cwd=TOP,
        env=environment(),
        stdout=subprocess.PIPE,
        start_new_session=True,
    ) as process:
        try:
            assert process.stdout is not None and process.stdout.readline() == b"ready\n"
            os.killpg(process.pid, signal.SIGINT)
            assert process.wait(20) == 5
        finally:
            process.kill()
