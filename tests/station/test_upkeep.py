"""What looks after the service's leftovers: upkeep, with the board's init script and busybox."""

import contextlib
import re
from functools import partial

import pytest
from board_support import APPLETS, DEFAULTS, Board
from support import IDLE_DESCRIPTORS

from simulation import gateway
from simulation.places import ALERT_LOG
from simulation.waiting import wait_for

pytestmark = pytest.mark.once

INIT_SCRIPT = "/run/station/bin/S90hdtv"
UPKEEP = "/run/station/bin/upkeep"
LOOKED = "/run/hdtv.looked"

AS_IT_SHOULD_BE = "as it should be"
WAITING = "starting again when nothing is going on"
STARTING = "starting again\n"


@pytest.fixture
def kept(board: Board) -> Board:
    """A board whose clock is the test's, with its service running."""
    board.station.path(f"{APPLETS}/date").symlink_to("/bin/date")
    set_clock(board, "0430")
    board.script("start")
    board.station.wait_for_calls("qt-webkit-kiosk")
    return board


def set_clock(board: Board, time: str, day: str = "20270401") -> None:
    board.station.behave("date", f"print {day} {time}")


def run_upkeep(board: Board) -> None:
    assert board.script(INIT_SCRIPT, "upkeep") == (0, "")


def descriptors(board: Board) -> int:
    return len(list(board.station.path(f"/proc/{board.pid()}/fd").iterdir()))


def leave_descriptors(board: Board, count: int) -> None:
    """Roll calls from a gateway that does not listen."""
    wanted = descriptors(board)
    for _ in range(count):
        wanted += 1
        gateway.send_datagram(board.station, gateway.roll_call())
        wait_for(partial(holds, board, wanted), "the refusal")


def holds(board: Board, count: int) -> bool:
    return descriptors(board) >= count


def children(board: Board) -> int:
    """Those that have ended."""
    found = 0
    for path in board.station.path("/proc").glob("[0-9]*/stat"):
        # One may have been reaped in the meantime.
        with contextlib.suppress(OSError):
            fields = path.read_text().rpartition(")")[2].split()
            found += fields[:2] == ["Z", str(board.pid())]
    return found


def leave_children(board: Board) -> None:
    gateway.send_datagram(board.station, gateway.play_clip(f"http://{gateway.GATEWAY}/none.wav"))
    wait_for(lambda: children(board) >= 2, "the clip's leftovers")


def lines(board: Board, text: str) -> int:
    return board.log().count(text)


def wait_for_line(board: Board, text: str, count: int = 1) -> None:
    wait_for(lambda: lines(board, text) >= count, f"{text!r} in the log:\n{board.log()}")


def show(board: Board, text: str) -> None:
    """Not over TCP: connections that have ended would keep the port."""
    gateway.send_datagram(board.station, gateway.display_alert(text))
    wait_for(lambda: board.station.document().get("alert_area") == text, "the document")


def check_started_again(board: Board, former: int) -> None:
    wait_for_line(board, STARTING)
    board.wait_for_start(former)
    assert len(board.services()) == 1
    board.alert("HEARD")


def test_service_below_its_marks_is_looked_at_once_a_day_and_left_alone(kept: Board) -> None:
    first = kept.pid()
    set_clock(kept, "0429")
    run_upkeep(kept)
    assert not kept.station.path(LOOKED).exists()
    set_clock(kept, "0430")
    run_upkeep(kept)
    run_upkeep(kept)
    set_clock(kept, "2359")
    run_upkeep(kept)
    set_clock(kept, "0005", "20270402")
    run_upkeep(kept)
    set_clock(kept, "0815", "20270402")
    run_upkeep(kept)
    wait_for_line(kept, AS_IT_SHOULD_BE, 2)
    assert lines(kept, AS_IT_SHOULD_BE) == 2
    said = r"hdtv: (\d+) descriptors \(mark 10000\), (\d+) ended children \(mark \d+\), (\d+) kB of"
    found = re.findall(said, kept.log())
    assert [int(x) for x in found[0][:2]] == [IDLE_DESCRIPTORS, 0]
    assert 500 < int(found[0][2]) < 32768
    assert kept.services() == [first]


@pytest.mark.parametrize(
    "mark, leave",
    [
        ("DESCRIPTOR_MARK=15", partial(leave_descriptors, count=10)),
        ("CHILD_MARK=1", leave_children),
        ("MEMORY_MARK=100", lambda board: None),
    ],
)
def test_service_past_a_mark_is_started_again(kept: Board, mark: str, leave: object) -> None:
    assert callable(leave)
    leave(kept)
    first, before = kept.pid(), descriptors(kept)
    kept.set_defaults(DEFAULTS + mark + "\n")
    run_upkeep(kept)
    check_started_again(kept, first)
    assert f"(mark {mark.partition('=')[2]})" in kept.log()
    if "DESCRIPTOR" in mark:
        assert f"hdtv: {before} descriptors (mark 15), " in kept.log()
        assert descriptors(kept) < 15
    assert children(kept) == 0
    # Not again on the same day, whatever the marks are.
    run_upkeep(kept)
    assert lines(kept, STARTING) == 1


def test_limit_below_the_mark_is_not_reached(board: Board) -> None:
    board.station.path(f"{APPLETS}/date").symlink_to("/bin/date")
    set_clock(board, "0430")
    board.set_defaults(DEFAULTS + "DESCRIPTORS=40\n")
    board.script("start")
    board.station.wait_for_calls("qt-webkit-kiosk")
    leave_descriptors(board, 20)
    first = board.pid()
    run_upkeep(board)
    check_started_again(board, first)
    assert "descriptors (mark 20), " in board.log()


def test_alert_is_never_taken_from_the_page(kept: Board) -> None:
    kept.set_defaults(DEFAULTS + "MEMORY_MARK=100\n")
    first = kept.pid()
    show(kept, "FIRE")
    for moment in ("0430", "0440", "0530", "2350"):
        set_clock(kept, moment)
        run_upkeep(kept)
    wait_for_line(kept, WAITING)
    assert lines(kept, WAITING) == 1
    assert kept.services() == [first]
    assert kept.station.document()["alert_area"] == "FIRE"
    show(kept, "")
    run_upkeep(kept)
    check_started_again(kept, first)


def test_restart_waits_an_hour_for_a_free_port(kept: Board) -> None:
    """Until then it would be deaf for as long as the connection's end takes."""
    kept.set_defaults(DEFAULTS + "MEMORY_MARK=100\n")
    first = kept.pid()
    connection = gateway.connect(kept.station)
    kept.kept.append(connection)
    connection.sendall(b"\0")
    gateway.wait_until_closed(connection)
    set_clock(kept, "0529")
    run_upkeep(kept)
    wait_for_line(kept, WAITING)
    assert kept.services() == [first]
    set_clock(kept, "0530")
    upkeep = kept.call(INIT_SCRIPT, "upkeep")
    wait_for_line(kept, "hdtv: hdtv: waiting for TCP port 4000")
    assert not kept.services()
    gateway.reset(connection)
    assert upkeep.wait(100) == 0
    kept.wait_for_start(first)


def test_port_that_is_free_again_is_not_waited_for(kept: Board) -> None:
    kept.set_defaults(DEFAULTS + "MEMORY_MARK=100\n")
    first = kept.pid()
    connection = gateway.connect(kept.station)
    run_upkeep(kept)
    wait_for_line(kept, WAITING)
    assert kept.services() == [first]
    gateway.reset(connection)
    tables = kept.station.path("/proc/1/net/tcp")
    wait_for(lambda: tables.read_text().count(":0FA0 ") == 1, "the end of the connection")
    set_clock(kept, "0440")
    run_upkeep(kept)
    check_started_again(kept, first)


def test_without_a_service_there_is_nothing_to_look_at(board: Board) -> None:
    board.station.path(f"{APPLETS}/date").symlink_to("/bin/date")
    set_clock(board, "0430")
    run_upkeep(board)
    assert not board.station.path(LOOKED).exists()
    board.script("start")
    board.signal("KILL")
    wait_for(lambda: not board.services(), "the service's end")
    run_upkeep(board)
    assert not board.station.path(LOOKED).exists()
    board.script("stop")
    run_upkeep(board)
    assert not board.services()
    assert lines(board, "mark") == 0


def test_other_init_system_starts_the_service_again_itself(kept: Board) -> None:
    kept.set_defaults(DEFAULTS + "MEMORY_MARK=100\n")
    first = kept.pid()
    kept.station.path("/run/hdtv.pid").unlink()
    environment = (f"PATH={APPLETS}", f"MAINPID={first}")
    command = ("/bin/busybox", "env", *environment, UPKEEP, INIT_SCRIPT)
    assert kept.station.start(*command).wait() == 0
    wait_for(lambda: not kept.services(), "the service's end")
    wait_for_line(kept, STARTING)
    assert kept.station.start(*command).wait() == 0
    for none in ("0", ""):
        environment = (f"PATH={APPLETS}", f"MAINPID={none}")
        command = ("/bin/busybox", "env", *environment, UPKEEP, INIT_SCRIPT)
        assert kept.station.start(*command).wait() == 0
    assert kept.services() == []


def test_init_runs_it_all_the_time(kept: Board) -> None:
    kept.set_defaults(f"{DEFAULTS}UPKEEP={UPKEEP}\nUPKEEP_PERIOD=1\nCHILD_MARK=1\n")
    first = kept.pid()
    respawn = kept.call("respawn")
    wait_for_line(kept, AS_IT_SHOULD_BE)
    leave_children(kept)
    set_clock(kept, "0430", "20270402")
    wait_for_line(kept, STARTING)
    kept.wait_for_start(first)
    assert respawn.is_running()
    kept.signal("KILL")
    assert respawn.wait() == 0
    assert len(kept.services()) == 1


def test_log_is_bounded_and_no_line_is_lost(kept: Board) -> None:
    kept.set_defaults(DEFAULTS + "DOCUMENT_LOG_LIMIT=2\n")
    log, former = kept.station.path(ALERT_LOG), kept.station.path(ALERT_LOG + ".1")
    shown, moved = 0, 0
    while moved < 3:
        assert shown < 60
        show(kept, f"ALERT {shown}")
        shown += 1
        before = log.stat().st_ino
        run_upkeep(kept)
        if not log.exists():
            moved += 1
            assert former.stat().st_ino == before
            assert 2 << 10 < former.stat().st_size < 3 << 10
    show(kept, f"ALERT {shown}")
    text = former.read_text() + log.read_text()
    found = [int(x) for x in re.findall(r'"alert_area":"ALERT (\d+)"', text)]
    assert found == list(range(found[0], shown + 1))
    assert text.count("\n") == len(found) > 5


def test_links_in_the_place_of_a_log_lead_nowhere(kept: Board) -> None:
    kept.set_defaults(DEFAULTS + "DOCUMENT_LOG_LIMIT=0\n")
    secret, directory = kept.station.path("/root/secret"), kept.station.path("/root/directory")
    secret.write_text("secret")
    directory.mkdir()
    log, former = kept.station.path(ALERT_LOG), kept.station.path(ALERT_LOG + ".1")
    former.symlink_to("/root/directory")
    assert log.stat().st_size > 0
    run_upkeep(kept)
    assert not list(directory.iterdir())
    assert former.is_file() and not former.is_symlink()
    log.symlink_to("/root/secret")
    run_upkeep(kept)
    assert log.is_symlink() and secret.read_text() == "secret"
