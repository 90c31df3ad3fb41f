"""The documents: what they refer to exists, and their commands work as written."""

import json
import re
import shlex
import socket
import subprocess
import textwrap
from pathlib import Path

import pytest
from docs_support import commands, operations, sections
from gatewayctl_support import GATEWAYCTL, gatewayctl_command, run
from support import StationMaker
from symbols import throwing_symbols

from simulation import gateway
from simulation.gateway import deliver
from simulation.places import STATION_WEB, UNIT_ADDRESS, top_directory
from simulation.station import Station

pytestmark = pytest.mark.once

TOP = top_directory()
DEBIAN = TOP / "board" / "debian"
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
    *("docs/reliability.md", "docs/security.md", "docs/workbench.md"),
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
    example = (DEBIAN / "examples" / "nftables.conf").read_text()
    assert example.endswith("\n\n" + textwrap.dedent(rules))
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


EVERY_COMMAND = [line for _, body in sections(OPERATIONS) for line in commands(body)]
CHAPTER = operations("A unit that runs Debian")

# Who runs each command: a test here, or one of the scripts that ./scripts/machine and others run. The first
# that fits counts.
RUN_BY = {
    r"gatewayctl roll-call ": "test_roll_call_finds_the_unit",
    r"gatewayctl watch ": "test_watch_shows_the_unit",
    r"gatewayctl ": "test_commands_for_an_alert_work",
    r"\./scripts/station exec ": "test_commands_for_an_alert_work",
    r"\./scripts/package$|scp build/debian/hdtv_\*\.deb ": "scripts/chapter",
    r"apt-get install -y -o ": "scripts/chapter",
    r"apt-get install cmake ": "test_packages_to_build_it_from_are_there",
    r"cmake |\{": "test_installation_works_as_written",
    r"install |echo DAEMON=|::respawn:": "test_init_scripts_are_installed_as_written",
    r"systemctl disable --now lighttpd$": "scripts/machine",
    r"make\b": "scripts/image-check",
    r"\./scripts/image-check ": "scripts/check",
    r"hdtv-doctor$": "test_doctor_story.py",
    r"tcpdump |tshark ": "test_captures_are_made_and_read_as_written",
    r"MAINPID=": "test_upkeep_is_called_as_written",
}


def runner(command: str) -> str:
    if command in CHAPTER:
        return "scripts/chapter"
    return next((name for pattern, name in RUN_BY.items() if re.match(pattern, command)), "nobody")


def run_by(name: str) -> list[str]:
    found = [command for command in EVERY_COMMAND if runner(command) == name]
    assert found
    return found


def test_every_command_is_run_by_somebody() -> None:
    assert len(EVERY_COMMAND) > 40
    assert [command for command in EVERY_COMMAND if runner(command) == "nobody"] == []
    runners = {runner(command) for command in EVERY_COMMAND}
    assert runners >= set(RUN_BY.values())
    assert [name for name in runners if not is_there(name)] == []


def is_there(name: str) -> bool:
    if name.startswith("scripts/"):
        return (TOP / name).exists()
    return name in globals() or (TOP / "tests" / "station" / name).exists()


def write_inventories(directory: Path) -> None:
    """The one that the guide shows, under each of the names that its commands give it."""
    (inventory,) = re.findall(r"^```\n(# name .*?)```", OPERATIONS, re.MULTILINE | re.DOTALL)
    for name in ("units", "failed", "station-units"):
        (directory / name).write_text(inventory)


@pytest.mark.parametrize("line", run_by("test_commands_for_an_alert_work"))
def test_commands_for_an_alert_work(line: str, tmp_path: Path) -> None:
    write_inventories(tmp_path)
    words = shlex.split(line)
    begin = next(n for n, word in enumerate(words) if word.endswith("gatewayctl"))
    command = [GATEWAYCTL, "--dry-run", *words[begin + 1 :]]
    result = subprocess.run(command, cwd=tmp_path, capture_output=True, text=True, timeout=30)
    assert result.returncode == 0, result.stderr
    assert "What is wrong with it" not in result.stdout


@pytest.fixture
def unit(make_station: StationMaker) -> Station:
    station = make_station()
    station.start_service()
    station.wait_for_calls("qt-webkit-kiosk")
    return station


def test_roll_call_finds_the_unit(unit: Station, tmp_path: Path) -> None:
    write_inventories(tmp_path)
    for line in run_by("test_roll_call_finds_the_unit"):
        words = shlex.split(line.replace("--expect units", f"--expect {tmp_path}/units"))
        result = run(*gatewayctl_command(unit, *words[1:]))
        assert result.returncode == (1 if "--expect" in line else 0), result.stderr
        assert UNIT_ADDRESS in result.stdout


def test_watch_shows_the_unit(unit: Station, tmp_path: Path) -> None:
    write_inventories(tmp_path)
    for line in run_by("test_watch_shows_the_unit"):
        words = shlex.split(line.replace("/etc/station-units", f"{tmp_path}/station-units"))
        command = gatewayctl_command(unit, *words[1:])
        with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as watch:
            assert watch.stdout
            words_of_unit = re.compile(f"  (station-1|{UNIT_ADDRESS}) +is there")
            assert any(words_of_unit.search(said) for said in watch.stdout)
            watch.terminate()


def test_packages_to_build_it_from_are_there() -> None:
    """The check itself has installed them."""
    for line in run_by("test_packages_to_build_it_from_are_there"):
        query = ["dpkg-query", "--show", "--showformat=${db:Status-Status} ", *line.split()[2:]]
        result = subprocess.run(query, capture_output=True, text=True, check=True)
        assert set(result.stdout.split()) == {"installed"}


def test_init_scripts_are_installed_as_written(tmp_path: Path) -> None:
    (tmp_path / "etc/init.d").mkdir(parents=True)
    (tmp_path / "etc/default").mkdir()
    *lines, entry = run_by("test_init_scripts_are_installed_as_written")
    for line in lines:
        subprocess.run(re.sub(r"([ >])/", rf"\1{tmp_path}/", line), shell=True, cwd=TOP, check=True)
    script = (tmp_path / "etc/init.d/S90hdtv").read_text()
    assert (tmp_path / "etc/init.d/S80station-web").stat().st_mode & 0o111 == 0o111
    assert "UPKEEP=/usr/lib/hdtv/upkeep\n" in script
    assert (tmp_path / "usr/lib/hdtv/upkeep").exists()
    assert (tmp_path / "etc/default/hdtv").read_text().startswith("DAEMON=/usr/local/")
    assert f"#   {entry}\n" in script


def test_captures_are_made_and_read_as_written(tmp_path: Path) -> None:
    """By another program with the same filters: a hexadecimal dump stands for the network."""
    capture, reading = (
        shlex.split(x) for x in run_by("test_captures_are_made_and_read_as_written")
    )
    expression = " ".join(capture[capture.index("port") :])
    compile_only = ["dumpcap", "-q", "-i", "lo", "-d", "-f", expression]
    assert (
        "jump"
        not in subprocess.run(compile_only, capture_output=True, text=True, check=True).stderr
    )
    (tmp_path / "bytes").write_text("0000 01\n")
    capture_file = str(tmp_path / "unit.pcap")
    made = ["text2pcap", "-q", "-u", "4000,4000", str(tmp_path / "bytes"), capture_file]
    subprocess.run(made, check=True, capture_output=True)
    dissector = str(TOP / "tools" / "wireshark" / "station_display.lua")
    words = [x.replace("/usr/share/hdtv/station_display.lua", dissector) for x in reading]
    words = [capture_file if x == "unit.pcap" else x for x in words]
    result = subprocess.run(words, capture_output=True, text=True, check=True)
    assert "Roll-call" in result.stdout or "roll-call" in result.stdout
    assert "lua" not in result.stderr.lower()


def test_upkeep_is_called_as_written() -> None:
    """With the process id that the unit looks up."""
    (line,) = run_by("test_upkeep_is_called_as_written")
    assert f"exec {line.split(' ', 1)[1]}'" in (DEBIAN / "hdtv-upkeep.service").read_text()


# Typed on another machine.
ELSEWHERE = ("./scripts/package", "scp ")
# What takes long or needs a real machine. ./scripts/chapter runs it, too.
STOOD_IN = ("apt-get", "update-grub", "systemctl", "reboot")
GRUB = 'GRUB_DEFAULT=0\nGRUB_CMDLINE_LINUX_DEFAULT="quiet"\nGRUB_CMDLINE_LINUX=""\n'


def test_chapter_for_debian_leaves_what_it_promises(make_station: StationMaker) -> None:
    """All of its commands but those that install packages and start units."""
    station = make_station(is_board_root=True)
    examples = "/usr/share/doc/hdtv/examples"
    station.run("mkdir", "--parents", "/tmp/fakes", examples, "/usr/share/systemd")
    station.run("mkdir", "--parents", "/etc/systemd/system", "/etc/network", "/etc/default")
    station.run("touch", "/usr/share/systemd/tmp.mount")
    for file in (DEBIAN / "examples").iterdir():
        station.path(f"{examples}/{file.name}").write_bytes(file.read_bytes())
    station.path("/etc/default/grub").write_text(GRUB)
    for name in STOOD_IN:
        path = station.path(f"/tmp/fakes/{name}")
        path.write_text(f'#!/bin/sh\necho {name} "$@" >>/tmp/calls\n')
        path.chmod(0o755)
    typed = [command for command in CHAPTER if not command.startswith(ELSEWHERE)]
    script = "export PATH=/tmp/fakes:$PATH\n" + "\n".join(typed)
    station.run("/bin/bash", "-ec", script)
    # From here on the station starts nothing: its browser is another one.
    assert 'GRUB_CMDLINE_LINUX="net.ifnames=0 "\n' in station.path("/etc/default/grub").read_text()
    assert json.loads(station.path("/var/www/config.json").read_text())["comm_gw"] == "10.87.33.20"
    assert "eth0" not in station.path("/etc/network/interfaces").read_text()
    journal = station.path("/etc/systemd/journald.conf.d/hdtv.conf").read_text()
    assert journal.startswith("[Journal]\nStorage=volatile\n")
    assert str(station.path("/etc/localtime").readlink()).startswith("/usr/share/zoneinfo/")
    copies = {"qt-webkit-kiosk": "/usr/bin", "nftables.conf": "/etc"}
    for name, place in {**copies, "hdtv-screen.service": "/etc/systemd/system"}.items():
        copy = station.path(f"{place}/{name}")
        assert copy.read_bytes() == (DEBIAN / "examples" / name).read_bytes()
    assert station.path("/usr/bin/qt-webkit-kiosk").stat().st_mode & 0o111 == 0o111
    calls = station.path("/tmp/calls").read_text().splitlines()
    assert calls[0] == "update-grub" and calls[-1] == "reboot"
    assert "systemctl enable hdtv-screen hdtv" in calls


def check_service_without_an_adapter(station: Station) -> None:
    """A station has no CEC device of the kernel's: the service goes on without one."""
    service = station.start_service()
    station.wait_for_calls("qt-webkit-kiosk")
    assert service.errors == "CEC: /dev/cec0: no adapter\n"
    assert service.output.startswith("failed to open vchiq instance\n")
    assert "Extracted comm_gw: 10.87.33.20" in service.output
    deliver(station, gateway.display_alert("FIRE"))
    assert station.document()["alert_area"] == "FIRE"


@pytest.mark.slow
@pytest.mark.timeout(1200)  # it builds
def test_installation_works_as_written(make_station: StationMaker, tmp_path: Path) -> None:
    *lines, config = run_by("test_installation_works_as_written")
    assert len(lines) == 3
    build, root = str(tmp_path / "build"), tmp_path / "root"
    for line in lines:
        words = [build if word == "build/board" else word for word in shlex.split(line)]
        subprocess.run(
            words,
            cwd=TOP,
            check=True,
            capture_output=True,
            env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "DESTDIR": str(root)},
            timeout=1100,
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

    program = root / "usr/local/sbin/hdtv"
    assert throwing_symbols(program) == set()
    station = make_station(programs={"hdtv": program})
    assert set(json.loads(config)) == {"comm_gw", "rotation", "log_alerts"}
    station.write_config(config)
    check_service_without_an_adapter(station)
