"""The service prints line by line, each line in one write, whatever its output is."""

import json

import pytest
from support import StationMaker

from simulation import gateway
from simulation.gateway import deliver, detail_alert, display_alert, set_map_address
from simulation.process import Process
from simulation.station import Station
from simulation.waiting import wait_for

pytestmark = pytest.mark.once

# Runs the program that follows with a message socket for its standard output, on which each write
# arrives as a message of its own, and prints each as a JSON string.
RELAY_WRITES = """
import json, os, socket, sys
ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
if os.fork() == 0:
    os.dup2(theirs.fileno(), 1)
    os.execv(sys.argv[1], sys.argv[1:])
theirs.close()
while message := ours.recv(1 << 20):
    print(json.dumps(message.decode("latin-1")), flush=True)
"""

# The same with a terminal, which shows only the text.
RELAY_TERMINAL = """
import os, pty, sys, tty
pid, terminal = pty.fork()
if pid == 0:
    tty.setraw(1)
    os.execv(sys.argv[1], sys.argv[1:])
while True:
    os.write(1, os.read(terminal, 1 << 16))
"""

LONGEST_TEXT = b'"' * 4089  # becomes six times as long


def relayed(station: Station, relay: str) -> Process:
    service = station.start("/usr/bin/python3", "-c", relay, *station.service_command)
    station.wait_for_calls("qt-webkit-kiosk")
    return service


def writes(service: Process) -> list[str]:
    return [json.loads(line) for line in service.output.splitlines()]


def test_every_line_leaves_in_one_write(make_station: StationMaker) -> None:
    station = make_station()
    service = relayed(station, RELAY_WRITES)
    # With the page elsewhere, each alert also restarts the browser, which prints a line in between.
    for message in (
        gateway.set_page_address("http://example/"),
        display_alert(LONGEST_TEXT),
        detail_alert(b"<" * 3500, {n: gateway.Unit("U" * 31, 255) for n in range(16)}),
        set_map_address(b"m" * 4094),
    ):
        deliver(station, message)
    wait_for(lambda: "m" * 4094 in "".join(writes(service)), "the last document")
    longest = max(len(line) for line in writes(service))
    assert longest > 6 * 4089
    for line in writes(service):
        assert line.count("\n") == 1 and line.endswith("\n"), line[:100]


def test_line_of_a_configuration_that_is_all_braces_leaves_in_one_write(
    make_station: StationMaker,
) -> None:
    station = make_station()
    station.write_config("}" * 4095)
    service = relayed(station, RELAY_WRITES)
    deliver(station, gateway.hdtv_settings(1))
    expected = "}" + ',"rotation":"90"}' * 4094 + "\n"
    wait_for(lambda: expected in "".join(writes(service)), "the configuration")
    assert expected in writes(service)


def test_terminal_gets_a_long_line_in_as_many_writes_as_a_short_one(
    make_station: StationMaker,
) -> None:
    station = make_station()
    service = relayed(station, RELAY_TERMINAL)

    def writes_of(message: bytes) -> int:
        count = service_writes(station)
        deliver(station, message)
        return service_writes(station) - count

    def least_writes_of(message: bytes) -> int:
        """Without any watchdog kicks."""
        return min(writes_of(message) for _ in range(3))

    deliver(station, display_alert("FIRST"))
    assert least_writes_of(display_alert("FIRE")) == least_writes_of(display_alert(LONGEST_TEXT))
    wait_for(lambda: "&quot;" * 4089 in service.output, "the long line")


def service_writes(station: Station) -> int:
    """How many writes the service has made, to anything."""
    pid = station.calls("qt-webkit-kiosk")[0].ppid
    lines = station.path(f"/proc/{pid}/io").read_text().splitlines()
    return int(dict(line.split(": ") for line in lines)["syscw"])
