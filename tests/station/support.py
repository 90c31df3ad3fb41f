"""What the black-box tests share: stations, services and checks of both."""

import contextlib
import os
import signal
from collections.abc import Callable, Iterator

from simulation.gateway import deliver, send, set_date, wait_until_taken
from simulation.process import Process
from simulation.station import Station
from simulation.waiting import wait_for

StationMaker = Callable[..., Station]

# Three standard ones, the watchdog, two sockets, three for the event loop.
IDLE_DESCRIPTORS = 9

SIGPIPE = 1 << (signal.SIGPIPE - 1)

# They only print what they find; popen starts them with SIGPIPE unchanged.
QUERIES = [["tvservice", "-s"], ["ifconfig"], ["lsusb"]]


def check_children(station: Station) -> None:
    """What is true of every program that the service starts, in any test."""
    for call in station.calls():
        if call.parent == "hdtv":
            assert call.descriptors == {}, call
            named = [call.name, *call.argv[1:]]
            assert not int(call.ignored_signals, 16) & SIGPIPE or named in QUERIES, call


def start(station: Station) -> Process:
    service = station.start_service()
    station.wait_for_calls("qt-webkit-kiosk")
    return service


@contextlib.contextmanager
def busy_service(station: Station) -> Iterator[None]:
    """In the block, the service waits for its date program, and messages queue up in the sockets.
    After the block, it has handled all of them."""
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


def is_zombie(station: Station, pid: int) -> bool:
    stat = station.path(f"/proc/{pid}/stat").read_text()
    return stat.rpartition(")")[2].split()[0] == "Z"
