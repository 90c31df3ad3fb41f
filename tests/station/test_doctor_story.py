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

TRANSCRIPT = (top_directory() / "docs" / "first-hour.md").read_text()


def without_numbers(text: str) -> str:
    return re.sub(r"\d+", "#", text)


def examine(station: Station, *options: str) -> list[str]:
    """What hdtv-doctor prints, as the installer sees it."""
    doctor: Process = station.start("/bin/busybox", "env", f"PATH={APPLETS}", PROGRAM, *options)
    doctor.wait()
    return doctor.output.splitlines()


def failures(lines: list[str]) -> list[str]:
    """As by grep -A1 FAIL, without the line that counts them."""
    places = [place for place, line in enumerate(lines) if line.startswith("  FAIL ")]
    return [line for place in places for line in lines[place : place + 2]]


def expect_told(lines: list[str]) -> None:
    transcript = without_numbers(TRANSCRIPT)
    for line in lines:
        # This machine's clock may be synchronized.
        if line and " clock: " not in line:
            assert f"    {without_numbers(line)}\n" in transcript, line


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
        assert len(first) == 8
        expect_told(first)

        # Corrected and started. The television does not wake.
        station.write_config(CONFIG + "\n")
        station.start_web_server()
        board.script("start")
        station.wait_for_calls("qt-webkit-kiosk")
        station.path(LIVENESS_FILE).touch()
        second = examine(station)
        assert failures(second) == []
        expect_told([line for line in second if "cannot tell" in line])
        third = examine(station, "--stop-service")
        assert "  FAIL         power status:" in "\n".join(third)
        expect_told(third[third.index("television") : third.index("browser")])

        # CEC is switched on in its menus.
        television.is_deaf = False
        expect_told([x for x in examine(station, "--stop-service") if "power status" in x])
        board.wait_for_start(0)
        gateway.deliver(station, gateway.display_alert("DRILL"))
        wait_for(lambda: television.power == ON, "the television")
        station.path(LIVENESS_FILE).touch()
        last = examine(station)
    assert failures(last) == []
    expect_told(last)
