"""What the service inherits from its parent: closed descriptors, ignored signals."""

import socket
from pathlib import Path

import pytest

from simulation import gateway
from simulation.gateway import deliver, display_alert, send
from simulation.process import Process
from simulation.station import Station
from simulation.waiting import wait_for


def start_by_shell(station: Station, redirection: str) -> Process:
    script = f'exec "$@" {redirection}'
    service = station.start("/bin/sh", "-c", script, "sh", *station.service_command)
    station.wait_for_calls("qt-webkit-kiosk")
    return service


def descriptor(service: Process, number: int) -> str:
    return str(Path(f"/proc/{service.pid}/fd/{number}").readlink())


@pytest.mark.parametrize("closed", ["1", "2", "1 2", "0 1 2"])
def test_watchdog_never_takes_the_place_of_an_output(station: Station, closed: str) -> None:
    redirection = " ".join(f"{number}>&-" for number in closed.split())
    service = start_by_shell(station, redirection)
    for number in closed.split():
        if number != "0":
            assert descriptor(service, int(number)) == "/dev/null"
    deliver(station, display_alert("FIRE"))
    assert station.document()["alert_area"] == "FIRE"
    # Nothing but kicks. The kick of the first second may already be there.
    assert set(station.read_kicks()) <= set(b" ")
    assert service.is_running()


def test_standard_input_that_is_closed_is_left_to_the_watchdog(station: Station) -> None:
    service = start_by_shell(station, "0<&-")
    assert descriptor(service, 0) == "/dev/watchdog"
    deliver(station, display_alert("FIRE"))
    assert station.read_kicks() == b""  # its descriptor 0 is never kicked


def start_with_children_ignored(station: Station) -> None:
    """A wait for any child would then last until all are gone, and the browser never exits."""
    station.start("/usr/bin/env", "--ignore-signal=CHLD", *station.service_command)
    station.wait_for_calls("qt-webkit-kiosk")


def test_ignored_end_of_children_does_not_hold_a_wait_for_the_date(station: Station) -> None:
    start_with_children_ignored(station)
    send(station, gateway.set_date("2026-03-05 07:04:09"))
    station.wait_for_calls("date")
    deliver(station, display_alert("FIRE"))
    assert station.document()["alert_area"] == "FIRE"


def test_ignored_end_of_children_does_not_hold_a_clip(station: Station) -> None:
    station.behave("wget", "exit 0")
    start_with_children_ignored(station)
    send(station, gateway.play_clip("http://10.87.33.20/a.wav"))
    station.wait_for_calls("aplay")


def test_without_standard_error_a_fault_is_said_to_nobody(station: Station) -> None:
    with station.in_unit():
        holder = socket.create_server(("0.0.0.0", gateway.COMMAND_PORT))
    with holder:
        service = start_by_shell(station, "2>&-")
        wait_for(lambda: "10.87.33.50" in station.document_text(), "the idle document")
        assert service.is_running()
