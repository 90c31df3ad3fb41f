"""hdtv-doctor finds each fault where it was made, and none in a healthy unit."""

import contextlib
import os
import select
import struct
import time
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest
from doctor_support import (
    PROGRAM,
    PROGRAMS,
    Unit,
    examine,
    have_good_machine,
    missing,
    start_doctor,
    write_file,
    written,
)
from support import is_zombie, start

from simulation import gateway, linux
from simulation.places import (
    ALERT_LOG,
    BIN,
    DOCUMENT,
    GATEWAY_FILE,
    LIVENESS_FILE,
    REAL,
    UNIT_ADDRESS,
)
from simulation.station import Station
from simulation.television import BUS, Television
from simulation.tools import BOARD_MOUNT
from simulation.waiting import wait_for

pytestmark = pytest.mark.tool

HANGING = """\
#!/bin/sh
[ -z "$HANG" ] || exec sleep 1000
"""

Breaking = Callable[[Unit], contextlib.AbstractContextManager[object]]


@pytest.fixture(scope="module")
def shared_unit() -> Iterator[Unit]:
    """Whoever breaks something mends it."""
    with (
        Station(programs=PROGRAMS, is_board_root=True) as station,
        Television(station),
    ):
        have_good_machine(station)
        service = start(station)
        station.start_web_server()
        gateway.deliver(station, b"\0")
        yield Unit(station, service)


@pytest.fixture
def unit(shared_unit: Unit) -> Unit:
    """Its page has just reported that it is alive."""
    shared_unit.station.path(LIVENESS_FILE).touch()
    return shared_unit


def test_healthy_unit_has_no_fault(unit: Unit) -> None:
    report = unit.examine()
    assert report.failed() == {}
    assert report.status == 0
    unknown = {found.link for found in report.findings if found.grade != "ok"}
    # The bus belongs to the service, this machine is not a station's, and its clock is its own.
    beside_service = {"link", "logical address", "television answers", "power status"}
    assert unknown <= beside_service | {"active source", "time zone", "clock"}


def test_nothing_is_changed_or_sent_and_the_watchdog_is_not_opened(unit: Unit) -> None:
    station = unit.station
    names = {path.name: path.stat().st_mtime_ns for path in station.path("/dev/shm").iterdir()}
    calls = len(station.calls())
    with counted(station) as packets, opened(station, "/dev/watchdog") as was_opened:
        unit.examine()
        assert packets() == 0
        assert not was_opened()
        station.read_kicks()
        assert was_opened()
    assert names == {
        path.name: path.stat().st_mtime_ns for path in station.path("/dev/shm").iterdir()
    }
    asked = [call for call in station.calls()[calls:] if call.parent == "hdtv-doctor"]
    assert [call.argv[1:] for call in asked if call.name == "amixer"] == [["sget", "PCM"]]


@contextlib.contextmanager
def opened(station: Station, name: str) -> Iterator[Callable[[], bool]]:
    """Whether anybody has opened it since."""
    events = linux.watch_for_opens(str(station.path(name)))

    def was_opened() -> bool:
        return bool(select.select([events], [], [], 0)[0])

    yield was_opened
    os.close(events)


@contextlib.contextmanager
def counted(station: Station) -> Iterator[Callable[[], int]]:
    """What leaves the unit by its wire over IPv4: the kernel says things of its own over IPv6."""
    hook = "type filter hook output priority 0"
    chain = f'chain output {{ {hook}; oifname "eth0" counter; }}'
    station.run("/usr/sbin/nft", f"table ip sent {{ {chain}; }}")

    def packets() -> int:
        listed = station.run("/usr/sbin/nft", "list", "table", "ip", "sent").split()
        return int(listed[listed.index("packets") + 1])

    yield packets
    station.run("/usr/sbin/nft", "delete", "table", "ip", "sent")


# One fault each. They are mended as soon as they have been seen.


@contextlib.contextmanager
def ran(unit: Unit, breaking: str, mending: str) -> Iterator[None]:
    unit.station.run("/usr/bin/sh", "-ec", breaking)
    yield
    unit.station.run("/usr/bin/sh", "-ec", mending)


@contextlib.contextmanager
def ahead(unit: Unit, seconds: int) -> Iterator[None]:
    """The doctor's clock, by the number in a file. Files are as old as they are, and the service has
    been running for so much longer."""
    offset = unit.station.path("/run/station/clock")
    offset.write_bytes(struct.pack("q", seconds))
    unit.starter = ("/usr/bin/env", f"LD_PRELOAD={BIN}/clock")
    yield
    unit.starter = ()
    offset.unlink()


@contextlib.contextmanager
def aged(unit: Unit, seconds: int) -> Iterator[None]:
    """The page's last sign of life, of a service that has been running for longer."""
    path = unit.station.path(LIVENESS_FILE)
    then = time.time() - seconds
    os.utime(path, (then, then))
    with ahead(unit, 3600):
        yield
    path.touch()


@contextlib.contextmanager
def never_reported(unit: Unit) -> Iterator[None]:
    with missing(unit, LIVENESS_FILE), ahead(unit, 3600):
        yield


@contextlib.contextmanager
def suspended(unit: Unit) -> Iterator[None]:
    unit.service.suspend()
    yield
    unit.service.resume()


@contextlib.contextmanager
def not_startable(unit: Unit, program: str) -> Iterator[None]:
    path = unit.station.path(program)
    mode = path.stat().st_mode
    path.chmod(mode & ~0o111)
    yield
    path.chmod(mode)


def set_other_end(unit: Unit, state: str) -> None:
    """The kernel takes a while to notice."""
    assert unit.station.start_on_gateway("ip", "link", "set", "gw0", state).wait() == 0
    is_up = state == "up"
    shown = ("ip", "link", "show", "eth0")
    wait_for(lambda: ("state UP" in unit.station.run(*shown)) == is_up, f"the carrier's {state}")


@contextlib.contextmanager
def no_carrier(unit: Unit) -> Iterator[None]:
    """The other end of its cable."""
    set_other_end(unit, "down")
    yield
    set_other_end(unit, "up")


@contextlib.contextmanager
def long_log(unit: Unit) -> Iterator[None]:
    path = unit.station.path(ALERT_LOG)
    size = path.stat().st_size
    os.truncate(path, 3_000_000)
    yield
    os.truncate(path, size)


@contextlib.contextmanager
def lost_zone(unit: Unit) -> Iterator[None]:
    unit.station.run("ln", "-sfn", "/usr/share/zoneinfo/Lost/City", "/etc/localtime")
    yield
    unit.station.run("ln", "-sfn", "/usr/share/zoneinfo/Etc/UTC", "/etc/localtime")


REMOUNT = f"{REAL}{BOARD_MOUNT} -o remount,bind"
MOVED = "ip link set eth0 down; ip link set eth0 name lost0; ip link set lost0 up"
MOVED_BACK = "ip link set lost0 down; ip link set lost0 name eth0; ip link set eth0 up; "
ADDRESS = f"ip address replace {UNIT_ADDRESS}/24 dev eth0; ip route replace default dev eth0"
LOW_MODE = "state 0x12000a [HDMI CEA (16)], 640x480 @ 60.00Hz, progressive"
WATCHDOG = "/sys/class/watchdog/watchdog0"
CONNECTOR = "/sys/class/drm/card0-HDMI-A-1/status"

FAULTS: dict[str, tuple[Breaking, dict[str, str]]] = {
    "suspended service": (suspended, {"service": "is suspended"}),
    "another version": (
        lambda unit: written(unit, "/usr/local/share/hdtv/version", "46\n"),
        {"version": "the service is 46, this program 47"},
    ),
    "no adapter": (lambda unit: missing(unit, BUS), {"adapter": "there is none"}),
    "display in a low mode": (
        lambda unit: written(unit, "/run/station/behaviour/tvservice", f"print {LOW_MODE}\n"),
        {"display": "640x480"},
    ),
    "cable out of the display": (
        lambda unit: written(unit, CONNECTOR, "disconnected\n"),
        {"display": "card0-HDMI-A-1 disconnected"},
    ),
    "no document": (
        lambda unit: missing(unit, DOCUMENT),
        {"document served": "alerts.json is missing"},
    ),
    "page quiet": (lambda unit: aged(unit, 90), {"page alive": " ago, expected every 30 s"}),
    "page never alive": (never_reported, {"page alive": "the page has never reported"}),
    "page dead": (lambda unit: aged(unit, 400), {"page alive": "no longer keep the unit"}),
    "interface gone": (
        lambda unit: ran(unit, MOVED, MOVED_BACK + ADDRESS),
        {
            "eth0": "there is no interface of this name",
            "address": "eth0 has no IPv4 address",
            "hardware address": "none",
            "DHCP client": "not running, and eth0 has no address",
        },
    ),
    "interface down": (
        lambda unit: ran(unit, "ip link set eth0 down", "ip link set eth0 up; " + ADDRESS),
        {"eth0": "it is down", "gateway": "to which there is no route"},
    ),
    "network cable out": (no_carrier, {"eth0": "has no carrier"}),
    "no address": (
        lambda unit: ran(unit, "ip address flush dev eth0; ip route flush dev eth0", ADDRESS),
        {
            "address": "eth0 has no IPv4 address",
            "DHCP client": "not running, and eth0 has no address",
            "gateway": "to which there is no route",
        },
    ),
    "gateway with a name": (
        lambda unit: written(unit, GATEWAY_FILE, '{"gateway_addr": "gw\x1b", "mac_addr": ""}'),
        {"gateway": '"gw\x1b" is not an address'},
    ),
    "configuration with a blank": (
        lambda unit: written(unit, "/var/www/config.json", '{"rotation": "90"}'),
        {"configuration": "line 1, column 13: a blank after the colon"},
    ),
    "configuration missing": (
        lambda unit: missing(unit, "/var/www/config.json"),
        {"configuration": "cannot be read: No such file"},
    ),
    "gateway misspelled": (
        lambda unit: written(unit, "/var/www/config.json", '{"comm_gw":"gateway"}'),
        {"comm_gw": '"gateway" is not an address'},
    ),
    "odd rotation": (
        lambda unit: written(unit, "/var/www/config.json", '{"rotation":"45"}'),
        {"rotation": '"45" means 0 degrees'},
    ),
    "no watchdog": (lambda unit: missing(unit, "/dev/watchdog"), {"watchdog": "there is no"}),
    "watchdog disarmed": (
        lambda unit: written(unit, f"{WATCHDOG}/state", "inactive\n"),
        {"watchdog timeout": "15 s, but it is not running"},
    ),
    "slow watchdog": (
        lambda unit: written(unit, f"{WATCHDOG}/timeout", "60\n"),
        {"watchdog timeout": "60 s; the service asks for 15 s"},
    ),
    "long log": (long_log, {"alert log": "has 3000 kB"}),
    "lost zone": (lost_zone, {"time zone": "leads nowhere, to /usr/share/zoneinfo/Lost/City"}),
    "no player": (
        lambda unit: not_startable(unit, "/usr/bin/aplay"),
        {"programs": "missing: /usr/bin/aplay (clips)"},
    ),
    "clock never set": (
        lambda unit: ahead(unit, 86400 - int(time.time())),
        {"clock": "1970-01-02 00:00:"},
    ),
    "root file system read-only": (
        lambda unit: ran(unit, f"{REMOUNT},ro /", f"{REMOUNT},rw /"),
        {"root file system": "read-only, and mount does not remount it"},
    ),
    "undervoltage": (
        lambda unit: written(unit, "/sys/class/hwmon/hwmon0/in0_lcrit_alarm", "1\n"),
        {"power supply": "board_volt reports undervoltage"},
    ),
}


@pytest.mark.parametrize("fault", FAULTS)
def test_fault_is_found_where_it_is(unit: Unit, fault: str) -> None:
    breaking, expected = FAULTS[fault]
    with breaking(unit):
        report = unit.examine()
    failed = report.failed()
    assert set(failed) == set(expected)
    for link, evidence in expected.items():
        assert evidence in failed[link]
        assert report.of(link).next and report.of(link).chapter


def test_gateway_of_a_former_service(unit: Unit) -> None:
    """Nobody removes the file."""
    path = unit.station.path(GATEWAY_FILE)
    then = time.time() - 3600
    os.utime(path, (then, then))
    gateway_line = unit.examine().of("gateway")
    assert gateway_line.grade == "cannot tell"
    assert gateway_line.evidence.startswith("10.87.33.20, left by a former service")
    path.touch()
    assert unit.examine().of("gateway").grade == "ok"


@pytest.mark.waits
@pytest.mark.parametrize(("tool", "link"), [("amixer", "audio control"), ("tvservice", "display")])
def test_program_that_hangs_is_not_waited_for(unit: Unit, tool: str, link: str) -> None:
    """It hangs for hdtv-doctor only: the service would wait for it."""
    behavior = unit.station.behavior(tool)
    hanging = write_file(unit.station, "/run/station/hanging", HANGING)
    hanging.chmod(0o755)
    unit.station.behave(tool, "exec /run/station/hanging")
    report = examine(unit.station, starter=("/usr/bin/env", "HANG=1"))
    unit.station.behave(tool, *behavior)
    assert report.of(link).evidence == f"{tool} does not answer"
    assert report.failed() == {}
    commands = (x.read_bytes() for x in unit.station.path("/proc").glob("[0-9]*/cmdline"))
    assert b"sleep\x001000\x00" not in commands


def test_dead_browser_and_another_page(unit: Unit) -> None:
    station = unit.station
    pid = station.calls("qt-webkit-kiosk")[-1].pid
    station.run("/bin/kill", "-KILL", str(pid))
    wait_for(lambda: is_zombie(station, pid), "the browser's end")
    report = unit.examine()
    assert "has ended" in report.failed()["browser"]
    count = len(station.calls("qt-webkit-kiosk"))
    gateway.deliver(station, gateway.set_page_address(""))
    report = unit.examine()
    assert report.failed() == {}
    assert "a gateway may have blanked the page" in report.of("browser").evidence
    gateway.deliver(station, gateway.set_page_address("http://10.87.33.20/"))
    station.wait_for_calls("qt-webkit-kiosk", count + 1)
    assert "another page, http://10.87.33.20/" in unit.examine().of("browser").evidence
    gateway.deliver(station, gateway.set_page_address("http://127.0.0.1/station_web/"))
    station.wait_for_calls("qt-webkit-kiosk", count + 2)
    assert unit.examine().failed() == {}


# As people see it.


def test_report_reads_like_a_checklist(unit: Unit) -> None:
    with aged(unit, 90):
        doctor = start_doctor(unit.station, starter=unit.starter)
        assert (doctor.wait(), doctor.errors) == (1, "")
    lines = doctor.output.splitlines()
    assert lines[0] == "service"
    assert "  ok           address: 10.87.33.50 (DNS is not needed)" in lines
    (place,) = [n for n, line in enumerate(lines) if line.startswith("  FAIL  ")]
    assert lines[place].startswith("  FAIL         page alive: last sign of life ")
    assert lines[place + 1].startswith("               next: look at the browser's lines above")
    assert lines[place + 1].endswith('("When something is wrong")')
    assert lines[-2].endswith(" cannot tell") and " 1 FAIL, " in lines[-2]
    assert "\x1b" not in doctor.output


def test_colors_are_for_terminals_that_want_them(unit: Unit) -> None:
    on_terminal = ("/usr/bin/script", "--quiet", "--command", PROGRAM, "/dev/null")
    colored = unit.station.start(*on_terminal)
    assert colored.wait() == 0
    assert "\x1b[32mok\x1b[0m           version: 47" in colored.output
    plain = unit.station.start(*on_terminal, environment={"NO_COLOR": "1"})
    assert plain.wait() == 0
    assert "  ok           version: 47" in plain.output and "\x1b" not in plain.output


NOBODY = ("/usr/bin/setpriv", "--reuid=65534", "--clear-groups", "--")
CONFIG_FILE = "/var/www/config.json"


def test_others_than_root_are_told_what_they_cannot_see(unit: Unit) -> None:
    doctor = unit.station.start(*NOBODY, PROGRAM)
    assert doctor.wait() == 0
    for link in ("TCP port 4000", "UDP port 4000", "watchdog", "service's adapter"):
        (line,) = [x for x in doctor.output.splitlines() if f"  {link}: " in x]
        assert "cannot tell" in line and "only root" in line
    assert "cannot tell  watchdog timeout: the board's, 15 s; the service is not" in doctor.output


def test_configuration_that_others_may_not_read_is_no_fault(unit: Unit) -> None:
    config = unit.station.path(CONFIG_FILE)
    mode = config.stat().st_mode
    config.chmod(0o600)
    doctor = unit.station.start(*NOBODY, PROGRAM)
    assert doctor.wait() == 0
    assert f"  cannot tell  configuration: only root may read {CONFIG_FILE}" in doctor.output
    config.chmod(mode)


@pytest.mark.waits
def test_watch_prints_what_changes(unit: Unit) -> None:
    doctor = start_doctor(unit.station, "--watch")
    doctor.wait_for_output("power supply")
    assert "  ok           display: " in doctor.output
    with written(unit, CONNECTOR, "disconnected\n"):
        doctor.wait_for_output("FAIL         display: ")
    doctor.wait_for_output("ok           display: ", 2)
    unit.station.run("/bin/kill", "-INT", str(doctor_id(unit.station)))
    assert (doctor.wait(), doctor.errors) == (0, "")
    assert doctor.output.count("eth0: up") == 1


def doctor_id(station: Station) -> int:
    """As seen in the unit."""
    names = station.path("/proc").glob("[0-9]*/comm")
    return next(int(x.parent.name) for x in names if x.read_text() == "hdtv-doctor\n")
