"""The documents: what they refer to exists, and their commands work as written."""

import json
import re
import shlex
import socket
import subprocess
from pathlib import Path

import pytest
from gatewayctl_support import GATEWAYCTL
from support import StationMaker

from simulation import gateway
from simulation.gateway import deliver
from simulation.station import STATION_WEB, UNIT_ADDRESS, top_directory

pytestmark = pytest.mark.once

TOP = top_directory()
OPERATIONS = (TOP / "docs" / "operations.md").read_text()


def printed_texts() -> list[str]:
    """The longest fixed piece of each line that the service and its CEC port for the board print."""
    sources = [*(TOP / "hdtv").glob("*.cpp"), TOP / "cec" / "cec.cpp"]
    texts = []
    for source in sources:
        code = re.sub(r'"\s*\n\s*"', "", source.read_text())
        for literal in re.findall(r'(?:printf|puts|write_once)\([^;"]*"((?:[^"\\]|\\.)*)"', code):
            pieces = re.split(r"%[0-9.*]*[a-zA-Z]|\\n|\\\"", literal)
            texts.append(max((piece.strip(' "') for piece in pieces), key=len))
    complaints = re.findall(r'complain\("([^"]*)"\)', (TOP / "cec/port/linux.cpp").read_text())
    return [text for text in texts + complaints if len(text) > 3]


# Formatted into a string, not printed.
NOT_PRINTED = ("/proc/", "color")


def test_operations_explain_every_line_of_the_service() -> None:
    texts = [text for text in printed_texts() if not text.startswith(NOT_PRINTED)]
    assert len(texts) > 25
    assert [text for text in texts if text not in OPERATIONS] == []


LINKING = [
    *("README.md", "CONTRIBUTING.md", "CHANGES.md"),
    *("docs/architecture.md", "docs/extending.md", "docs/first-hour.md", "docs/operations.md"),
    *("docs/reliability.md", "docs/security.md"),
]


@pytest.mark.parametrize("document", LINKING)
def test_links_lead_somewhere(document: str) -> None:
    path = TOP / document
    links = re.findall(r"\]\(([^)#]+)\)", path.read_text())
    assert links
    assert [link for link in links if not (path.parent / link).exists()] == []


def test_packet_filter_lets_the_gateway_in_and_nobody_else(make_station: StationMaker) -> None:
    text = (TOP / "docs" / "security.md").read_text()
    (rules,) = re.findall(r"(?:^    (?:table|delete| |}).*\n)+", text, re.MULTILINE)
    station = make_station()
    service = station.start_service()
    station.wait_for_calls("qt-webkit-kiosk")
    station.path("/tmp/rules").write_text(rules)
    for _ in range(2):
        station.run("/usr/sbin/nft", "--file", "/tmp/rules")
    # Datagrams arrive in order.
    for source in (gateway.OTHER_GATEWAY, gateway.GATEWAY):
        gateway.send_datagram(station, gateway.display_alert("from " + source), source=source)
    service.wait_for_output(f"from {gateway.GATEWAY}")
    assert f"from {gateway.OTHER_GATEWAY}" not in service.output
    with station.on_gateway(), pytest.raises(TimeoutError):
        other = (gateway.OTHER_GATEWAY, 0)
        socket.create_connection((UNIT_ADDRESS, gateway.COMMAND_PORT), 2, source_address=other)
    deliver(station, gateway.display_alert("by connection"))
    assert station.document()["alert_area"] == "by connection"
    with gateway.record_listener(station) as records:
        gateway.send_datagram(station, gateway.roll_call())
        records.wait_for_records(1)


def shell_lines(program: str) -> list[str]:
    text = OPERATIONS.replace("\\\n", " ")
    return [line.strip() for line in text.splitlines() if line.startswith(f"    {program} ")]


@pytest.mark.parametrize("line", [x for x in shell_lines("gatewayctl") if "roll-call" not in x])
def test_commands_for_an_alert_work(line: str) -> None:
    words = [GATEWAYCTL, "--dry-run", *shlex.split(line)[1:]]
    result = subprocess.run(words, capture_output=True, text=True, timeout=30)
    assert result.returncode == 0, result.stderr
    assert "What is wrong with it" not in result.stdout


@pytest.mark.slow
def test_installation_works_as_written(make_station: StationMaker, tmp_path: Path) -> None:
    lines = shell_lines("cmake")
    assert len(lines) == 3
    build, root = str(tmp_path / "build"), tmp_path / "root"
    for line in lines:
        words = [build if word == "build/board" else word for word in shlex.split(line)]
        # Here the television is the simulated one.
        words = [word.replace("CEC_PORT=linux", "CEC_PORT=bus") for word in words]
        subprocess.run(
            words,
            cwd=TOP,
            check=True,
            capture_output=True,
            env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "DESTDIR": str(root)},
            timeout=300,
        )
    installed = {str(p.relative_to(root)) for p in root.rglob("*") if p.is_file()}
    programs = {"usr/local/sbin/hdtv", "usr/local/sbin/hdtv-doctor", "usr/local/bin/gatewayctl"}
    assert programs <= installed
    assert "usr/local/share/man/man1/hdtv-doctor.1" in installed
    assert "usr/local/share/bash-completion/completions/hdtv-doctor" in installed
    page = {p.name for p in (root / STATION_WEB.lstrip("/")).iterdir()}
    assert page == {p.name for p in (TOP / "station_web").iterdir()} - {"CMakeLists.txt"}
    version = str(gateway.VERSION)
    assert f"'{version}'" in (root / STATION_WEB.lstrip("/") / "version.js").read_text()
    assert (root / "usr/local/share/hdtv/version").read_text() == version + "\n"

    station = make_station(programs={"installed": root / "usr/local/sbin/hdtv"})
    (config,) = re.findall(r"^    (\{.*\})$", OPERATIONS, re.MULTILINE)
    assert set(json.loads(config)) == {"comm_gw", "rotation", "log_alerts"}
    station.write_config(config)
    service = station.start("/run/station/bin/installed")
    service.wait_for_output("Extracted comm_gw: 10.87.33.20")
