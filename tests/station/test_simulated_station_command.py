"""The simulated station's own command: the incident, and a second terminal."""

import os
import shutil
import signal
import subprocess
from pathlib import Path

import pytest
from command_support import (
    KEPT_CAPABILITIES,
    STATUS,
    TOP,
    capabilities_of,
    environment,
    read_until_line,
    run_command,
    running_command,
)

from simulation.gateway import VERSION
from simulation.places import UNIT_ADDRESS, host_build_directory

# The station does not depend on how the service is built.
pytestmark = pytest.mark.once


@pytest.mark.browser
def test_once_plays_the_incident_and_ends_with_status_0() -> None:
    result = run_command("--once", "--pause", "0.1")
    assert result.returncode == 0, result.stdout + result.stderr
    for words in (
        "service   Setting Gateway Address: 10.87.33.20",
        "tool      /usr/bin/qt-webkit-kiosk -u http://127.0.0.1/station_web/",
        f"gateway   received: roll-call reply from 02:00:0a:57:21:32, version {VERSION}",
        "gateway   sends: roll call",
        "gateway   received: settings request from 02:00:0a:57:21:32",
        "tool      /usr/bin/date -s 2026-03-05 07:04:09",
        "tool      /usr/bin/aplay /tmp/play.wav",
        "gateway   sends: detail alert for E1 and L3",
        'E1:2 L3:5, "STRUCTURE FIRE\\n1200 MAIN ST, CROSS OAK AVE"',
        "map http://10.87.33.20/map.svg?incident=1042",
        "document  stop_turnout",
        'document  hdtv_alert, ""',
        "TV        waking",
        "TV        input 3.0.0.0 \N{RIGHTWARDS ARROW} 1.0.0.0",
        "TV        input 1.0.0.0 \N{RIGHTWARDS ARROW} 3.0.0.0",
        "TV        in standby\n",
        "the incident was observed",
    ):
        assert words in result.stdout
    assert "\033" not in result.stdout  # no colors in a pipe


@pytest.mark.slow
def test_once_ends_with_status_1_when_the_service_does_not_do_its_work(tmp_path: Path) -> None:
    build = tmp_path / "build"
    (build / "hdtv").mkdir(parents=True)
    (build / "simulation").symlink_to(host_build_directory() / "simulation")
    (build / "hdtv" / "hdtv").write_text("#!/bin/sh\nexec sleep 100\n")
    (build / "hdtv" / "hdtv").chmod(0o755)
    with running_command("--once", HDTV_BUILD=str(build)) as running:
        output, _ = running.communicate(timeout=60)
    assert running.returncode == 1
    assert "not observed: the station is idle" in output


def test_help_explains() -> None:
    result = run_command("--help")
    assert result.returncode == 0
    for word in ("--once", "exec", "Ctrl-C", "incident"):
        assert word in result.stdout


@pytest.mark.parametrize("arguments", [["--help"], ["tv", "--help"], ["run", "-h"]])
def test_help_needs_no_package(arguments: list[str]) -> None:
    """The command installs them only to start a station."""
    script = (
        "import runpy, sys\n"
        "sys.modules.update(selenium=None, aiohttp=None)\n"
        "runpy.run_module('simulation.demo', run_name='__main__')\n"
    )
    result = subprocess.run(
        ["/usr/bin/python3", "-c", script, *arguments],
        cwd=TOP,
        env=environment(),
        capture_output=True,
        text=True,
    )
    assert (result.returncode, result.stderr) == (0, "")


COMMON = """\
top=/nowhere
python=echo
station_packages=(some)
install_packages() { :; }
build() { echo "builds"; }
"""


@pytest.mark.parametrize(
    "line, is_built",
    [
        ("", True),
        ("--console --name mark", True),
        ("--record state", True),
        ("--pictures events --once", True),
        ("--units 3 --pause 1", True),
        ("run incident", True),
        ("--name a run state", True),
        ("run --help", False),
        ("run state -h", False),
        ("--name mark -h", False),
        ("--name mark tv off", False),
        ("state", False),
        ("exec run", False),
        ("exec --help", False),
    ],
)
def test_only_what_starts_a_station_builds_it(tmp_path: Path, line: str, is_built: bool) -> None:
    (tmp_path / "common.sh").write_text(COMMON)
    script = shutil.copy(TOP / "scripts" / "station", tmp_path)
    result = subprocess.run([script, *line.split()], capture_output=True, text=True)
    assert result.stdout == f"-m simulation.demo {line}".rstrip() + "\n"
    assert result.stderr == ("builds\n" if is_built else "")


NO_PORT = (
    'argument --{}: "{}" is no port from {} to 65535 (a scenario comes before this option; commands'
    " for a running station go without it)\n"
)


@pytest.mark.parametrize(
    "line, complaint",
    [
        ("run --console silent-television", NO_PORT.format("console", "silent-television", 0)),
        ("--console tv off", NO_PORT.format("console", "tv", 0)),
        ("--console 65536", NO_PORT.format("console", "65536", 0)),
        ("--forward 0", NO_PORT.format("forward", "0", 1)),
        ("--units x", 'argument --units: there are 1 to 200 units, not "x"\n'),
        ("--units 0", 'argument --units: there are 1 to 200 units, not "0"\n'),
    ],
)
def test_values_that_are_none_are_told_in_a_sentence(line: str, complaint: str) -> None:
    result = run_command(*line.split())
    assert result.returncode == 2
    assert result.stderr.endswith(f" error: {complaint}")


def test_without_the_privilege_one_sentence_and_status_1() -> None:
    result = run_command("--once", unprivileged=True)
    assert result.returncode == 1
    assert result.stdout == ""
    assert result.stderr == (
        "The simulated station needs the privilege to make namespaces: run it as root.\n"
    )


@pytest.mark.browser
def test_second_terminal_runs_programs_inside_the_running_station() -> None:
    name = f"test-{os.getpid()}"
    for command in (["exec", "true"], ["tv", "on"]):
        assert run_command("--name", name, *command).stderr == (
            f'No station named "{name}" is running here: start one with ./scripts/station, or give'
            " the name of one that runs with --name.\n"
        )
    gatewayctl = str(host_build_directory() / "tools" / "gatewayctl" / "gatewayctl")

    def inside(*arguments: str) -> subprocess.CompletedProcess[str]:
        return run_command("--name", name, "exec", *arguments)

    with running_command("--name", name, "--pause", "0.1") as running:
        read_until_line(running, "keeps running")
        document = inside("cat", "/dev/shm/alerts.json")
        failing = inside("sh", "-c", "exit 7")
        sent = inside(
            "--gateway", gatewayctl, "--to", UNIT_ADDRESS, "display-alert", "--text", "DRILL"
        )
        shown = inside("cat", "/dev/shm/alerts.json")
        names = [inside("hostname").stdout, inside("--gateway", "hostname").stdout]
        statuses = [inside(*STATUS).stdout, inside("--gateway", *STATUS).stdout]
        running.send_signal(signal.SIGINT)
        assert running.wait(20) == 130
    assert document.stdout.startswith('[{"alert_type":"display_alert"')
    assert failing.returncode == 7
    assert sent.returncode == 0, sent.stderr
    assert "DRILL" in shown.stdout
    assert names == ["unit\n", "gateway\n"]
    for status in statuses:
        sets = capabilities_of(status)
        assert sets["Prm"] == sets["Eff"] == sets["Bnd"] == KEPT_CAPABILITIES
        assert sets["Inh"] == sets["Amb"] == set()
