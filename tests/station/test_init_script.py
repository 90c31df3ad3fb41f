"""The board's init scripts, with busybox and nothing else."""

import contextlib
import socket
import struct
from collections.abc import Callable, Iterator
from functools import partial

import pytest
from support import IDLE_DESCRIPTORS, StationMaker

from station import gateway
from station.station import Process, Station, top_directory
from station.waiting import wait_for

PACKAGES = top_directory() / "board" / "package"
SCRIPTS = {
    "S90hdtv": PACKAGES / "hdtv" / "S90hdtv",
    "S80station-web": PACKAGES / "station-web" / "S80station-web",
}
DEFAULTS = "DAEMON=/run/station/bin/hdtv\n"
APPLETS = "/tmp/busybox"
WAITING = "hdtv: waiting for TCP port 4000, which is still held\n"
HELD = "hdtv: TCP port 4000 is held after 1 s: it will hear datagrams only, until that ends\n"
SYSLOG = "/tmp/messages"

pytestmark = pytest.mark.once


class Board:
    """A station whose tools are busybox's, with a system log."""

    def __init__(self, station: Station) -> None:
        self.station = station
        self.kept: list[socket.socket] = []
        station.path(APPLETS).mkdir()
        station.run("/bin/busybox", "--install", "-s", APPLETS)
        self.set_defaults(DEFAULTS)
        station.start("/bin/busybox", "syslogd", "-n", "-O", SYSLOG)
        # Held open: writing to the watchdog waits for nobody, as with a real one.
        self.watchdog = open(station.path("/dev/watchdog"), "rb+", buffering=0)

    def set_defaults(self, text: str) -> None:
        self.station.path("/etc/default/hdtv").write_text(text)

    def call(self, action: str, script: str = "S90hdtv") -> Process:
        """With no more descriptors than a boot gives."""
        shell = ("/bin/busybox", "env", f"PATH={APPLETS}", f"{APPLETS}/sh", "-c")
        command = f"ulimit -S -n 1024; exec {APPLETS}/sh /run/station/bin/{script} {action}"
        return self.station.start(*shell, command)

    def script(self, action: str, script: str = "S90hdtv") -> tuple[int, str]:
        process = self.call(action, script)
        status = process.wait(100)
        assert process.errors == ""
        return status, process.output

    def log(self) -> str:
        path = self.station.path(SYSLOG)
        return path.read_text() if path.exists() else ""

    def pid(self) -> int:
        """As the unit sees it."""
        return int(self.station.path("/run/hdtv.pid").read_text())

    def signal(self, name: str) -> None:
        self.station.run("/bin/kill", f"-{name}", str(self.pid()))

    def processes(self, words: str) -> list[int]:
        """Those with these words in their command line."""
        found = []
        for path in self.station.path("/proc").glob("[0-9]*/cmdline"):
            # One may have ended since.
            with contextlib.suppress(OSError):
                if words in path.read_text().replace("\0", " "):
                    found.append(int(path.parent.name))
        return found

    def services(self) -> list[int]:
        return [n for n in self.processes("/hdtv") if self.name_of(n) == "hdtv"]

    def start_too_late(self) -> None:
        """For the port, which is held."""
        self.set_defaults(DEFAULTS + "LIMIT=1\n")
        assert self.script("start") == (0, WAITING + HELD + "hdtv: started\n")
        wait_for(lambda: self.processes("retry-port"), "the look at the port")

    def wait_for_start(self, former: int) -> None:
        wait_for(lambda: self.services() not in ([], [former]), "another service")
        port = gateway.COMMAND_PORT
        wait_for(lambda: self.station.listen_queue(port) is not None, "its TCP port")

    def name_of(self, pid: int) -> str:
        path = self.station.path(f"/proc/{pid}/comm")
        return path.read_text().strip() if path.exists() else ""

    def alert(self, text: str) -> None:
        port = gateway.COMMAND_PORT
        wait_for(lambda: self.station.listen_queue(port) == 0, "the service")
        gateway.deliver(self.station, gateway.display_alert(text))
        assert self.station.document()["alert_area"] == text


@pytest.fixture
def board(make_station: StationMaker) -> Iterator[Board]:
    board = Board(make_station(programs=SCRIPTS, is_board_root=True))
    yield board
    board.watchdog.close()
    for kept in board.kept:
        kept.close()


def test_start_status_and_stop(board: Board) -> None:
    assert board.script("status") == (3, "hdtv: not running\n")
    assert board.script("start") == (0, "hdtv: started\n")
    pid = board.pid()
    assert board.name_of(pid) == "hdtv"
    assert board.script("status") == (0, f"hdtv: running, process {pid}\n")
    assert board.script("start") == (0, "hdtv: already running\n")
    assert board.pid() == pid
    assert board.script("stop") == (0, "hdtv: stopped\n")
    assert board.name_of(pid) == ""
    assert board.script("stop") == (0, "hdtv: not running\n")
    assert board.script("status") == (3, "hdtv: not running\n")


def test_what_the_service_says_is_in_the_system_log(board: Board) -> None:
    board.script("start")
    wait_for(lambda: "hdtv: Starting qt-webkit-kiosk" in board.log(), "the line in the log")


def test_service_has_no_children_but_its_own(board: Board) -> None:
    board.script("start")
    board.station.wait_for_calls("qt-webkit-kiosk")
    pid = board.pid()
    children = board.station.path(f"/proc/{pid}/task/{pid}/children").read_text().split()
    assert [board.name_of(int(child)) for child in children] == ["qt-webkit-kiosk"]


def test_stop_takes_the_browser_along_and_disarms_the_watchdog(board: Board) -> None:
    board.script("start")
    (browser,) = board.station.wait_for_calls("qt-webkit-kiosk")
    board.script("stop")
    assert board.watchdog.read(4096).endswith(b" V")
    wait_for(lambda: board.name_of(browser.pid) == "", "the browser's end")


def states(board: Board) -> set[str]:
    """Of all sockets at the service's TCP port."""
    found = set()
    for table in ("tcp", "tcp6"):
        for line in board.station.path(f"/proc/1/net/{table}").read_text().splitlines()[1:]:
            fields = line.split()
            if fields[1].endswith(f":{gateway.COMMAND_PORT:04X}"):
                found.add(STATES.get(fields[3], fields[3]))
    return found


STATES = {"04": "FIN_WAIT1", "05": "FIN_WAIT2", "06": "TIME_WAIT", "0A": "LISTEN"}

# Ends what holds the port.
Release = Callable[[], None]


def reset(connection: socket.socket) -> None:
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


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
    return lambda: reset(connection)


def leave_vanished_peer(board: Board) -> Release:
    """The service reads its message, and closes, when the cable is cut."""
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
        reset(connection)
        assert board.station.start_on_gateway(*cable, "up").wait() == 0

    return come_back


def gateway_has_been_heard(board: Board) -> bool:
    """The connection to the service has a byte in its queue."""
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
    """At the port, or at the service. Each is a process "sleep" with a new number."""
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
    # Now and then it has a child of the same name.
    wait_for(lambda: len(board.processes("retry-port")) == 1, "one that looks")


def test_start_that_waits_is_stopped_too(board: Board) -> None:
    release = leave_other_program(board)
    start = board.call("start")
    wait_for(lambda: start.output == WAITING, "the wait")
    board.script("stop")
    release()
    assert start.wait() == 1
    assert start.output == WAITING + "hdtv: stopped meanwhile\n"
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
    return lambda: reset(connection)


@pytest.mark.slow
def test_restart_after_an_alert_hears_the_next_one(board: Board) -> None:
    board.script("start")
    board.alert("ONE")
    status, output = board.script("restart")
    assert status == 0
    assert output == "hdtv: stopped\n" + WAITING + "hdtv: started\n"
    board.alert("TWO")


def test_refused_roll_calls_do_not_make_the_service_deaf(board: Board) -> None:
    """Each leaves a descriptor open."""
    board.script("start")
    board.station.wait_for_calls("qt-webkit-kiosk")
    descriptors = board.station.path(f"/proc/{board.pid()}/fd")
    for count in range(1, 1101):
        gateway.send_datagram(board.station, gateway.roll_call())
        wait_for(
            lambda: len(list(descriptors.iterdir())) >= IDLE_DESCRIPTORS + count, "the refusal"
        )
    board.alert("HEARD")


def test_unanswered_connections_are_given_up_before_the_watchdog_resets(board: Board) -> None:
    """Of attempts to connect, the first after one second, the second after two more."""
    board.script("start")
    setting = ("/bin/cat", "/proc/sys/net/ipv4/tcp_syn_retries")
    assert board.station.run(*setting) == "1\n"


@pytest.mark.slow
def test_service_that_does_not_start_is_said(board: Board) -> None:
    board.set_defaults("DAEMON=/no/such/hdtv\n")
    assert board.script("start") == (1, "hdtv: did not start\n")


def test_service_that_died_is_started_again(board: Board) -> None:
    board.script("start")
    first = board.pid()
    respawn = board.call("respawn")
    board.station.run("/bin/kill", "-9", str(first))
    assert respawn.wait() == 0
    assert board.pid() != first
    assert board.name_of(board.pid()) == "hdtv"
    wait_for(lambda: "hdtv: hdtv: started" in board.log(), "the news in the log")


def test_service_that_was_stopped_is_not_started_again(board: Board) -> None:
    board.script("start")
    respawn = board.call("respawn")
    board.script("stop")
    # A look is a process "sleep", each with a new number.
    looks: set[str] = set()

    def count_looks() -> int:
        children = f"/proc/{respawn.pid}/task/{respawn.pid}/children"
        with open(children, encoding="ascii") as file:
            looks.update(file.read().split())
        return len(looks)

    wait_for(lambda: count_looks() >= 3, "two more looks")
    assert board.script("status")[0] == 3
    board.script("start")
    assert board.script("status")[0] == 0
    assert respawn.is_running()


def test_wrong_word_is_answered_with_the_right_ones(board: Board) -> None:
    assert board.script("reload") == (
        2,
        "usage: /run/station/bin/S90hdtv"
        " start|stop|restart|status|respawn|wait-for-port|retry-port|disarm-watchdog\n",
    )


NO_ACCOUNT = "station-web: there is no account station-web: the web server runs as root\n"


def is_page_served(board: Board) -> bool:
    page = ("/usr/bin/wget", "-q", "-O", "-", "http://127.0.0.1/station_web/")
    process = board.station.start(*page)
    process.wait()
    return "<html" in process.output


def test_web_server_starts_restarts_and_stops(board: Board) -> None:
    is_served = partial(is_page_served, board)
    assert board.script("start", "S80station-web") == (0, NO_ACCOUNT)
    wait_for(is_served, "the page")
    first = board.station.path("/run/station-web.pid").read_text()
    assert board.script("restart", "S80station-web") == (0, NO_ACCOUNT)
    wait_for(is_served, "the page")
    assert board.station.path("/run/station-web.pid").read_text() != first
    assert board.script("stop", "S80station-web") == (0, "")
    assert not is_served()
    assert board.script("stop", "S80station-web") == (0, "")
    assert board.script("reload", "S80station-web")[0] == 2


def test_web_server_has_an_account_of_its_own(board: Board) -> None:
    """It takes its port as root, and what it serves and writes is not its own."""
    station = board.station
    for file in ("/etc/passwd", "/etc/group"):
        line = "station-web:x:988:988:::\n" if file == "/etc/passwd" else "station-web:x:988:\n"
        station.path(file).write_text(station.path(file).read_text() + line)
    station.write_config("{}")
    board.script("start")
    assert board.script("start", "S80station-web") == (0, "")
    wait_for(lambda: is_page_served(board), "the page")
    pid = station.path("/run/station-web.pid").read_text().strip()
    assert station.path(f"/proc/{pid}").stat().st_uid == 988
    sign = "wget -q -O - --header X-Station-Page:alive --post-data= http://127.0.0.1/station_web/alive.cgi"
    assert station.start("/usr/bin/env", *sign.split()).wait() == 0
    assert station.path("/dev/shm/web_watchdog").stat().st_uid == 988
    wait_for(lambda: station.document(), "the document")
    document = station.start(
        *("/usr/bin/wget", "-q", "-O", "-", "http://127.0.0.1/station_web/alerts.json")
    )
    assert document.wait() == 0 and document.output == station.document_text()
    assert board.script("restart", "S80station-web") == (0, "")
    wait_for(lambda: is_page_served(board), "the page")
    assert board.script("stop", "S80station-web") == (0, "")
    assert not station.path("/run/station-web.conf").exists()
