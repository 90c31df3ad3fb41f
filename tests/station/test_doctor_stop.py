"""hdtv-doctor in the service's place: the service is running again afterward, whatever happens."""

import json
import os
from collections.abc import Iterator

import pytest
from board_support import APPLETS, SCRIPTS, Board
from doctor_support import CONFIG, PROGRAM, PROGRAMS, Report, Finding, examine, start_doctor
from support import StationMaker, start

from simulation import gateway
from simulation.places import GATEWAY_FILE
from simulation.process import Process
from simulation.television import Television
from simulation.waiting import wait_for

pytestmark = [pytest.mark.tool, pytest.mark.once, pytest.mark.waits]


@pytest.fixture
def board(make_station: StationMaker) -> Iterator[Board]:
    """With its service started by the init script, in its usual place."""
    station = make_station(programs={**SCRIPTS, **PROGRAMS}, is_board_root=True)
    script = station.path("/etc/init.d/S90hdtv")
    script.write_text(SCRIPTS["S90hdtv"].read_text())
    script.chmod(0o755)
    station.write_config(CONFIG)
    board = Board(station)
    with Television(station, power=1):
        assert board.script("start")[0] == 0
        station.wait_for_calls("qt-webkit-kiosk")
        yield board
    board.watchdog.close()


STOPPING = (
    "hdtv-doctor: stopping the service; it is started again afterward, which may take two minutes\n"
)


def stop_and_look(board: Board) -> Process:
    shell = ("/bin/busybox", "env", f"PATH={APPLETS}", PROGRAM, "--json", "--stop-service")
    return board.station.start(*shell)


def told(doctor: Process) -> Report:
    lines = [json.loads(line) for line in doctor.output.splitlines()]
    return Report(doctor.wait(), [Finding(**line) for line in lines])


def test_television_is_asked_in_the_services_place_but_not_during_an_alert(board: Board) -> None:
    former = board.pid()
    doctor = stop_and_look(board)
    doctor.wait()
    report = told(doctor)
    assert report.of("power status").evidence == "in standby"
    # It was looked at before.
    assert report.of("service").evidence == f"hdtv (process {former})"
    assert report.of("TCP port 4000").grade == "ok"
    assert doctor.errors == STOPPING + "hdtv: stopped\nhdtv: started\n"
    board.wait_for_start(former)
    board.alert("FIRE")
    latter = board.pid()
    doctor = stop_and_look(board)
    assert doctor.wait() == 1
    assert doctor.errors.startswith("hdtv-doctor: an alert is on the page")
    assert board.services() == [latter]
    # Everything else is told.
    report = told(doctor)
    assert report.of("television").grade == "cannot tell"
    assert report.of("television").evidence.startswith("an alert is on the page")
    assert report.of("TCP port 4000").grade == "ok"


def set_times(board: Board, service: float, gateway_file: float) -> None:
    """When the service was started, and when it learnt its gateway."""
    for name, then in (("/run/hdtv.pid", service), (GATEWAY_FILE, gateway_file)):
        os.utime(board.station.path(name), (then, then))


def test_gateway_stays_known_when_the_clock_is_set(board: Board) -> None:
    """Many boards have no clock of their own: the gateway sets it after the first connection."""
    gateway.deliver(board.station, gateway.detail_alert(""))
    year_2001 = 978307200
    set_times(board, service=year_2001, gateway_file=year_2001 + 5)
    assert examine(board.station).of("gateway").evidence == "10.87.33.20, known"
    set_times(board, service=year_2001, gateway_file=year_2001 - 5)
    gateway_line = examine(board.station).of("gateway")
    assert gateway_line.grade == "cannot tell"
    assert gateway_line.evidence == "10.87.33.20, left by a former service; none known yet"


def test_service_with_a_connection_is_not_stopped(board: Board) -> None:
    """An alert may be on its way."""
    service = board.pid()
    connection = gateway.connect(board.station)
    doctor = stop_and_look(board)
    assert doctor.wait() == 1
    assert doctor.errors.startswith("hdtv-doctor: a gateway is connected")
    assert board.services() == [service]
    gateway.reset(connection)


def test_service_that_does_not_start_again_is_a_fault(board: Board) -> None:
    service = board.pid()
    script = board.station.path("/etc/init.d/S90hdtv")
    script.write_text(
        '#!/bin/sh\n[ "$1" = stop ] || exit 1\npid=$(cat /run/hdtv.pid)\nkill "$pid"\n'
        'while kill -0 "$pid" 2>/dev/null; do :; done\n'
    )
    doctor = stop_and_look(board)
    assert doctor.wait() == 1
    assert told(doctor).failed()["service's start"] == "it has not been started again"
    assert told(doctor).of("power status").evidence == "in standby"
    assert service not in board.services()


def test_service_that_does_not_end_is_told_of(board: Board) -> None:
    script = board.station.path("/etc/init.d/S90hdtv")
    script.write_text("#!/bin/sh\n")
    doctor = stop_and_look(board)
    assert doctor.wait() == 1
    assert told(doctor).of("television").evidence.endswith(") does not stop")
    assert told(doctor).of("TCP port 4000").grade == "ok"


def test_others_than_root_stop_nothing(board: Board) -> None:
    service = board.pid()
    nobody = ("/usr/bin/setpriv", "--reuid=65534", "--clear-groups", "--")
    doctor = board.station.start(*nobody, PROGRAM, "--stop-service")
    assert (doctor.wait(), doctor.output) == (1, "")
    assert doctor.errors == "hdtv-doctor: --stop-service needs root\n"
    assert board.services() == [service]


@pytest.mark.parametrize("signal", ["INT", "KILL"])
def test_interrupted_look_leaves_the_service_running(board: Board, signal: str) -> None:
    """Even in the middle of the stop."""
    former = board.pid()
    doctor = stop_and_look(board)
    wait_for(lambda: former not in board.services(), "the service's end")
    (pid, *_) = [n for n in board.processes("--stop-service") if board.name_of(n) != "busybox"]
    board.station.run("/bin/kill", f"-{signal}", str(pid))
    assert doctor.wait() == (130 if signal == "INT" else -9)
    assert doctor.output == ""
    board.wait_for_start(former)
    wait_for(lambda: not board.processes("S90hdtv stop"), "the end of the stop")
    assert board.services() == [board.pid()]
    assert board.station.path("/run/hdtv.log").is_fifo()


def test_service_that_nothing_would_start_again_is_not_stopped(make_station: StationMaker) -> None:
    station = make_station(programs=PROGRAMS)
    service = start(station)
    doctor = start_doctor(station, "--stop-service")
    assert doctor.wait() == 1
    assert "was started by neither systemd nor /etc/init.d/S90hdtv" in doctor.errors
    gateway.deliver(station, gateway.display_alert("FIRE"))
    assert service.is_running()
