"""The board's build of the service on a real board kernel: its watchdog, its CEC bus with real
timing, its network."""

import re
from collections.abc import Iterator

import pytest
from arm_board import ADDRESS, DEFAULTS, HARDWARE_ADDRESS, ArmBoard
from machine import gateway_network, wait_for

from simulation import gateway
from simulation.station import Station

pytest_plugins = ["console_report"]

# A whole machine has to boot first, and the tests wait for it again and again.
pytestmark = [pytest.mark.timeout(1200), pytest.mark.xdist_group("arm")]

DOCUMENT = "cat /dev/shm/alerts.json"


@pytest.fixture(scope="module")
def network() -> Iterator[Station]:
    with gateway_network() as station:
        yield station


@pytest.fixture(scope="module")
def board(network: Station, tmp_path_factory: pytest.TempPathFactory) -> Iterator[ArmBoard]:
    """With a television in standby. Its tests share one boot and run in order."""
    with ArmBoard(network, tmp_path_factory.mktemp("board"), follower="--standby") as board:
        yield board


def power(board: ArmBoard) -> str:
    """What the television reports about itself in its follower's log."""
    return board.run("cat /var/log/television")


def test_init_script_has_started_the_service(board: ArmBoard) -> None:
    assert board.run("/etc/init.d/S90hdtv status").startswith("hdtv: running, process ")
    board.wait_for_log("logical_address: 0x4")
    board.wait_for_log("physical_address: 0x1000")
    board.wait_for_log("Starting qt-webkit-kiosk without proxy")
    assert board.logical_address()
    assert f'"alert_area":"{ADDRESS}"' in board.run(DOCUMENT)


def test_roll_call_is_answered_with_the_interfaces_hardware_address(
    board: ArmBoard, network: Station
) -> None:
    with gateway.record_listener(network) as records:
        gateway.send_datagram(network, gateway.roll_call(), destination=ADDRESS)
        first = records.wait_for_records(3)[0]
    assert first == b"\x02" + bytes.fromhex(HARDWARE_ADDRESS.replace(":", "")) + b"\x0c\x2f"


def test_television_knows_the_units_name_and_vendor(board: ArmBoard) -> None:
    """It asks again if the bus was too busy for an answer in time."""
    ask = f"cec-ctl -d /dev/cec-television -t{board.logical_address()}"
    board.wait_for_output(f"{ask} --give-osd-name", "name: ZELT")
    board.wait_for_output(f"{ask} --give-device-vendor-id", "0x18c086")


def test_alert_wakes_the_television_takes_it_and_hands_it_back(
    board: ArmBoard, network: Station
) -> None:
    board.wait_for_log("TV is in standby mode.")
    gateway.send(network, gateway.display_alert("FIRE"), destination=ADDRESS)
    board.wait_for_log("TV on standby, sending ImageViewOn")
    board.wait_for_log("TV is NOT in standby mode.")
    board.wait_for_output(DOCUMENT, '"alert_area":"FIRE"')
    wait_for(lambda: "ACTIVE_SOURCE" in power(board), "the claim of the television's input")
    assert "IMAGE_VIEW_ON" in power(board)
    gateway.send(network, gateway.display_alert(""), destination=ADDRESS)
    wait_for(lambda: "STANDBY (0x36)" in power(board), "the television's standby")


def test_watchdog_is_kicked(board: ArmBoard) -> None:
    """For longer than the watchdog's timeout."""
    wait_for(lambda: float(board.run("cat /proc/uptime").split()[0]) > 30, "30 seconds")
    assert board.run("/etc/init.d/S90hdtv status").startswith("hdtv: running")


def kilobytes(board: ArmBoard, field: str) -> int:
    """Of the service's memory."""
    found = re.search(rf"^{field}: +(\d+) kB", board.run(MEMORY), re.MULTILINE)
    assert found is not None
    return int(found[1])


MEMORY = "cat /proc/$(cat /var/run/hdtv.pid)/smaps_rollup"
DOCUMENTS = 300


def test_memory_stays_small(board: ArmBoard, network: Station) -> None:
    for count in range(DOCUMENTS):
        gateway.send(network, gateway.display_alert(f"ALERT {count}"), destination=ADDRESS)
    board.wait_for_output(DOCUMENT, f'"alert_area":"ALERT {DOCUMENTS - 1}"')
    # The files of an initramfs count as written to.
    resident, own = kilobytes(board, "Rss"), kilobytes(board, "Anonymous")
    print(f"After {DOCUMENTS} documents: {resident} kB resident, {own} kB of them its own")
    assert 500 < resident <= 2200
    assert 20 < own <= 160
    gateway.send(network, gateway.display_alert(""), destination=ADDRESS)
    board.wait_for_output(DOCUMENT, '"alert_area":""')


def number(board: ArmBoard, command: str) -> int:
    """What it prints; 0 if it fails. Init may have switched on the console's echo again."""
    return int((re.findall(r"^\d+$", board.run(command), re.MULTILINE) or ["0"])[-1])


def process(board: ArmBoard) -> int:
    return number(board, "cat /var/run/hdtv.pid")


def descriptors(board: ArmBoard) -> int:
    return number(board, f"ls /proc/{process(board)}/fd | wc -l")


def set_defaults(board: ArmBoard, *lines: str) -> None:
    """For upkeep at its next run, and for the service at its next start."""
    text = DEFAULTS + "".join(f"{line}\n" for line in lines)
    board.run(f"printf {text!r} >/etc/default/hdtv")


def show_at_once(board: ArmBoard, network: Station, text: str) -> None:
    """Over UDP, so no connection keeps the service's port busy afterward."""
    gateway.send_datagram(network, gateway.display_alert(text), destination=ADDRESS)
    board.wait_for_output(DOCUMENT, f'"alert_area":"{text}"')


LOOKS = "grep '(mark ' /var/log/messages"


def wait_for_restart(board: ArmBoard, former: int) -> None:
    """And for its port: a datagram that comes earlier is lost."""
    wait_for(lambda: process(board) not in (0, former), "another process")
    board.wait_for_output("cat /proc/net/udp", ":0FA0 ")


def test_upkeep_starts_a_service_again_that_holds_too_much_but_not_during_an_alert(
    board: ArmBoard, network: Station
) -> None:
    """With a lowered limit; its clock is set to the time of the look."""
    board.run("date -s '2027-04-01 04:00'")
    set_defaults(board, "DESCRIPTORS=64", "DOCUMENT_LOG_LIMIT=1")
    before = process(board)
    board.run("/etc/init.d/S90hdtv restart")
    wait_for_restart(board, before)
    first = process(board)
    show_at_once(board, network, "FIRE")
    idle = descriptors(board)
    for _ in range(30):
        gateway.send_datagram(network, gateway.roll_call(), destination=ADDRESS)
    wait_for(lambda: descriptors(board) >= idle + 30, "the refusals")
    assert "hdtv:" not in board.run(LOOKS)
    board.run("date -s '2027-04-01 04:30'")
    board.wait_for_output(LOOKS, "starting again when nothing is going on")
    assert process(board) == first
    assert '"alert_area":"FIRE"' in board.run(DOCUMENT)
    show_at_once(board, network, "")
    wait_for_restart(board, first)
    assert re.search(r"hdtv: \d+ descriptors \(mark 32\), .*: starting again\n", board.run(LOOKS))
    assert descriptors(board) < 20


def test_upkeep_bounds_the_log(board: ArmBoard, network: Station) -> None:
    show_at_once(board, network, "LONG" * 300)
    board.wait_for_output("ls /tmp/", "alerts.log.1")
    assert number(board, "wc -c </tmp/alerts.log.1") > 1024
    show_at_once(board, network, "")
    board.wait_for_output("cat /tmp/alerts.log", '"alert_area":""')


def test_upkeep_counts_a_clips_leftovers(board: ArmBoard, network: Station) -> None:
    set_defaults(board, "CHILD_MARK=1")
    first = process(board)
    clip = gateway.play_clip(f"http://{gateway.GATEWAY}/none.wav")
    gateway.send_datagram(network, clip, destination=ADDRESS)
    zombies = f"cat /proc/[0-9]*/stat 2>/dev/null | grep -c ') Z {first} '"
    wait_for(lambda: number(board, zombies) >= 2, "the clip's leftovers")
    board.run("date -s '2027-04-02 04:30'")
    wait_for_restart(board, first)
    assert re.search(r"\d+ ended children \(mark 1\), .*: starting again\n", board.run(LOOKS))


def test_upkeep_says_that_all_is_well(board: ArmBoard) -> None:
    """Its counts and marks with the board's own tools."""
    set_defaults(board)
    first = process(board)
    board.run("date -s '2027-04-03 04:30'")
    board.wait_for_output(LOOKS, "as it should be")
    said = next(x for x in board.run(LOOKS).splitlines() if "as it should be" in x)
    figures = re.findall(r"(\d+)(?: kB)? [a-z ]+ \(mark (\d+)\)", said)
    assert [int(mark) for _, mark in figures][::2] == [10000, 32768]
    assert all(0 <= int(amount) < int(mark) / 2 for amount, mark in figures)
    assert int(figures[0][0]) >= 9 and int(figures[2][0]) > 500
    assert process(board) == first


def test_television_that_never_wakes_ends_in_a_reset(board: ArmBoard, network: Station) -> None:
    board.run(
        "killall cec-follower; while pidof cec-follower; do sleep 0.1; done;"
        " cec-follower -d /dev/cec-television --standby"
        f" --ignore {board.logical_address()},4 >/dev/null 2>&1 &"
    )
    lines = board.log().count("TV is in standby mode.")
    wait_for(lambda: board.log().count("TV is in standby mode.") > lines, "standby")
    gateway.send(network, gateway.display_alert("FIRE"), destination=ADDRESS)
    board.wait_for_log("TV on standby, sending ImageViewOn")
    board.wait_for_reset()


@pytest.fixture(scope="module")
def other_board(network: Station, tmp_path_factory: pytest.TempPathFactory) -> Iterator[ArmBoard]:
    """Without an address, with the television on. These tests share one boot, too."""
    with ArmBoard(network, tmp_path_factory.mktemp("other"), address=None) as board:
        yield board


LEASED = "10.87.33.77"


def show(board: ArmBoard, network: Station, text: str) -> None:
    """An alert and its end, over UDP, so no connection keeps the service's port busy afterward."""
    gateway.send_datagram(network, gateway.display_alert(text), destination=LEASED)
    board.wait_for_output(DOCUMENT, f'"alert_area":"{text}"')
    gateway.send_datagram(network, gateway.display_alert(""), destination=LEASED)
    board.wait_for_output(DOCUMENT, '"alert_area":""')


def answers(board: ArmBoard) -> int:
    """How often the television has reported its power status to the unit."""
    return len(re.findall("RX: 0 -> [48B]: 90", board.log()))


def test_late_dhcp_server(other_board: ArmBoard, network: Station) -> None:
    other_board.wait_for_output(DOCUMENT, "No Network Connection")
    gateway.start_dhcp_server(network, "br0")
    other_board.wait_for_output(DOCUMENT, f'"alert_area":"{LEASED}"')


def test_init_starts_a_service_that_died_again(other_board: ArmBoard, network: Station) -> None:
    first = other_board.run("cat /var/run/hdtv.pid").strip()
    browsers = other_board.log().count("Starting qt-webkit-kiosk")
    other_board.run(f"kill -9 {first}")
    wait_for(lambda: other_board.log().count("Starting qt-webkit-kiosk") > browsers, "its browser")
    assert other_board.run("cat /var/run/hdtv.pid").strip() != first
    show(other_board, network, "AFTER")


def test_pulled_and_plugged_hdmi_cable(other_board: ArmBoard, network: Station) -> None:
    """An input without its EDID looks unplugged."""
    wait_for(lambda: answers(other_board) > 0, "the television")
    other_board.run("v4l2-ctl -d /dev/video0 --clear-edid=3")
    other_board.wait_for_log("CEC: /dev/cec0: no link")
    show(other_board, network, "PULLED")
    before = answers(other_board)
    other_board.run("v4l2-ctl -d /dev/video0 --set-edid=pad=3,type=hdmi")
    wait_for(lambda: answers(other_board) > before, "the television")
    show(other_board, network, "PLUGGED")


def test_silent_television(other_board: ArmBoard, network: Station) -> None:
    assert "no answer" not in other_board.log()
    other_board.run("cec-ctl -d /dev/cec-television --clear")
    other_board.wait_for_log("CEC: /dev/cec0: no answer")
    show(other_board, network, "SILENT")


def test_pulled_and_plugged_network_cable(other_board: ArmBoard, network: Station) -> None:
    cable = ("ip", "link", "set", "tap0")
    assert network.start_on_gateway(*cable, "down").wait() == 0
    gateway.send_datagram(network, gateway.display_alert("LOST"), destination=LEASED)
    assert network.start_on_gateway(*cable, "up").wait() == 0
    show(other_board, network, "PLUGGED")
    assert "LOST" not in other_board.log()


def test_killed_service_ends_in_a_reset(other_board: ArmBoard) -> None:
    """On a board where nothing restarts it."""
    other_board.run("touch /var/run/hdtv.stopped; kill -9 $(cat /var/run/hdtv.pid)")
    other_board.wait_for_reset()
