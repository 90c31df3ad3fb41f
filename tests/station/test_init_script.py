"""The board's init scripts, with nothing but busybox."""

from functools import partial

import pytest
from board_support import Board
from support import IDLE_DESCRIPTORS

from simulation import gateway
from simulation.waiting import wait_for

pytestmark = pytest.mark.once


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
    """For connection attempts: the first after one second, the second after two more."""
    board.script("start")
    setting = ("/bin/cat", "/proc/sys/net/ipv4/tcp_syn_retries")
    assert board.station.run(*setting) == "1\n"


@pytest.mark.slow
def test_service_that_does_not_start_is_said(board: Board) -> None:
    board.set_defaults("DAEMON=/no/such/hdtv\n")
    assert board.script("start") == (1, "hdtv: failed to start\n")


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
    # Each check runs a new "sleep" process.
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
        " start|stop|restart|status|respawn|wait-for-port|retry-port|disarm-watchdog"
        "|restart-if-quiet|restart-unless-alert|is-quiet|is-alert-shown\n",
    )


NO_ACCOUNT = "station-web: no such account: station-web: the web server runs as root\n"


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
    """It opens its port as root, and does not own what it serves and writes."""
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
