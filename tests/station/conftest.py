"""The black-box tests' stations."""

import contextlib
import os
import signal
from collections.abc import Callable, Iterator

import pytest

from station import linux
from station.gateway import deliver, send, set_date, wait_until_taken
from station.station import Process, Station
from station.waiting import wait_for

# Before anything else is opened here.
linux.open_standard_descriptors()

StationMaker = Callable[..., Station]

# Three standard ones, the watchdog, two sockets, three of the event loop.
IDLE_DESCRIPTORS = 9

SIGPIPE = 1 << (signal.SIGPIPE - 1)

# They only print what they find, by way of popen, which leaves SIGPIPE to them as it is.
QUERIES = [["tvservice", "-s"], ["ifconfig"], ["lsusb"]]


def check_children(station: Station) -> None:
    """What holds for every program that the service has started, whatever the test was about."""
    for call in station.calls():
        if call.parent == "hdtv":
            assert call.descriptors == {}, call
            named = [call.name, *call.argv[1:]]
            assert not int(call.ignored_signals, 16) & SIGPIPE or named in QUERIES, call


@pytest.fixture
def make_station() -> Iterator[StationMaker]:
    """Stations as a test wants them, each with an empty configuration object."""
    with contextlib.ExitStack() as stack:
        stations: list[Station] = []

        def make(**settings: object) -> Station:
            station = stack.enter_context(Station(**settings))  # type: ignore[arg-type]
            station.write_config("{}")
            stations.append(station)
            return station

        yield make
        for station in stations:
            check_children(station)
            for process in station.processes:
                assert "Sanitizer" not in process.errors, process.errors
                assert "runtime error" not in process.errors, process.errors


@pytest.fixture
def station(make_station: StationMaker) -> Station:
    return make_station()


@pytest.fixture
def service(station: Station) -> Process:
    """The service, started up: its browser is the last thing that start-up starts."""
    return start(station)


def start(station: Station) -> Process:
    service = station.start_service()
    station.wait_for_calls("qt-webkit-kiosk")
    return service


@contextlib.contextmanager
def busy_service(station: Station) -> Iterator[None]:
    """Inside, the service waits for its date program; what is sent meanwhile waits in the sockets.
    At the end it has done all of it."""
    station.behave("date", "await /tmp/release")
    calls = len(station.calls("date"))
    send(station, set_date("now"))
    station.wait_for_calls("date", calls + 1)
    yield
    station.path("/tmp/release").touch()
    wait_until_taken(station)
    deliver(station, b"\0")
    station.path("/tmp/release").unlink()


def open_descriptors(process: Process) -> list[str]:
    return sorted(os.listdir(f"/proc/{process.pid}/fd"))


def wait_for_descriptors(service: Process, count: int) -> int:
    """A peer sees the end of its connection just before the service has closed it."""
    wait_for(lambda: len(open_descriptors(service)) == count, f"{count} descriptors")
    return count
