"""hdtv-doctor in the service's place: the service is running again afterward, whatever happens."""

import json
from collections.abc import Iterator

import pytest
from board_support import APPLETS, SCRIPTS, Board
from doctor_support import CONFIG, PROGRAM, PROGRAMS, Report, Finding, start_doctor
from support import StationMaker, start

from simulation import gateway
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


def stop_and_look(board: Board) -> Process:
    shell = ("/bin/busybox", "env", f"PATH={APPLETS}", PROGRAM, "--json", "--stop-service")
    return board.station.start(*shell)


def test_television_is_asked_in_the_services_place_but_not_during_an_alert(board: Board) -> None:
    former = board.pid()
    doctor = stop_and_look(board)
    doctor.wait()
    lines = [json.loads(line) for line in doctor.output.splitlines()]
    report = Report(0, [Finding(**line) for line in lines])
    assert report.of("power status").evidence == "in standby"
    # It was looked at before.
    assert report.of("service").evidence == f"hdtv (process {former})"
    assert report.of("TCP port 4000").grade == "ok"
    assert doctor.errors == "hdtv: stopped\nhdtv: started\n"
    board.wait_for_start(former)
    board.alert("FIRE")
    latter = board.pid()
    doctor = stop_and_look(board)
    assert doctor.wait() == 1
    assert doctor.errors.startswith("hdtv-doctor: an alert is on the page")
    assert board.services() == [latter]


@pytest.mark.parametrize("signal", ["INT", "KILL"])
def test_interrupted_look_leaves_the_service_running(board: Board, signal: str) -> None:
    former = board.pid()
    doctor = stop_and_look(board)
    wait_for(lambda: former not in board.services(), "the service's end")
    (pid, *_) = [n for n in board.processes("--stop-service") if board.name_of(n) != "busybox"]
    board.station.run("/bin/kill", f"-{signal}", str(pid))
    assert doctor.wait() in (130, -9)
    assert doctor.output == ""
    board.wait_for_start(former)


def test_service_that_nothing_would_start_again_is_not_stopped(make_station: StationMaker) -> None:
    station = make_station(programs=PROGRAMS)
    service = start(station)
    doctor = start_doctor(station, "--stop-service")
    assert doctor.wait() == 1
    assert "was started by neither systemd nor /etc/init.d/S90hdtv" in doctor.errors
    gateway.deliver(station, gateway.display_alert("FIRE"))
    assert service.is_running()
