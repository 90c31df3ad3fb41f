"""The board's init script, when something else has the TCP port."""

import socket
from collections.abc import Callable

import pytest
from board_support import DEFAULTS, WAITING, Board

from simulation import gateway
from simulation.waiting import wait_for

pytestmark = pytest.mark.once


def states(board: Board) -> set[str]:
    """The states of all sockets on the service's TCP port."""
    found = set()
    for table in ("tcp", "tcp6"):
        for line in board.station.path(f"/proc/1/net/{table}").read_text().splitlines()[1:]:
            fields = line.split()
            if fields[1].endswith(f":{gateway.COMMAND_PORT:04X}"):
                found.add(STATES.get(fields[3], fields[3]))
    return found


STATES = {"04": "FIN_WAIT1", "05": "FIN_WAIT2", "06": "TIME_WAIT", "0A": "LISTEN"}

# Ends whatever has the port.
Release = Callable[[], None]


def leave_ended_connection(board: Board) -> Release:
    board.script("start")
    board.alert("")
    board.script("stop")
    assert states(board) == {"TIME_WAIT"}

    def outlive() -> None:
        wait_for(lambda: not states(board), "its last minute", 90)

    return outlive


def leave_open_peer(board: Board) -> Release:
    board.script("start")
    connection = gateway.connect(board.station)
    connection.sendall(b"\0")
    gateway.wait_until_closed(connection)
    board.script("stop")
    assert states(board) == {"FIN_WAIT2"}
    board.kept.append(connection)
    return lambda: gateway.reset(connection)


def leave_vanished_peer(board: Board) -> Release:
    """The service reads its message and closes while the cable is cut."""
    cable = ("ip", "link", "set", "gw0")
    board.script("start")
    board.signal("STOP")
    connection = gateway.connect(board.station)
    connection.sendall(b"\0")
    wait_for(lambda: gateway_has_been_heard(board), "the message in the unit")
    assert board.station.start_on_gateway(*cable, "down").wait() == 0
    board.signal("CONT")
    wait_for(lambda: "FIN_WAIT1" in states(board), "the service's end of the connection")
    board.script("stop")
    assert states(board) == {"FIN_WAIT1"}

    board.kept.append(connection)

    def come_back() -> None:
        gateway.reset(connection)
        assert board.station.start_on_gateway(*cable, "up").wait() == 0

    return come_back


def gateway_has_been_heard(board: Board) -> bool:
    """The connection to the service has an unread byte."""
    lines = board.station.path("/proc/1/net/tcp").read_text().splitlines()
    return any(":0FA0 " in line and " 01 00000000:00000001 " in line for line in lines)


def leave_other_program(board: Board) -> Release:
    with board.station.in_unit():
        listening = socket.create_server(("", gateway.COMMAND_PORT))
    board.kept.append(listening)
    return listening.close


def leave_other_program_with_ipv6(board: Board) -> Release:
    with board.station.in_unit():
        listening = socket.create_server(
            ("", gateway.COMMAND_PORT), family=socket.AF_INET6, dualstack_ipv6=True
        )
    board.kept.append(listening)
    return listening.close


IN_TIME = [
    leave_open_peer,
    leave_vanished_peer,
    leave_other_program,
    leave_other_program_with_ipv6,
]


@pytest.mark.parametrize("hold", [leave_ended_connection, *IN_TIME])
def test_start_gives_a_held_port_a_limited_time(
    board: Board, hold: Callable[[Board], Release]
) -> None:
    hold(board)
    assert states(board)
    board.start_too_late()


@pytest.mark.waits
@pytest.mark.slow
@pytest.mark.parametrize("hold", [leave_ended_connection, *IN_TIME])
def test_service_that_came_too_late_for_the_port_gets_it_later(
    board: Board, hold: Callable[[Board], Release]
) -> None:
    release = hold(board)
    board.start_too_late()
    first = board.pid()
    assert board.name_of(first) == "hdtv"
    release()
    board.wait_for_start(first)
    board.alert("HEARD")
    wait_for(lambda: not board.processes("retry-port"), "the end of the looks")
    assert len(board.services()) == 1
    assert "hdtv: TCP port 4000 is free: starting again" in board.log()


@pytest.mark.parametrize("hold", IN_TIME)
def test_start_goes_on_when_the_port_is_free(
    board: Board, hold: Callable[[Board], Release]
) -> None:
    release = hold(board)
    start = board.call("start")
    wait_for(lambda: start.output == WAITING, "the wait")
    assert not board.services()
    release()
    assert start.wait() == 0
    assert start.output == WAITING + "hdtv: started\n"
    board.alert("HEARD")


def test_watchdog_is_disarmed_while_the_port_is_waited_for(board: Board) -> None:
    leave_other_program(board)
    board.call("wait-for-port")
    assert wait_for(board.station.read_kicks, "a word to the watchdog") == b"V"


def test_services_own_port_is_not_waited_for(board: Board) -> None:
    board.script("start")
    board.alert("ONE")
    assert board.script("wait-for-port") == (0, "")


def test_service_that_has_its_port_is_left_alone(board: Board) -> None:
    board.script("start")
    first = board.pid()
    wait_for(lambda: not board.processes("retry-port"), "the end of the looks")
    board.alert("HEARD")
    assert board.services() == [first]


def count_looks(board: Board, seen: set[int]) -> int:
    """Of the port or of the service. Each runs a new "sleep" process."""
    seen.update(board.processes("sleep 1"))
    return len(seen)


@pytest.mark.slow
def test_alert_is_not_taken_from_the_page(board: Board) -> None:
    release = leave_other_program(board)
    board.start_too_late()
    first = board.pid()

    def show(text: str) -> None:
        gateway.send_datagram(board.station, gateway.display_alert(text))
        wait_for(lambda: board.station.document().get("alert_area") == text, "the document")

    board.station.wait_for_calls("qt-webkit-kiosk")
    show("FIRE")
    release()
    looks: set[int] = set()
    wait_for(lambda: count_looks(board, looks) >= 4, "some more looks")
    assert board.services() == [first]
    show("")
    board.wait_for_start(first)


def test_alert_that_never_ends_is_taken_from_the_page(board: Board) -> None:
    release = leave_other_program(board)
    board.set_defaults(DEFAULTS + "LIMIT=0\nALERT_LIMIT=2\n")
    board.script("start")
    first = board.pid()
    board.station.wait_for_calls("qt-webkit-kiosk")
    gateway.send_datagram(board.station, gateway.detail_alert("FIRE"))
    wait_for(lambda: board.station.document().get("alert_area") == "FIRE", "the document")
    release()
    board.wait_for_start(first)


def test_stop_ends_the_looks_at_the_port(board: Board) -> None:
    release = leave_other_program(board)
    board.start_too_late()
    board.script("stop")
    wait_for(lambda: not board.processes("retry-port"), "the end of the looks")
    release()
    assert board.script("status")[0] == 3


@pytest.mark.slow
def test_port_is_looked_at_once_however_often_the_service_is_started(board: Board) -> None:
    leave_other_program(board)
    board.start_too_late()
    board.script("start")
    board.signal("KILL")
    board.script("start")
    board.script("restart")
    # Now and then it has a child with the same name.
    wait_for(lambda: len(board.processes("retry-port")) == 1, "one that looks")


def test_start_that_waits_is_stopped_too(board: Board) -> None:
    release = leave_other_program(board)
    start = board.call("start")
    wait_for(lambda: start.output == WAITING, "the wait")
    board.script("stop")
    release()
    assert start.wait() == 1
    assert start.output == WAITING + "hdtv: stopped in the meantime\n"
    assert not board.services()


@pytest.mark.slow
def test_init_and_a_restart_start_one_service(board: Board) -> None:
    """While the restart waits for the port, init finds no service."""
    board.script("start")
    release = leave_open_peer_of_running(board)
    respawn = board.call("respawn")
    restart = board.call("restart")
    wait_for(lambda: WAITING in restart.output, "the wait")
    looks: set[int] = set()
    wait_for(lambda: count_looks(board, looks) >= 4, "some more looks")
    release()
    assert restart.wait() == 0
    wait_for(lambda: board.services() == [board.pid()], "the service")
    board.alert("HEARD")
    looks.clear()
    wait_for(lambda: count_looks(board, looks) >= 3 or not respawn.is_running(), "init's look")
    assert board.services() == [board.pid()]


def test_start_that_was_killed_is_not_waited_for(board: Board) -> None:
    board.station.path("/run/hdtv.starting").symlink_to("999999")
    assert board.script("start") == (0, "hdtv: started\n")


def leave_open_peer_of_running(board: Board) -> Release:
    connection = gateway.connect(board.station)
    connection.sendall(b"\0")
    gateway.wait_until_closed(connection)
    board.kept.append(connection)
    return lambda: gateway.reset(connection)


@pytest.mark.waits
@pytest.mark.slow
def test_restart_after_an_alert_hears_the_next_one(board: Board) -> None:
    board.script("start")
    board.alert("ONE")
    status, output = board.script("restart")
    assert status == 0
    assert output == "hdtv: stopped\n" + WAITING + "hdtv: started\n"
    board.alert("TWO")
