"""gatewayctl watch: who is there, on a terminal, in a pipe and in a file."""

import contextlib
import fcntl
import json
import os
import pty
import signal
import socket
import struct
import subprocess
import termios
from collections.abc import Iterator
from pathlib import Path

import pytest
from gatewayctl_support import GATEWAYCTL, gatewayctl_command, run
from loopback_units import DATE, SETTINGS, LoopbackUnit, LoopbackUnits

from simulation.gateway import VERSION
from simulation.places import HARDWARE_ADDRESS, UNIT_ADDRESS
from simulation.process import Process
from simulation.station import Station
from simulation.waiting import wait_for

pytestmark = [pytest.mark.tool, pytest.mark.waits]

INVENTORY = "alpha 127.0.1.1 north # above the door\nbeta 127.0.1.2\ngone 127.0.1.99 south\n"


@pytest.fixture
def units(station: Station) -> Iterator[list[LoopbackUnit]]:
    with LoopbackUnits(station, 2) as loopback_units:
        yield loopback_units


@pytest.fixture
def inventory(tmp_path: Path) -> str:
    file = tmp_path / "units"
    file.write_text(INVENTORY)
    return str(file)


def start_watch(station: Station, *arguments: str) -> Process:
    return station.start_in_gateway_network(GATEWAYCTL, "watch", "--every", "1s", *arguments)


def changes(watch: Process) -> list[str]:
    """The lines without their times and without blanks between the words."""
    return [" ".join(line.split()[1:]) for line in watch.output.splitlines()]


def test_watch_tells_when_a_unit_comes_and_goes(station: Station, service: Process) -> None:
    watch = start_watch(station, "--broadcast", "10.87.33.255")
    watch.wait_for_output("asks for: date, settings")
    service.kill()
    watch.wait_for_output("is missing; its last answer came at")
    assert changes(watch)[:3] == [
        "watch calls the roll every 1 s",
        f"{UNIT_ADDRESS} is there, version {VERSION} ({HARDWARE_ADDRESS})",
        f"{UNIT_ADDRESS} asks for: date, settings",
    ]
    assert watch.errors == ""
    os.kill(watch.pid, signal.SIGTERM)
    assert watch.wait() == 0
    assert changes(watch)[-1] == "watch ends"


def test_watch_answers_no_requests(station: Station, units: list[LoopbackUnit]) -> None:
    with station.on_gateway():
        command_port = socket.create_server((units[0].address, 4000))
    with command_port:
        units[0].asks_for = [DATE, SETTINGS]
        watch = start_watch(station, "--to", units[0].address)
        watch.wait_for_output("asks for: date, settings")
        command_port.setblocking(False)
        with pytest.raises(BlockingIOError):
            command_port.accept()


def test_named_units_as_json(station: Station, units: list[LoopbackUnit], inventory: str) -> None:
    watch = start_watch(station, "--units", inventory, "--json")
    watch.wait_for_output('"unit": "gone"')
    told = {line["unit"]: line for line in map(json.loads, watch.output.splitlines())}
    assert [told[name]["change"] for name in ("alpha", "beta", "gone")] == [
        *("appeared", "appeared", "lost")
    ]
    alpha = told["alpha"]
    assert alpha["time"] == alpha["since"] == alpha["last_answer"]
    assert {key: alpha[key] for key in alpha if key not in ("time", "since", "last_answer")} == {
        "change": "appeared",
        "unit": "alpha",
        "address": "127.0.1.1",
        "group": "north",
        "state": "present",
        "hardware_address": units[0].hardware_address,
        "version": VERSION,
        "asks_for": [],
    }
    assert (told["gone"]["state"], told["gone"]["last_answer"]) == ("missing", None)


def test_group_alone_is_called(station: Station, units: list[LoopbackUnit], inventory: str) -> None:
    watch = start_watch(station, "--units", inventory, "--group", "north")
    watch.wait_for_output("is there")
    with station.on_gateway():
        units[1].send_to("127.0.0.1", b"\2" + units[1].board + bytes([12, VERSION]))
    watch.wait_for_output("but not expected")
    assert changes(watch)[1:] == [
        f"alpha is there, version {VERSION} ({units[0].hardware_address})",
        f"127.0.1.2 is there, version {VERSION} ({units[1].hardware_address}), " "but not expected",
    ]


@contextlib.contextmanager
def on_terminal(command: list[str], rows: int, columns: int) -> Iterator[tuple[int, int]]:
    """Its process id, and the terminal's other end."""
    screen, terminal = pty.openpty()
    fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
    environment = {**os.environ, "TERM": "xterm", "TZ": "UTC"}
    with subprocess.Popen(command, stdout=terminal, env=environment) as process:
        os.close(terminal)
        try:
            yield process.pid, screen
        finally:
            process.kill()
            os.close(screen)


def test_table_on_a_terminal(station: Station, units: list[LoopbackUnit], inventory: str) -> None:
    command = gatewayctl_command(station, "watch", "--units", inventory, "--every", "1s")
    with on_terminal(command, 5, 60) as (pid, screen):
        shown = ""
        while "1 missing" not in shown or not shown.endswith("\x1b[J"):
            shown += os.read(screen, 4096).decode()
        os.kill(pid, signal.SIGINT)
        assert os.waitpid(pid, 0)[1] == 0
    assert shown.startswith("\x1b[2J\x1b[H")
    summary, headings, first, others = (
        shown.rpartition("\x1b[H")[2].removesuffix("\x1b[J").removesuffix("\r\n").split("\r\n")
    )
    assert summary.startswith("2 of 3 units present, 1 missing; ")
    assert headings.startswith("UNIT   GROUP  ADDRESS     STATE    SINCE")
    assert first.startswith("gone   south  127.0.1.99  missing  ")
    assert others == "and 2 more\x1b[K"
    assert all(len(line) <= 60 + len("\x1b[K") for line in (summary, headings, first))


def test_file_for_the_node_exporter(
    station: Station, units: list[LoopbackUnit], inventory: str, tmp_path: Path
) -> None:
    directory = tmp_path / "collected"
    directory.mkdir()
    file = directory / "units.prom"
    watch = start_watch(station, "--units", inventory, "--prometheus", str(file))
    wait_for(lambda: file.exists() and "present 2\n" in file.read_text(), "both units in the file")
    assert file.stat().st_mode & 0o777 == 0o644
    assert f'unit="alpha",group="north",address="127.0.1.1"}} 1' in file.read_text()
    # It cannot be written for a while.
    file.unlink()
    directory.rmdir()
    wait_for(lambda: watch.errors, "a complaint")
    directory.mkdir()
    wait_for(file.exists, "the file again")
    wait_for(lambda: "well" in watch.errors, "relief")
    assert watch.errors == (
        f"gatewayctl: cannot write {file}: No such file or directory\n"
        "gatewayctl: all is well again\n"
    )
    watch.kill()
    assert os.listdir(directory) == ["units.prom"]


def test_network_that_cannot_be_reached(station: Station) -> None:
    watch = start_watch(station, "--to", "203.0.113.1", "--listen", "127.0.0.1:9300")
    wait_for(lambda: watch.errors, "a complaint")
    assert watch.errors == (
        "gatewayctl: the roll call fails: cannot send to 203.0.113.1:4000: Network is unreachable\n"
    )
    wait_for(lambda: "failures_total 2\n" in scrape(station), "another attempt")
    assert "station_display_roll_calls_total 0\n" in scrape(station)
    assert watch.errors.count("\n") == 1


def test_unit_that_cannot_be_called_is_not_missing(
    station: Station, units: list[LoopbackUnit]
) -> None:
    named = ("--to", "203.0.113.1", "--to", units[0].address, "--to", "127.0.1.99")
    watch = start_watch(station, *named, "--listen", "127.0.0.1:9300")
    watch.wait_for_output("is missing")
    wait_for(lambda: "failures_total 4\n" in scrape(station), "further attempts")
    assert "127.0.1.99 is missing" in "\n".join(changes(watch))
    assert "203.0.113.1 is missing" not in "\n".join(changes(watch))


def scrape(station: Station) -> str:
    with station.on_gateway():
        connection = socket.create_connection(("127.0.0.1", 9300), 20)
    with connection:
        connection.sendall(b"GET /metrics HTTP/1.0\r\n\r\n")
        return b"".join(iter(lambda: connection.recv(65536), b"")).decode()


def test_clients_that_say_nothing_delay_nobody(station: Station, units: list[LoopbackUnit]) -> None:
    launched = ("prlimit", "--nofile=24", GATEWAYCTL, "watch", "--every", "1s")
    watch = station.start_in_gateway_network(
        *launched, "--to", units[0].address, "--listen", "127.0.0.1:9300"
    )
    watch.wait_for_output("is there")
    with contextlib.ExitStack() as stack:
        for _ in range(24):
            with station.on_gateway():
                client = socket.create_connection(("127.0.0.1", 9300), 20)
            stack.enter_context(client)
        watch.wait_for_output("watch            is out of file descriptors: units have to wait")
    assert "station_display_units_present 1\n" in scrape(station)
    assert "[warn]" not in watch.errors  # of the event library


def test_reader_that_goes_away_ends_the_watch(station: Station, units: list[LoopbackUnit]) -> None:
    command = gatewayctl_command(station, "watch", "--to", units[0].address, "--every", "1s")
    with subprocess.Popen(
        command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
    ) as watch:
        assert watch.stdout is not None and watch.stderr is not None
        assert "calls the roll" in watch.stdout.readline()
        assert "is there" in watch.stdout.readline()
        watch.stdout.close()
        units[0].board = bytes(6)
        assert watch.stderr.read() == "gatewayctl: nobody reads the output any more\n"
        assert watch.wait(10) == 1


@pytest.mark.parametrize(
    "arguments, words",
    [
        (["--every", "0.5s"], "--every takes at least 1s: a call costs each unit up to three"),
        (["--prometheus", "/tmp/units.txt"], "--prometheus takes a file whose name ends in .prom"),
        (["--listen", "127.0.0.1"], '--listen takes ADDRESS:PORT, not "127.0.0.1"'),
        (["--listen", "127.0.0.1:x"], '"x" is not a port'),
        (["--to", "127.0.0.1", "--broadcast", "127.0.0.1"], "watch takes either --to"),
        (["--group", "north"], "--group"),
    ],
)
def test_what_cannot_be_watched(arguments: list[str], words: str) -> None:
    result = run(GATEWAYCTL, "watch", *arguments)
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr.startswith(f"gatewayctl: {words}"), result.stderr


def test_units_with_the_same_address(tmp_path: Path) -> None:
    file = tmp_path / "units"
    file.write_text("alpha 127.0.0.1\nbeta localhost\n")
    result = run(GATEWAYCTL, "watch", "--units", str(file))
    assert result.returncode == 2
    assert result.stderr == ("gatewayctl: alpha and beta have the same address, 127.0.0.1\n")


def test_what_is_in_the_way(station: Station, tmp_path: Path) -> None:
    file = tmp_path / "none" / "units.prom"
    result = run(*gatewayctl_command(station, "watch", "--prometheus", str(file)))
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == f"gatewayctl: cannot write {file}: No such file or directory\n"
    with station.on_gateway():
        other = socket.create_server(("127.0.0.1", 9300))
    with other:
        command = gatewayctl_command(station, "watch", "--listen", "127.0.0.1:9300")
        result = run(*command)
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == (
        "gatewayctl: cannot listen on 127.0.0.1:9300: Address already in use\n"
    )
