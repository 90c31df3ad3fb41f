"""The board's build of the service on a real kernel for the board: its watchdog, its CEC bus with real
timing, its network."""

from collections.abc import Iterator
from pathlib import Path

import pytest
from arm_board import ADDRESS, HARDWARE_ADDRESS, ArmBoard, gateway_network

from station import gateway
from station.station import Station
from station.waiting import wait_for


@pytest.fixture(scope="module")
def network() -> Iterator[Station]:
    with gateway_network() as station:
        yield station


@pytest.fixture(scope="module")
def board(network: Station, tmp_path_factory: pytest.TempPathFactory) -> Iterator[ArmBoard]:
    """With a television that sleeps. The tests of it share one boot, in their order."""
    with ArmBoard(network, tmp_path_factory.mktemp("board"), follower="--standby") as board:
        yield board


def power(board: ArmBoard) -> str:
    """What the television says of itself, by its own follower's log."""
    return board.run("cat /var/log/television")


def test_init_script_has_started_the_service(board: ArmBoard) -> None:
    assert board.run("/etc/init.d/S90hdtv status").startswith("hdtv: running, process ")
    board.wait_for_log("logical_address: 0x4")
    board.wait_for_log("physical_address: 0x1000")
    board.wait_for_log("Starting qt-webkit-kiosk without proxy")
    assert f'"alert_area":"{ADDRESS}"' in board.run("cat /dev/shm/alerts.json")


def test_roll_call_is_answered_with_the_interfaces_hardware_address(
    board: ArmBoard, network: Station
) -> None:
    with gateway.record_listener(network) as records:
        gateway.send_datagram(network, gateway.roll_call(), destination=ADDRESS)
        first = records.wait_for_records(3)[0]
    assert first == b"\x02" + bytes.fromhex(HARDWARE_ADDRESS.replace(":", "")) + b"\x0c\x2f"


def test_television_knows_the_units_name_and_vendor(board: ArmBoard) -> None:
    told = board.run("cec-ctl -d /dev/cec-television -t4 --give-osd-name --give-device-vendor-id")
    assert "ZELT" in told
    assert "18c086" in told.lower()


def test_alert_wakes_the_television_takes_it_and_hands_it_back(
    board: ArmBoard, network: Station
) -> None:
    board.wait_for_log("TV is in standby mode.")
    gateway.send(network, gateway.display_alert("FIRE"), destination=ADDRESS)
    board.wait_for_log("TV on standby, sending ImageViewOn")
    board.wait_for_log("TV is NOT in standby mode.", 60)
    wait_for(
        lambda: '"alert_area":"FIRE"' in board.run("cat /dev/shm/alerts.json"), "the alert", 60
    )
    assert "IMAGE_VIEW_ON" in power(board)
    assert "ACTIVE_SOURCE" in power(board)
    gateway.send(network, gateway.display_alert(""), destination=ADDRESS)
    wait_for(lambda: "STANDBY (0x36)" in power(board), "the television's standby")


def test_watchdog_is_kicked(board: ArmBoard) -> None:
    """Longer than the watchdog waits without a kick."""
    wait_for(lambda: float(board.run("cat /proc/uptime").split()[0]) > 30, "30 seconds", 60)
    assert board.run("/etc/init.d/S90hdtv status").startswith("hdtv: running")


def test_television_that_never_wakes_ends_in_a_reset(board: ArmBoard, network: Station) -> None:
    board.run(
        "killall cec-follower; sleep 1;"
        " cec-follower -d /dev/cec-television --standby --ignore 4,4 >/dev/null 2>&1 &"
    )
    lines = board.log().count("TV is in standby mode.")
    wait_for(lambda: board.log().count("TV is in standby mode.") > lines, "standby", 30)
    gateway.send(network, gateway.display_alert("FIRE"), destination=ADDRESS)
    board.wait_for_log("TV on standby, sending ImageViewOn")
    board.wait_for_reset()


def test_late_dhcp_server_and_a_killed_service(network: Station, tmp_path: Path) -> None:
    with ArmBoard(network, tmp_path, address=None) as board:
        document = "cat /dev/shm/alerts.json"
        wait_for(lambda: "No Network Connection" in board.run(document), "the document")
        gateway.start_dhcp_server(network, "br0")
        wait_for(lambda: '"alert_area":"10.87.33.77"' in board.run(document), "the address", 60)
        board.run("touch /var/run/hdtv.stopped; kill -9 $(cat /var/run/hdtv.pid)")
        board.wait_for_reset()
