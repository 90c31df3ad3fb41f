"""The transcript of an installer's first hour in docs/first-hour.md: it is played here, and what
hdtv-doctor prints is what stands there."""

import re

import pytest
from board_support import APPLETS, SCRIPTS, Board
from doctor_support import CONFIG, PROGRAM, PROGRAMS, have_good_machine
from support import StationMaker

from simulation import gateway
from simulation.places import LIVENESS_FILE, top_directory
from simulation.process import Process
from simulation.station import Station
from simulation.television import ON, Television
from simulation.waiting import wait_for

pytestmark = [pytest.mark.tool, pytest.mark.once, pytest.mark.waits]

DOCUMENT = (top_directory() / "docs" / "first-hour.md").read_text()
DOCTOR = "hdtv-doctor"


def transcript() -> list[tuple[str, list[str]]]:
    """Each command with what it prints, without numbers."""
    played: list[tuple[str, list[str]]] = []
    for line in DOCUMENT.splitlines():
        if line.startswith("    # "):
            played.append((line.removeprefix("    # "), []))
        elif played and line.startswith("    "):
            played[-1][1].append(line.removeprefix("    "))
    return [(command, comparable(lines)) for command, lines in played]


def comparable(lines: list[str]) -> list[str]:
    """This machine's clock may be synchronized."""
    return [re.sub(r"\d+", "#", line) for line in lines if line and " clock: " not in line]


def examine(station: Station, *options: str) -> Process:
    """As the installer does."""
    doctor = station.start("/bin/busybox", "env", f"PATH={APPLETS}", PROGRAM, *options)
    doctor.wait()
    return doctor


def failures(doctor: Process) -> list[str]:
    """As by grep -A1 '^  FAIL'."""
    lines = doctor.output.splitlines()
    places = [place for place, line in enumerate(lines) if line.startswith("  FAIL ")]
    kept: list[str] = []
    for place in places:
        if kept and place > 0 and lines[place - 2] != kept[-2]:
            kept.append("--")
        kept += lines[place : place + 2]
    return kept


def containing(doctor: Process, words: str) -> list[str]:
    return [line for line in doctor.output.splitlines() if words in line]


def test_first_hour(make_station: StationMaker) -> None:
    station = make_station(programs={**SCRIPTS, **PROGRAMS}, is_board_root=True)
    have_good_machine(station)
    station.path(LIVENESS_FILE).unlink()
    station.run("ln", "-sfn", "/usr/share/zoneinfo/Etc/UTC", "/etc/localtime")
    script = station.path("/etc/init.d/S90hdtv")
    script.write_text(SCRIPTS["S90hdtv"].read_text())
    script.chmod(0o755)
    board = Board(station)

    # Just installed, and configured by hand.
    station.write_config('{"comm_gw": "10.87.33.20","rotation":90}\n')
    with Television(station, power=1) as television:
        television.is_deaf = True
        first = failures(examine(station))

        # Corrected and started. The television does not wake.
        station.write_config(CONFIG + "\n")
        station.start_web_server()
        board.script("start")
        station.wait_for_calls("qt-webkit-kiosk")
        station.path(LIVENESS_FILE).touch()
        second = examine(station)
        third = examine(station, "--stop-service")

        # CEC is switched on in its menus.
        television.is_deaf = False
        fourth = examine(station, "--stop-service")
        board.wait_for_start(0)
        gateway.deliver(station, gateway.display_alert("DRILL"))
        wait_for(lambda: television.power == ON, "the television")
        station.path(LIVENESS_FILE).touch()
        last = examine(station)
    lines = third.output.splitlines()
    asked = lines[lines.index("television") : lines.index("browser")]
    assert [printed for command, printed in transcript() if command.startswith(DOCTOR)] == [
        comparable(printed)
        for printed in (
            first,
            containing(second, "cannot tell"),
            [*third.errors.splitlines(), "\N{HORIZONTAL ELLIPSIS}", *asked],
            containing(fourth, "power status"),
            last.output.splitlines(),
        )
    ]
