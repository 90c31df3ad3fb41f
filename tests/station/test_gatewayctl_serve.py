"""gatewayctl as a small gateway, for one unit and for many."""

import contextlib
import os
import socket
import subprocess
import time
from collections.abc import Callable, Iterator, Sequence
from pathlib import Path

import pytest
from gatewayctl_support import GATEWAYCTL, gatewayctl_command
from support import StationMaker, start

from simulation.gateway import VERSION
from simulation.process import Process
from simulation.station import Station
from simulation.waiting import DEADLINE, wait_for

pytestmark = pytest.mark.tool


def test_serve_answers_requests_and_keeps_calling(make_station: StationMaker) -> None:
    station = make_station()
    server = station.start_in_gateway_network(
        *(GATEWAYCTL, "serve", "--rotation", "180"),
        *("--roll-call", "10.87.33.255", "--every", "500ms"),
    )
    server.wait_for_output("listens for units")
    start(station)
    server.wait_for_output(f"is up, version {VERSION} (02:00:0a:57:21:32)", 2)
    server.wait_for_output("has taken the date")
    server.wait_for_output("has taken the rotation 180")
    assert station.wait_for_calls("date")[0].argv[2].startswith("@")
    assert station.wait_for_calls("qt-webkit-kiosk", 2)[-1].argv[-1].endswith("?rotation=180")
    # Units that have been answered do not ask again.
    before = server.output.count("is up")
    server.wait_for_output("is up", before + 2)
    assert server.output.count("asks for the date") == 1
    assert server.output.count("asks for its settings") == 1
    assert all(line[2:3] + line[5:6] + line[8:9] == "::." for line in server.output.splitlines())
    assert server.errors == ""


def test_serve_ends_at_a_signal(station: Station) -> None:
    with subprocess.Popen(
        gatewayctl_command(station, "serve"), stdout=subprocess.PIPE, text=True
    ) as server:
        try:
            assert server.stdout is not None
            assert "listens for units" in server.stdout.readline()
            server.terminate()
            assert server.wait(10) == 0
            assert server.stdout.read().endswith("gateway          ends\n")
        finally:
            server.kill()


def test_serve_survives_what_is_no_record(station: Station) -> None:
    server = station.start_in_gateway_network(GATEWAYCTL, "serve")
    server.wait_for_output("listens for units")
    for content in (b"x" * 100, b"\x02", b""):
        with station.in_unit():
            connection = socket.create_connection(("10.87.33.20", 5000), 20)
        with connection:
            connection.sendall(content)
    server.wait_for_output("sent an invalid record", 2)
    assert server.is_running()


class FakeUnit:
    """One of many units, on the gateway's own loopback network. What gatewayctl sends to it is
    not accepted until take()."""

    def __init__(self, station: Station, number: int) -> None:
        self.address = f"127.0.0.{number}"
        self._station = station
        with station.on_gateway():
            self._listening = socket.create_server((self.address, 4000))
        self._listening.settimeout(DEADLINE)

    def connect(self) -> socket.socket:
        with self._station.on_gateway():
            source = (self.address, 0)
            return socket.create_connection(("127.0.0.1", 5000), DEADLINE, source_address=source)

    def send(self, code: int) -> None:
        with self.connect() as connection:
            connection.sendall(bytes([code]) + bytes(6))

    def take(self) -> bytes:
        connection, _ = self._listening.accept()
        with connection:
            return connection.recv(4096)

    def close(self) -> None:
        self._listening.close()


DATE, SETTINGS = 39, 47  # what units ask for


UnitMaker = Callable[[int], list[FakeUnit]]


@pytest.fixture
def make_units(station: Station) -> Iterator[UnitMaker]:
    with contextlib.ExitStack() as stack:
        yield lambda count: [
            stack.enter_context(contextlib.closing(FakeUnit(station, 2 + number)))
            for number in range(count)
        ]


def start_serve(station: Station, *arguments: str, launcher: Sequence[str] = ()) -> Process:
    server = station.start_in_gateway_network(*launcher, GATEWAYCTL, *arguments, "serve")
    server.wait_for_output("listens for units")
    return server


def lines_of(server: Process, unit: FakeUnit) -> list[str]:
    lines = [line.split(maxsplit=2)[1:] for line in server.output.splitlines()]
    return [words for address, words in lines if address == unit.address]


def test_units_that_take_nothing_delay_no_other(station: Station, make_units: UnitMaker) -> None:
    server = start_serve(station, "--timeout", "60min")
    units = make_units(10)
    for code in (DATE, SETTINGS):
        for unit in units:
            unit.send(code)
    for _ in range(2):
        for unit in units[3:]:
            assert unit.take()
    server.wait_for_output("has taken the rotation 0", 7)
    asks_for_date = "asks for the date (00:00:00:00:00:00)"
    asks_for_settings = "asks for its settings (00:00:00:00:00:00)"
    talk = [asks_for_date, "has taken the date", asks_for_settings, "has taken the rotation 0"]
    assert [lines_of(server, unit) for unit in units] == 3 * [talk[:1]] + 7 * [talk]
    # Unanswered requests are listed and answered in order.
    assert units[0].take().startswith(b"\x28@")
    assert units[0].take() == b"\x31\0"
    server.wait_for_output("has taken the rotation 0", 8)
    assert lines_of(server, units[0]) == talk


def test_unit_that_takes_nothing_in_time_is_given_up(
    station: Station, make_units: UnitMaker
) -> None:
    server = start_serve(station, "--timeout", "100ms")
    (unit,) = make_units(1)
    unit.send(DATE)
    unit.send(DATE)
    server.wait_for_output("could not be sent the date: the message was sent, but", 2)
    assert [line.partition(" ")[0] for line in lines_of(server, unit)] == 2 * ["asks", "could"]


def test_unit_that_asks_on_and_on_fills_no_memory(station: Station, make_units: UnitMaker) -> None:
    server = start_serve(station, "--timeout", "60min")
    greedy, other = make_units(2)
    for _ in range(20):
        greedy.send(DATE)
    server.wait_for_output("sends requests faster than it takes answers: a record is dropped", 3)
    other.send(DATE)
    assert other.take()
    server.wait_for_output("has taken the date")
    for _ in range(17):
        assert greedy.take()
    server.wait_for_output("has taken the date", 18)


def test_records_of_a_whole_fleet_may_come_at_once(station: Station) -> None:
    """As those of a hundred units do when the roll is called: three each."""
    server = start_serve(station)
    server.suspend()
    for number in range(300):
        with station.on_gateway():
            source = (f"127.0.{1 + number // 250}.{1 + number % 250}", 0)
            connection = socket.create_connection(("127.0.0.1", 5000), 5, source_address=source)
        with connection:
            connection.sendall(bytes([2, 2, 0, 0, 0, 0, 0, 12, VERSION]))
    server.resume()
    server.wait_for_output(f"is up, version {VERSION}", 300, deadline=10)
    assert len({line.split()[1] for line in server.output.splitlines()[1:]}) == 300


def is_ended(connection: socket.socket) -> bool:
    """Whether gatewayctl has closed it."""
    connection.setblocking(False)
    try:
        return connection.recv(1) == b""
    except BlockingIOError:
        return False


@pytest.mark.slow
def test_hundred_silent_connections_delay_nobody(station: Station, make_units: UnitMaker) -> None:
    server = start_serve(station)
    silent, unit = make_units(2)
    with contextlib.ExitStack() as stack:
        connections = [stack.enter_context(silent.connect()) for _ in range(100)]
        unit.send(DATE)
        assert unit.take()
        server.wait_for_output("has taken the date")
        assert not all(is_ended(connection) for connection in connections)
        wait_for(lambda: all(is_ended(connection) for connection in connections), "their ends")
    assert lines_of(server, silent) == []


@pytest.mark.slow
def test_record_without_an_end_counts_after_a_while(
    station: Station, make_units: UnitMaker
) -> None:
    server = start_serve(station)
    (unit,) = make_units(1)
    with unit.connect() as connection:
        connection.sendall(bytes([DATE]) + bytes(6))
        assert unit.take()
    server.wait_for_output("has taken the date")


def processor_time(process: Process) -> float:
    fields = Path(f"/proc/{process.pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


@pytest.mark.slow
def test_serve_rests_while_there_are_no_descriptors(
    station: Station, make_units: UnitMaker
) -> None:
    server = start_serve(station, launcher=["prlimit", "--nofile=12"])
    silent, unit = make_units(2)
    with contextlib.ExitStack() as stack:
        connections = [stack.enter_context(silent.connect()) for _ in range(30)]
        server.wait_for_output("gateway          is out of file descriptors: units have to wait")
        begin, used = time.monotonic(), processor_time(server)
        wait_for(lambda: is_ended(connections[0]), "the end of the first connection")
        assert processor_time(server) - used < (time.monotonic() - begin) / 4
    unit.send(DATE)
    assert unit.take()
    server.wait_for_output("has taken the date")
    assert server.output.count("is out of file descriptors") == 1
