"""The programs that start Chromium as the kiosk browser, the station's and the board's example: no
input from the network reaches its options or anyone's terminal."""

import os
import signal
import subprocess
from pathlib import Path

import pytest
from support import StationMaker

from simulation import gateway
from simulation.gateway import deliver
from simulation.journal import Call
from simulation.places import BIN, LIVENESS_FILE, REAL, top_directory
from simulation.process import Process, enter_command
from simulation.station import Station
from simulation.waiting import wait_for

pytestmark = pytest.mark.once

STATION_PAGE = "http://127.0.0.1/station_web/"
EXAMPLE = top_directory() / "board" / "debian" / "examples" / "qt-webkit-kiosk"
WRAPPERS = ["kiosk", "example"]
USER = "hdtv-kiosk"
USER_ID = 987
OPTION = "--renderer-cmd-prefix=/usr/bin/mkdir -p /tmp/pwned --"

NO_ADDRESSES = [
    OPTION,
    "--utility-cmd-prefix=/bin/sh",
    "--app=http://x/",
    "-u",
    "-c",
    "--",
    "",
    " http://x/",
    "HTTP://x/",
    "http:/x/",
    "http://",
    "httpx://x/",
    "file:///etc/shadow",
    "javascript:alert(1)",
    "chrome://settings",
    "view-source:http://x/",
    "127.0.0.1/station_web/",
]


@pytest.fixture
def browserless(make_station: StationMaker) -> Station:
    """Its Chromium is a stand-in. The board's example switches users and mounts."""
    return without_browser(make_station(programs={"example": EXAMPLE}, is_board_root=True))


def without_browser(station: Station) -> Station:
    station.run("cp", "--remove-destination", f"{BIN}/stand-in", "/usr/bin/chromium")
    station.path("/run/station/journal").chmod(0o666)  # for the other user, too
    return station


def launch(station: Station, wrapper: str, *arguments: str) -> tuple[Call, str]:
    """Chromium's start, and what the wrapper says."""
    count = len(station.calls("chromium"))
    process = station.start(f"{BIN}/{wrapper}", *arguments)
    process.wait()
    (call,) = station.calls("chromium")[count:]
    return call, said(process)


def said(process: Process) -> str:
    """Its complaints about the address."""
    lines = process.errors.splitlines(keepends=True)
    return "".join(line for line in lines if "not a web address" in line or "usage" in line)


def page(call: Call) -> str:
    """What the browser takes as the page's address: everything after its options."""
    if "--" in call.argv[2:]:
        place = call.argv.index("--", 2)
        assert place == len(call.argv) - 2
    assert all(word.startswith("--") for word in call.argv[1:-1])
    return call.argv[-1].removeprefix("--app=")


@pytest.mark.parametrize("wrapper", WRAPPERS)
def test_address_of_the_web_reaches_the_browser_as_it_is(
    browserless: Station, wrapper: str
) -> None:
    for address in ("http://x/", "https://x/?a=b c&d='\"$(id)`id`?rotation=90", "http://-x"):
        call, errors = launch(browserless, wrapper, "-u", address)
        assert (page(call), errors) == (address, "")


@pytest.mark.parametrize("wrapper", WRAPPERS)
def test_anything_else_brings_the_station_page(browserless: Station, wrapper: str) -> None:
    for address in NO_ADDRESSES:
        call, errors = launch(browserless, wrapper, "-u", address)
        assert page(call) == STATION_PAGE, address
        assert errors.count("\n") == 1
        call, _ = launch(browserless, wrapper, "-u", address + "?rotation=270")
        assert page(call).endswith("?rotation=270")
    assert not [x for x in browserless.calls("chromium") if "cmd-prefix" in " ".join(x.argv)]


@pytest.mark.parametrize("wrapper", WRAPPERS)
def test_station_page_is_turned_by_nothing_but_a_number(browserless: Station, wrapper: str) -> None:
    for suffix in ("", "9x", "--x", "1234", "90?rotation=", "90\n"):
        call, _ = launch(browserless, wrapper, "-u", "--x?rotation=" + suffix)
        assert page(call) == STATION_PAGE, suffix
    call, _ = launch(browserless, wrapper, "-u", "--x?rotation=1?rotation=90")
    assert page(call) == STATION_PAGE + "?rotation=90"


@pytest.mark.parametrize("wrapper", WRAPPERS)
def test_what_is_refused_reaches_no_terminal_as_it_is(browserless: Station, wrapper: str) -> None:
    hostile = (
        b"\x1b]0;owned\x07\x9b2J\r\nhdtv: all is well\n" + bytes(range(128, 256)) + b"%s\\n" * 999
    )
    process = browserless.start(f"{BIN}/{wrapper}", "-u", os.fsdecode(hostile))
    process.wait()
    text = said(process)
    assert "?]0;owned??2J??hdtv: all is well?" in text
    assert text.endswith("\n") and text.count("\n") == 1 and len(text) < 200
    assert all(" " <= c <= "~" for c in process.errors.replace("\n", ""))


@pytest.mark.parametrize("wrapper", WRAPPERS)
def test_last_address_of_several_counts(browserless: Station, wrapper: str) -> None:
    first = ("-u", "http://first/")
    call, errors = launch(browserless, wrapper, *first, "-c", "/none", "-u", "http://last/")
    assert (page(call), errors) == ("http://last/", "")
    call, errors = launch(browserless, wrapper, *first, "-u", OPTION)
    assert (page(call), errors.count("\n")) == (STATION_PAGE, 1)


@pytest.mark.parametrize("wrapper", WRAPPERS)
def test_command_line_without_an_address_brings_the_station_page(
    browserless: Station, wrapper: str
) -> None:
    for words in ("", "-u", "http://x/", "-x"):
        call, errors = launch(browserless, wrapper, *words.split())
        assert page(call) == STATION_PAGE, words
        assert errors != ""


@pytest.mark.parametrize("wrapper", WRAPPERS)
def test_page_of_a_message_is_no_option_of_the_browser(browserless: Station, wrapper: str) -> None:
    browserless.behave("chromium", "stay")
    browserless.use_real_browser(wrapper)
    browserless.start_service()
    wait_for(lambda: browserless.calls("chromium"), "the first browser")
    deliver(browserless, gateway.set_page_address(OPTION))
    wait_for(lambda: len(browserless.calls("chromium")) == 2, "the second browser")
    assert page(browserless.calls("chromium")[-1]) == STATION_PAGE


# The board's example: whose the browser is, and what it may fill.


def add_user(station: Station) -> None:
    for file, line in (
        ("/etc/passwd", f"{USER}:x:{USER_ID}:{USER_ID}::/nonexistent:/usr/sbin/nologin"),
        ("/etc/group", f"{USER}:x:{USER_ID}:"),
    ):
        content = station.path(file).read_text()
        station.path(file).write_text(f"{content}{line}\n")


def status(station: Station, pid: int) -> dict[str, str]:
    lines = station.path(f"/proc/{pid}/status").read_text().splitlines()
    return dict(line.split(":\t", 1) for line in lines if ":\t" in line)


def start_example(station: Station) -> tuple[Process, Call]:
    """The service with a Chromium that stays."""
    station.behave("chromium", "stay")
    station.use_real_browser("example")
    service = station.start_service()
    wait_for(lambda: station.calls("chromium"), "the browser")
    return service, station.calls("chromium")[0]


def test_browser_is_a_user_of_its_own_in_its_sandbox(browserless: Station) -> None:
    add_user(browserless)
    service, call = start_example(browserless)
    now = status(browserless, call.pid)
    assert now["Uid"].split() == now["Gid"].split() == [str(USER_ID)] * 4
    assert (now["Groups"].strip(), now["NoNewPrivs"]) == (str(USER_ID), "1")
    assert {now[name] for name in ("CapInh", "CapPrm", "CapEff", "CapAmb")} == {"0" * 16}
    assert "--no-sandbox" not in call.argv
    (profile,) = [x for x in call.argv if x.startswith("--user-data-dir=")]
    assert browserless.path(profile.partition("=")[2]).stat().st_uid == USER_ID
    assert "sandbox" not in service.errors


def test_browser_of_another_user_is_the_process_that_the_service_ends(
    browserless: Station,
) -> None:
    add_user(browserless)
    service, first = start_example(browserless)
    (started,) = browserless.calls("qt-webkit-kiosk")
    assert (first.pid, first.death_signal) == (started.pid, signal.SIGKILL)
    deliver(browserless, gateway.set_page_address("http://x/"))
    wait_for(lambda: len(browserless.calls("chromium")) == 2, "the second browser")
    assert not browserless.path(f"/proc/{first.pid}").exists()
    second = browserless.calls("chromium")[1]
    service.kill()
    wait_for(lambda: not browserless.path(f"/proc/{second.pid}").exists(), "the browser's end")


def test_unit_without_that_user_shows_the_page_all_the_same(browserless: Station) -> None:
    service, call = start_example(browserless)
    assert "--no-sandbox" in call.argv
    assert (call.death_signal, page(call)) == (signal.SIGKILL, STATION_PAGE)
    assert f"there is no user {USER}: the browser runs as root" in service.errors


def test_unit_without_user_namespaces_shows_the_page_all_the_same(browserless: Station) -> None:
    add_user(browserless)
    refusing = "#!/bin/sh\ncase $* in *--map-root-user*) exit 1 ;; esac\n"
    place = browserless.path("/tmp/refusing-unshare")
    place.write_text(refusing + f'exec {REAL}/usr/bin/unshare "$@"\n')
    place.chmod(0o755)
    browserless.behave("unshare", "exec /tmp/refusing-unshare")
    service, call = start_example(browserless)
    assert "--no-sandbox" in call.argv
    assert status(browserless, call.pid)["Uid"].split()[0] == str(USER_ID)
    assert "no user namespaces: the browser runs without its sandbox" in service.errors


def write_browser(station: Station, script: str) -> None:
    browser = station.path("/usr/bin/chromium")
    browser.unlink()
    browser.write_text(script if script.startswith("#!") else f"#!/bin/sh\n{script}\n")
    browser.chmod(0o755)


def run_example(station: Station, script: str) -> None:
    """With the privilege to mount, and a script for Chromium."""
    if USER not in station.path("/etc/passwd").read_text():
        add_user(station)
    station.behave("mount", f"exec {REAL}/usr/bin/mount")
    write_browser(station, script)
    station.run(f"{BIN}/example", "-u", "http://x/")


FILL = """
df --output=size -k /dev/shm /tmp "$TMPDIR" "$HOME" >"$HOME/sizes"
for place in /dev/shm /tmp "$TMPDIR" "$HOME" /run/hdtv; do
    dd if=/dev/zero of="$place/fill" bs=1M count=512
done 2>/dev/null
exit 0"""


def test_browser_that_fills_what_it_can_leaves_room_for_the_alert(browserless: Station) -> None:
    run_example(browserless, FILL)
    sizes = browserless.path("/run/hdtv/browser/profile/sizes").read_text().split()[1:]
    assert sizes == [str(256 * 1024)] * 4
    for place in ("/dev/shm", "/tmp", "/run/hdtv"):
        assert not browserless.path(f"{place}/fill").exists()
    browserless.start_service().wait_for_output("Starting qt-webkit-kiosk")
    deliver(browserless, gateway.display_alert("F" * 4000))
    assert browserless.document()["alert_area"] == "F" * 4000


def test_next_browser_finds_its_place_tidy(browserless: Station) -> None:
    run_example(
        browserless, "echo kept >$HOME/kept; ln -s x $HOME/SingletonLock; touch $TMPDIR/old"
    )
    run_example(browserless, "ls -A $HOME $TMPDIR >$HOME/seen")
    seen = browserless.path("/run/hdtv/browser/profile/seen").read_text()
    assert "kept" in seen and "Singleton" not in seen and "old" not in seen
    run_example(browserless, "dd if=/dev/zero of=$HOME/large bs=1M count=70 2>/dev/null")
    run_example(browserless, "ls -A $HOME >$TMPDIR/seen")
    assert browserless.path("/run/hdtv/browser/tmp/seen").read_text() == ""


def test_stations_browser_fills_no_memory_but_its_own(make_station: StationMaker) -> None:
    station = without_browser(make_station())
    write_browser(station, FILL.replace("$HOME", "/run/station") + "\nexec sleep 1000")
    station.use_real_browser()
    service = station.start_service()
    seen = station.path("/run/station/sizes")
    wait_for(lambda: seen.exists() and seen.read_text().count("\n") == 5, "the sizes")
    sizes = seen.read_text().split()[1:]
    assert sizes[0] == sizes[2] == str(256 * 1024)
    assert "shares" not in service.errors
    assert not station.path("/dev/shm/fill").exists()


# Shared memory that the browser uses: for drawing, and between its processes.
GREEDY = """<script>
var kept = [];
function take() {
    var canvas = document.createElement('canvas'), channel = new BroadcastChannel('x');
    canvas.width = canvas.height = 2048;
    canvas.style.cssText = 'position:absolute;width:64px;height:64px;will-change:transform';
    canvas.getContext('2d').fillRect(0, 0, 2048, 2048);
    document.body.appendChild(canvas);
    channel.postMessage(new Uint8Array(8 << 20));
    kept.push(new Blob([new Uint8Array(8 << 20)]), channel);
    setTimeout(take, 10);
}
onload = take;
</script>"""


@pytest.mark.browser
def test_page_that_takes_all_the_memory_it_gets_leaves_room_for_the_alert(
    make_station: StationMaker, tmp_path: Path
) -> None:
    """Even in a browser that has to keep its shared memory in a file system."""
    station = make_station()
    make_memory_small(station)
    forbid_memory_files(station)
    station.use_real_browser()
    (tmp_path / "greedy.html").write_text(GREEDY)
    with gateway.web_server(station, tmp_path):
        station.start_service()
        station.wait_for_calls("qt-webkit-kiosk")
        address = f"http://{gateway.GATEWAY}/greedy.html"
        deliver(station, gateway.set_page_address(address))
        browser = station.wait_for_calls("qt-webkit-kiosk", 2)[1].pid
        own = station.path(f"/proc/{browser}/root/dev/shm")
        wait_for(lambda: own.exists() and used(own) > 64 << 20, "memory taken")
        assert used(station.path("/dev/shm")) < 100_000
        deliver(station, gateway.detail_alert("F" * 3000))
        assert station.document()["alert_area"] == "F" * 3000


SMALL_MEMORY = """
import ctypes
options = b"size=16m,mode=1777"
assert ctypes.CDLL(None).mount(b"shm", b"/dev/shm", b"tmpfs", 0, options) == 0
"""


def make_memory_small(station: Station) -> None:
    """Done from outside: nothing in the station may do this."""
    mount = enter_command(station.unit_pid, "/usr/bin/python3", "-c", SMALL_MEMORY)
    subprocess.run(mount, check=True, timeout=20)


def used(path: Path) -> int:
    """Bytes of its file system."""
    system = os.statvfs(path)
    return (system.f_blocks - system.f_bfree) * system.f_frsize


# Makes memfd_create fail with ENOSYS on any architecture; allows everything else.
NO_MEMORY_FILES = """#!/usr/bin/python3 -I
import ctypes, os, struct, sys
number = {"x86_64": 319, "aarch64": 279}[os.uname().machine]
steps = [(0x20, 0, 0, 0), (0x15, 0, 1, number), (0x06, 0, 0, 0x50026), (0x06, 0, 0, 0x7FFF0000)]
code = ctypes.create_string_buffer(b"".join(struct.pack("HBBI", *step) for step in steps))
program = ctypes.create_string_buffer(struct.pack("HxxxxxxQ", len(steps), ctypes.addressof(code)))
libc = ctypes.CDLL(None)
assert libc.prctl(38, 1, 0, 0, 0) == 0 and libc.prctl(22, 2, program, 0, 0) == 0
os.execv("/usr/bin/real-chromium", sys.argv)
"""


def forbid_memory_files(station: Station) -> None:
    station.run("cp", "/usr/bin/chromium", "/usr/bin/real-chromium")
    write_browser(station, NO_MEMORY_FILES)


@pytest.mark.browser
def test_real_browser_shows_the_page_from_its_sandbox(make_station: StationMaker) -> None:
    station = make_station(programs={"example": EXAMPLE}, is_board_root=True)
    add_user(station)
    station.start("/usr/bin/Xvfb", ":0", "-screen", "0", "1280x720x24", "-nolisten", "tcp")
    wait_for(station.path("/tmp/.X11-unix/X0").exists, "the X server")
    station.start_web_server()
    station.use_real_browser("example")
    service = station.start_service()
    wait_for(station.path(LIVENESS_FILE).exists, "the page's sign of life: " + service.errors)
    pids = [int(x.name) for x in station.path("/proc").iterdir() if x.name.isdigit()]
    renderers = [x for x in pids if b"--type=renderer" in command_line(station, x)]
    assert renderers
    own = os.readlink(station.path("/proc/1/ns/user"))
    for pid in renderers:
        assert os.stat(station.path(f"/proc/{pid}")).st_uid == USER_ID
        assert os.readlink(station.path(f"/proc/{pid}/ns/user")) != own
        assert status(station, pid)["Seccomp"] == "2"


def command_line(station: Station, pid: int) -> bytes:
    try:
        return station.path(f"/proc/{pid}/cmdline").read_bytes()
    except OSError:
        return b""
