"""hdtv-doctor as the tests run it: in the unit, confined like the service."""

import contextlib
import json
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path

from simulation.places import BIN, LIVENESS_FILE, REAL, host_build_directory
from simulation.process import Process
from simulation.station import Station
from simulation.tools import BOARD_MOUNT

DOCTOR = host_build_directory() / "tools" / "doctor" / "hdtv-doctor"
PROGRAMS = {"hdtv-doctor": DOCTOR}
PROGRAM = f"{BIN}/hdtv-doctor"

CONFIG = '{"comm_gw":"10.87.33.20","rotation":"0","log_alerts":"true"}'


@dataclass(frozen=True)
class Finding:
    section: str
    link: str
    grade: str
    evidence: str
    next: str = ""
    chapter: str = ""


@dataclass(frozen=True)
class Report:
    status: int
    findings: list[Finding]

    def of(self, link: str) -> Finding:
        """The first finding about the link."""
        return next(found for found in self.findings if found.link == link)

    def failed(self) -> dict[str, str]:
        """The evidence of each failed link, the first one if there are several."""
        failures = [found for found in reversed(self.findings) if found.grade == "fail"]
        return {found.link: found.evidence for found in failures}


def start_doctor(station: Station, *arguments: str, starter: tuple[str, ...] = ()) -> Process:
    return station.start(*starter, PROGRAM, *arguments)


def examine(station: Station, *arguments: str, starter: tuple[str, ...] = ()) -> Report:
    doctor = start_doctor(station, "--json", *arguments, starter=starter)
    status = doctor.wait()
    assert doctor.errors == ""
    lines = [json.loads(line) for line in doctor.output.splitlines()]
    report = Report(status, [Finding(**line) for line in lines])
    assert status == (1 if report.failed() else 0)
    return report


def write_file(station: Station, name: str, text: str) -> Path:
    """In the unit, with the directories that it needs."""
    path = station.path(name)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    return path


class Unit:
    """A unit with a service."""

    def __init__(self, station: Station, service: Process) -> None:
        self.station = station
        self.service = service
        self.starter: tuple[str, ...] = ()  # of the doctor

    def examine(self) -> Report:
        return examine(self.station, starter=self.starter)


@contextlib.contextmanager
def missing(unit: Unit, name: str) -> Iterator[None]:
    path = unit.station.path(name)
    aside = path.with_name(path.name + ".aside")
    path.rename(aside)
    yield
    aside.rename(path)


@contextlib.contextmanager
def written(unit: Unit, name: str, text: str) -> Iterator[None]:
    path = unit.station.path(name)
    before = path.read_text() if path.exists() else None
    write_file(unit.station, name, text)
    yield
    if before is None:
        path.unlink()
    else:
        path.write_text(before)


def mount_memory(station: Station, place: str, size: str = "1m") -> None:
    """Over what is there, in a unit with a board's root."""
    mount = f"{REAL}{BOARD_MOUNT}"
    station.run(mount, "-t", "tmpfs", "-o", f"size={size},mode=1777", "station", place)


def have_good_machine(station: Station) -> None:
    """What the kernel of a board tells, in a unit with a board's root, and a page that is alive."""
    mount_memory(station, "/sys/class")  # /sys itself stays read-only
    write_file(station, "/sys/class/watchdog/watchdog0/identity", "the board's\n")
    write_file(station, "/sys/class/watchdog/watchdog0/timeout", "15\n")
    write_file(station, "/sys/class/watchdog/watchdog0/state", "active\n")
    write_file(station, "/sys/class/hwmon/hwmon0/name", "board_volt\n")
    write_file(station, "/sys/class/hwmon/hwmon0/in0_lcrit_alarm", "0\n")
    write_file(station, "/sys/class/drm/card0-HDMI-A-1/status", "connected\n")
    write_file(station, "/sys/class/drm/card0-HDMI-A-1/modes", "1920x1080\n")
    station.write_config(CONFIG)
    station.path(LIVENESS_FILE).touch()
