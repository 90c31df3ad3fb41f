"""A fleet of simulated units: all of it called and alerted at once, and the walls around each unit."""

import json
import os
import signal
from collections.abc import Iterator
from pathlib import Path

import pytest
from command_support import (
    KEPT_CAPABILITIES,
    STATUS,
    capabilities_of,
    read_until_line,
    run_command,
    running_command,
    wait_for_end_of_station,
)
from confinement_support import ATTEMPTS
from gatewayctl_support import GATEWAYCTL, gatewayctl_command, run
from support import check_children

from simulation.fleet import BROADCAST, Fleet
from simulation.station import Station
from simulation.tools import STAND_INS
from simulation.waiting import wait_for
from simulation.world import NAMESPACES

# The fleet does not depend on how the service is built.
pytestmark = pytest.mark.once

# Of six units. The dead one's machine is up, and another one is unplugged.
DEAD, UNPLUGGED, HANGING = 1, 2, 4
HEALTHY = (0, 3, 5)


@pytest.fixture(scope="module")
def fleet() -> Iterator[Fleet]:
    with Fleet(6) as fleet:
        services = fleet.start_services()
        services[DEAD].kill()
        fleet.unplug(UNPLUGGED)
        services[HANGING].suspend()
        yield fleet
        for unit in fleet.units:
            check_children(unit)


@pytest.fixture
def pair() -> Iterator[Fleet]:
    """Two units without their services."""
    with Fleet(2) as fleet:
        yield fleet


def test_all_that_live_answer_one_roll_call(fleet: Fleet) -> None:
    call = ("roll-call", "--broadcast", BROADCAST, "--json", "--wait", "500ms")
    result = run(*gatewayctl_command(fleet, *call))
    assert (result.returncode, result.stderr) == (0, "")
    answers = [json.loads(line) for line in result.stdout.splitlines()]
    assert [(x["address"], x["hardware_address"], x["asks_for"]) for x in answers] == [
        (f"10.87.33.{50 + number}", f"02:00:0a:57:21:{50 + number:02x}", ["date", "settings"])
        for number in HEALTHY
    ]


def test_alert_to_all_reaches_all_that_live(fleet: Fleet, tmp_path: Path) -> None:
    failed = tmp_path / "failed"
    result = run(
        *gatewayctl_command(
            fleet,
            *("--units", str(fleet.write_inventory(tmp_path / "units")), "--timeout", "500ms"),
            *("--failed-to", str(failed), "detail-alert", "--text", "FIRE", "--unit", "E1:2"),
        )
    )
    assert result.returncode == 1
    shown = [unit.document().get("alert_area") == "FIRE" for unit in fleet.units]
    assert [number for number, is_shown in enumerate(shown) if is_shown] == list(HEALTHY)
    names = [line.split()[0] for line in failed.read_text().splitlines() if line[0] != "#"]
    assert names == [f"unit-{number}" for number in (DEAD, UNPLUGGED, HANGING)]


def namespaces_of(process: str) -> dict[str, str]:
    return {kind: os.readlink(f"/proc/{process}/ns/{kind}") for kind in NAMESPACES}


def test_every_unit_has_namespaces_of_its_own(fleet: Fleet) -> None:
    pids = [str(pid) for pid in (fleet.gateway_pid, *fleet.unit_pids)]
    sides = [namespaces_of(pid) for pid in ("self", *pids)]
    for kind in NAMESPACES:
        assert len({side[kind] for side in sides}) == len(sides), kind


def test_every_units_programs_have_the_kept_capabilities_only(fleet: Fleet) -> None:
    for unit in fleet.units:
        status = unit.run(*STATUS)
        sets = capabilities_of(status)
        assert sets["Prm"] == sets["Eff"] == sets["Bnd"] == KEPT_CAPABILITIES
        assert sets["Inh"] == sets["Amb"] == set()
        assert "NoNewPrivs:\t1" in status


def test_reboot_clock_and_mounts_are_out_of_every_units_reach(fleet: Fleet) -> None:
    for unit in fleet.units:
        assert unit.run("/usr/bin/python3", "-c", ATTEMPTS) == "out of reach\n"
        own = unit.run("sha256sum", "/run/station/bin/stand-in", *STAND_INS).splitlines()
        assert len({line.split()[0] for line in own}) == 1


def test_launcher_refuses_in_every_unit_where_the_machines_own_tool_lies(pair: Fleet) -> None:
    for unit in pair.units:
        unit.run("cp", "/bin/true", "/sbin/reboot")
        service = unit.start_service()
        assert service.wait() == 1
        assert service.errors.endswith("station: /sbin/reboot is the machine's own.\n")


def test_what_a_unit_writes_is_its_own(pair: Fleet) -> None:
    first, second = pair.units
    names = [f"{place}/written" for place in ("/dev/shm", "/tmp", "/var/www", "/run", "/etc")]
    second.run("touch", *names)
    for name in names:
        assert second.path(name).exists()
        assert not first.path(name).exists()
        assert not Path(name).exists()
        assert not Path(f"/proc/{pair.gateway_pid}/root{name}").exists()


def test_unit_that_signals_everything_reaches_itself_only(pair: Fleet) -> None:
    first, second = (unit.start("/bin/sleep", "1000") for unit in pair.units)
    wait_for(lambda: all(sees_only(unit, "sleep") for unit in pair.units), "each unit's program")
    pair.units[1].start("/bin/sh", "-c", "kill -9 -1")
    assert second.wait() != 0
    assert first.is_running()


def sees_only(unit: Station, name: str) -> bool:
    """Without the unit's first process and the looking one. A program is first its launcher."""
    names = unit.run("/bin/sh", "-c", "cat /proc/[0-9]*/comm").split()
    return [other for other in names if other not in ("python3", "sh", "cat")] == [name]


def test_command_starts_a_fleet_to_try_a_gateway_on() -> None:
    name = f"test-{os.getpid()}-fleet"

    def inside(*arguments: str) -> str:
        result = run_command("--name", name, "exec", *arguments)
        assert result.returncode == 0, result.stderr
        return result.stdout

    with running_command("--units", "3", "--name", name) as running:
        read_until_line(running, "Ctrl-C")
        to_all = ("--gateway", GATEWAYCTL, "--units", "/run/units")
        assert inside(*to_all, "detail-alert", "--text", "DRILL").count("  taken\n") == 3
        read_until_line(running, '3 units show "DRILL"')
        addresses = [f"10.87.33.{number}" for number in (50, 51, 52)]
        for address in addresses:
            assert f" {address} " in inside("--unit", address, "/sbin/ifconfig", "eth0")
        unknown = run_command("--name", name, "exec", "--unit", "10.87.33.53", "true")
        assert unknown.stderr == f"The station {name} has no unit 3.\n"
        inside("--unit", addresses[1], "/usr/bin/killall", "-9", "hdtv")
        read_until_line(running, f"the service of {addresses[1]} has ended with status -9")
        running.send_signal(signal.SIGINT)
        assert running.wait(20) == 130
    wait_for_end_of_station(name)


@pytest.mark.parametrize("count", ["0", "201", "many"])
def test_command_refuses_what_is_no_number_of_units(count: str) -> None:
    refused = run_command("--units", count)
    assert refused.returncode == 2
    assert "argument --units" in refused.stderr
