"""What the tests of the emulated unit that runs Debian share."""

import json
import socket

import pytest
from x86_unit import ADDRESS, X86Unit

from simulation import gateway
from simulation.station import Station

# Since its last start.
JOURNAL = (
    "journalctl --no-pager -o cat _SYSTEMD_INVOCATION_ID=$(systemctl show -P InvocationID hdtv)"
)
DOCUMENT = "wget -q -O - http://127.0.0.1/station_web/alerts.json"
BROWSER = "ps -e -o args | grep '^-u http://127'"

# Of each file of tests: a whole machine has to boot first, and the tests wait for it again and again.
ON_ONE_MACHINE = [pytest.mark.timeout(1200), pytest.mark.xdist_group("x86")]


def start_television(unit: X86Unit) -> None:
    """Awake."""
    unit.run("cec-ctl -d /dev/cec-television --tv")
    unit.run("setsid cec-follower -d /dev/cec-television >/dev/null 2>&1 </dev/null &")


def state(unit: X86Unit, name: str) -> str:
    return unit.run(f"systemctl is-active {name}").strip()


def main_process(unit: X86Unit) -> int:
    return int(unit.run("systemctl show -P MainPID hdtv"))


def watchdog(unit: X86Unit) -> list[str]:
    return unit.run("cd /sys/class/watchdog/watchdog0; cat identity state timeout").splitlines()[:3]


def show(unit: X86Unit, network: Station, text: str) -> None:
    """Over UDP, so that no connection keeps the service's port busy afterward."""
    gateway.send_datagram(network, gateway.display_alert(text), destination=ADDRESS)
    unit.wait_for_output(DOCUMENT, f'"alert_area":"{text}"')


def uptime(unit: X86Unit) -> float:
    """The service's uptime in seconds."""
    started = unit.run("systemctl show -P ExecMainStartTimestampMonotonic hdtv")
    return float(unit.run("cat /proc/uptime").split()[0]) - int(started) / 1e6


def connect_and_stay(network: Station, message: bytes) -> socket.socket:
    """The unit has taken the message, and closed its end."""
    connection = gateway.connect(network, destination=ADDRESS)
    connection.sendall(message)
    gateway.wait_until_closed(connection)
    return connection


def alert_over_tcp(unit: X86Unit, network: Station, text: str) -> None:
    gateway.reset(connect_and_stay(network, gateway.display_alert(text)))
    unit.wait_for_output(DOCUMENT, f'"alert_area":"{text}"')


def examine(unit: X86Unit, option: str = "", starter: str = "") -> dict[str, tuple[str, str]]:
    """What hdtv-doctor says: the grade of each link and the evidence."""
    lines = unit.run(f"{starter} hdtv-doctor --json {option} 2>/dev/null").splitlines()
    found = [json.loads(line) for line in lines if line.startswith("{")]
    return {each["link"]: (each["grade"], each["evidence"]) for each in found}
