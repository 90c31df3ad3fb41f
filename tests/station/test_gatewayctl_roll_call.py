"""gatewayctl's roll calls, answered by the real service."""

import json
from pathlib import Path

import pytest
from gatewayctl_support import GATEWAYCTL, Result, Tool, gatewayctl_command, run

from simulation import gateway
from simulation.places import GATEWAY_FILE, HARDWARE_ADDRESS, UNIT_ADDRESS
from simulation.process import Process
from simulation.station import Station

pytestmark = pytest.mark.tool


def test_roll_call_lists_the_units_of_a_network(station: Station, service: Process) -> None:
    result = run(
        *gatewayctl_command(station, "roll-call", "--broadcast", "10.87.33.255", "--wait", "500ms")
    )
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout.splitlines() == [
        "ADDRESS          HARDWARE ADDRESS   VERSION  ASKS FOR",
        f"{UNIT_ADDRESS}      {HARDWARE_ADDRESS}  {gateway.VERSION}       date, settings",
    ]


def test_roll_call_of_one_unit_as_json(station: Station, tool: Tool) -> None:
    tool("set-date", "now")
    result = tool("roll-call", "--json", "--wait", "0.5")
    assert json.loads(result.stdout) == {
        "address": UNIT_ADDRESS,
        "hardware_address": HARDWARE_ADDRESS,
        "version": gateway.VERSION,
        "asks_for": ["settings"],
    }


def test_roll_call_that_nobody_answers(station: Station) -> None:
    result = run(
        *gatewayctl_command(station, "--to", "10.87.33.77", "roll-call", "--wait", "100ms")
    )
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == "gatewayctl: no unit answered the roll call to 10.87.33.77:4000\n"


def test_roll_call_where_another_gateway_listens(station: Station) -> None:
    with gateway.record_listener(station, "0.0.0.0"):
        result = run(*gatewayctl_command(station, "--to", UNIT_ADDRESS, "roll-call"))
    assert result.returncode == 1
    assert result.stderr == (
        "gatewayctl: port 5000 is in use: another gateway is running on this machine\n"
    )


def test_roll_call_is_compared_with_the_inventory(
    station: Station, service: Process, tmp_path: Path
) -> None:
    units, saved = tmp_path / "units", tmp_path / "saved"
    units.write_text(
        f"# who is where\nhall 10.87.33.77 north hw={HARDWARE_ADDRESS}\nbay 10.87.33.78 north # dark\n"
        f"door {UNIT_ADDRESS} south\n"
    )
    call = ("roll-call", "--broadcast", "10.87.33.255", "--wait", "500ms", "--expect")
    result = run(*gatewayctl_command(station, *call, str(units), "--save", str(saved)))
    assert result.returncode == 1
    assert result.stderr == (
        f"gatewayctl: warning: door: another unit answers at its address {UNIT_ADDRESS}, so its"
        " line is saved as a comment\n"
    )
    *table, summary = result.stdout.splitlines()
    assert [line.split()[:3] for line in table[1:]] == [
        ["moved", "hall", UNIT_ADDRESS],
        ["missing", "bay", "10.87.33.78"],
        ["missing", "door", UNIT_ADDRESS],
    ]
    assert table[1].endswith("was 10.87.33.77")
    assert summary == "0 of 3 present, 1 moved, 2 missing"
    assert saved.read_text().splitlines() == [
        "# who is where",
        f"hall  {UNIT_ADDRESS}  north  hw={HARDWARE_ADDRESS}",
        "bay  10.87.33.78  north  # dark",
        f"# door  {UNIT_ADDRESS}  south",
    ]
    saved.write_text(saved.read_text().replace("bay", "# bay"))
    result = run(*gatewayctl_command(station, *call, str(saved), "--json"))
    assert (result.returncode, result.stderr) == (0, "")
    assert json.loads(result.stdout)["state"] == "present"


def test_roll_call_of_each_unit_by_itself(
    station: Station, service: Process, tmp_path: Path
) -> None:
    units = tmp_path / "units"
    units.write_text(f"hall {UNIT_ADDRESS} north\nbay 10.87.33.78 south\n")
    call = ("roll-call", "--each", "--wait", "500ms", "--expect", str(units), "--group", "north")
    result = run(*gatewayctl_command(station, *call))
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout.endswith("\n1 of 1 present\n")


# The units that the common options name.


def states(result: Result) -> list[list[str]]:
    """The state and the name of each unit in the table."""
    return [line.split()[:2] for line in result.stdout.splitlines()[1:-1]]


@pytest.fixture
def inventory(tmp_path: Path) -> str:
    file = tmp_path / "inventory"
    file.write_text(f"hall {UNIT_ADDRESS} north\nbay 10.87.33.78 south\nattic 10.87.33.79 south\n")
    return str(file)


CALL = ("roll-call", "--wait", "500ms")


def test_named_units_that_do_not_answer_are_missing(
    station: Station, service: Process, tmp_path: Path
) -> None:
    failed = tmp_path / "failed"
    units = ["203.0.113.1", UNIT_ADDRESS, "10.87.33.78", "no-such-unit.invalid"]
    named = [word for unit in units for word in ("--to", unit)]
    result = run(*gatewayctl_command(station, *named, "--failed-to", str(failed), *CALL))
    assert result.returncode == 1
    assert "203.0.113.1: cannot send to 203.0.113.1:4000: Network is unreachable" in result.stderr
    assert 'cannot resolve "no-such-unit.invalid"' in result.stderr
    assert states(result) == [
        ["present" if unit == UNIT_ADDRESS else "missing", unit] for unit in units
    ]
    assert failed.read_text().splitlines() == [
        "# Units that have not answered a roll call: 3",
        *(f"{unit}  {unit}" for unit in units if unit != UNIT_ADDRESS),
    ]
    result = run(*gatewayctl_command(station, "--units", str(failed), *CALL))
    assert (result.returncode, len(states(result))) == (1, 3)


def test_inventory_is_expected_and_called_unit_by_unit(
    station: Station, service: Process, inventory: str
) -> None:
    result = run(*gatewayctl_command(station, "--units", inventory, *CALL))
    assert result.returncode == 1
    assert states(result) == [["present", "hall"], ["missing", "bay"], ["missing", "attic"]]
    of_north = gatewayctl_command(station, "--units", inventory, "--group", "north", *CALL)
    assert (run(*of_north).returncode, states(run(*of_north))) == (0, [["present", "hall"]])
    both = ("--broadcast", "10.87.33.255", "--units", inventory, "--group", "south")
    result = run(*gatewayctl_command(station, *CALL, *both))
    assert states(result) == [["missing", "bay"], ["missing", "attic"]]
    assert "no unit answered" not in result.stderr


def test_saved_inventory_has_the_units_that_were_not_called(
    station: Station, service: Process, inventory: str
) -> None:
    named = ("--units", inventory, "--to", "hall", *CALL, "--save", inventory)
    assert run(*gatewayctl_command(station, *named)).returncode == 0
    assert Path(inventory).read_text().splitlines() == [
        f"hall  {UNIT_ADDRESS}  north  hw={HARDWARE_ADDRESS}",
        "bay  10.87.33.78  south",
        "attic  10.87.33.79  south",
    ]


def test_default_inventory_narrows_no_roll_call(
    station: Station, service: Process, inventory: str, monkeypatch: pytest.MonkeyPatch
) -> None:
    call = (*CALL, "--broadcast", "10.87.33.255")
    monkeypatch.setenv("GATEWAYCTL_UNITS", "/no/such/file")
    result = run(*gatewayctl_command(station, *call))
    assert (result.returncode, result.stdout.count(UNIT_ADDRESS)) == (0, 1)
    monkeypatch.setenv("GATEWAYCTL_UNITS", inventory)
    result = run(*gatewayctl_command(station, "--group", "north", *call))
    assert (result.returncode, states(result)) == (0, [["present", "hall"]])


def test_default_options_of_other_commands_do_not_matter(
    station: Station, service: Process, tmp_path: Path
) -> None:
    defaults = tmp_path / "defaults"
    defaults.write_text("retries=2\ntimeout=10s\nfailed-to=/no/such/file\n")
    call = ("--config", str(defaults), *CALL, "--broadcast", "10.87.33.255")
    assert run(*gatewayctl_command(station, *call)).returncode == 0


def test_default_group_does_not_narrow_the_expected_units(
    station: Station, service: Process, tmp_path: Path
) -> None:
    units, defaults = tmp_path / "units", tmp_path / "defaults"
    units.write_text(f"hall {UNIT_ADDRESS} north\nbay 10.87.33.78 south\n")
    defaults.write_text("group=north\n")
    call = ("roll-call", "--each", "--wait", "500ms", "--expect", str(units))
    result = run(*gatewayctl_command(station, "--config", str(defaults), *call))
    assert result.stdout.endswith("\n1 of 2 present, 1 missing\n")


def test_gateways_with_addresses_of_their_own_share_a_machine(
    station: Station, service: Process
) -> None:
    with gateway.record_listener(station, "10.87.33.20"):
        bound = gatewayctl_command(station, "--to", UNIT_ADDRESS, "--bind", "10.87.33.21")
        result = run(*bound, "roll-call", "--wait", "500ms")
        assert (result.returncode, result.stderr) == (0, "")
        assert UNIT_ADDRESS in result.stdout
        other = gatewayctl_command(station, "--bind", "10.87.33.20", "roll-call")
        assert run(*other).stderr == (
            "gatewayctl: port 5000 of 10.87.33.20 is in use: another gateway is running on this"
            " machine\n"
        )
    assert run(*bound, "display-alert", "--text", "FIRE").returncode == 0
    assert '"gateway_addr": "10.87.33.21"' in station.path(GATEWAY_FILE).read_text()
    nobody = gatewayctl_command(station, "--to", UNIT_ADDRESS, "--bind", "192.0.2.1", "end-alert")
    result = run(*nobody)
    assert result.returncode == 1
    assert result.stderr == (
        "gatewayctl: cannot send from 192.0.2.1: Cannot assign requested address\n"
    )


@pytest.mark.parametrize(
    "arguments, status, words",
    [
        (["--to", "h", "roll-call", "--expect", "f"], 2, "either --to"),
        (["roll-call", "--each"], 2, "use --expect FILE"),
        (["roll-call", "--expect", "/no/such/file"], 1, "cannot open /no/such/file"),
        (["roll-call", "--save", "/no/such/file"], 1, "cannot write /no/such/file"),
        (["--group", "x", "roll-call", "--expect", "/dev/null"], 2, 'in the group "x"'),
        (["--bind", "127.0.0.1:5000", "roll-call"], 2, "contains a port"),
        (["--units", "f", "roll-call", "--expect", "f"], 2, "either --expect or --units"),
        (["--failed-to", "f", "roll-call"], 2, "--failed-to needs to know the units"),
        (["--group", "x", "roll-call"], 2, "--group needs an inventory"),
        (["--units", "/no/such/file", "roll-call"], 1, "cannot open /no/such/file"),
        (["--udp", "roll-call"], 2, "roll-call has no use for --udp"),
        (["--retries", "2", "roll-call"], 2, "roll-call has no use for --retries"),
    ],
)
def test_roll_call_that_cannot_be_asked_for(arguments: list[str], status: int, words: str) -> None:
    result = run(GATEWAYCTL, *arguments)
    assert (result.returncode, result.stdout) == (status, "")
    assert words in result.stderr
