"""gatewayctl's roll calls, answered by the real service."""

import json

import pytest
from gatewayctl_support import Tool, gatewayctl_command, run

from simulation import gateway
from simulation.station import HARDWARE_ADDRESS, UNIT_ADDRESS, Process, Station

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
