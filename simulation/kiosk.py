#!/usr/bin/python3 -I
"""Stand-in for the board's kiosk browser: Chromium behind that browser's command line.

    qt-webkit-kiosk [-c SETTINGS] -u ADDRESS

Without a display it runs headless. SETTINGS is an INI file whose section "proxy" may set a host and
a port. Tools that watch or drive the browser connect to DEBUGGING_PORT.

The address may come from anyone on the network. One that is not a web address could be read as an
option: it is reported on standard error, and the station page is shown instead.
"""

import configparser
import ctypes
import getopt
import os
import re
import signal
import sys
import tempfile

BROWSER = "/usr/bin/chromium"
DEBUGGING_PORT = 9222
LOG = "/tmp/browser.log"
SIZE = (1280, 720)

STATION_PAGE = "http://127.0.0.1/station_web/"

# A separate file system: no page can use up the space of the alert document or its log.
PLACE = "/dev/shm"
PLACE_SIZE = "256m"
USER_NAMESPACE = "/run/station/user-namespace"

_CLONE_NEWNS = 0x00020000
_CLONE_NEWUSER = 0x10000000

# It has only the station's network, and no reason to contact anything else.
FLAGS = [
    "--no-sandbox",
    "--disable-gpu",
    "--disable-quic",
    "--no-first-run",
    "--disable-background-networking",
    "--disable-component-update",
    "--disable-sync",
    "--disable-extensions",
    "--noerrdialogs",
    "--hide-scrollbars",
]


def say(text: str) -> None:
    print(f"qt-webkit-kiosk: {text}", file=sys.stderr, flush=True)


def printable(text: str) -> str:
    """Text from outside, made safe for a terminal or a log."""
    return "".join(c if " " <= c <= "~" else "?" for c in text[:100])


def page_of(address: str) -> str:
    if re.match("https?://.", address):
        return address
    say(f"not a web address: {printable(address)}")
    # The service appends the rotation to any address.
    rotation = re.search(r"\?rotation=[0-9]{1,3}\Z", address)
    return STATION_PAGE + (rotation[0] if rotation else "")


def proxy_flags(settings: str | None) -> list[str]:
    if settings is None:
        return []
    parser = configparser.ConfigParser()
    parser.read(settings)
    host = parser.get("proxy", "host", fallback="10.87.33.1")
    port = parser.get("proxy", "port", fallback="3128")
    return [f"--proxy-server={host}:{port}"]


def page_arguments(page: str, display: str | None) -> list[str]:
    """A plain window of the screen's size, or all of a virtual screen."""
    if display:
        return [f"--window-size={SIZE[0]},{SIZE[1]}", f"--app={page}"]
    return ["--headless", "--kiosk", f"--screen-info={{{SIZE[0]}x{SIZE[1]}}}", "--", page]


def read_command_line(arguments: list[str]) -> dict[str, str]:
    """A value may begin with anything, even a dash. The last one wins."""
    try:
        return dict(getopt.getopt(arguments, "c:u:")[0])
    except getopt.GetoptError:
        say("usage: qt-webkit-kiosk [-c SETTINGS] -u ADDRESS")
        return {}


def enter_own_memory() -> None:
    """A private /dev/shm. The service may not mount anything, but root of the station's user
    namespace may, in a mount namespace that belongs to it."""
    libc = ctypes.CDLL(None, use_errno=True)
    options = f"size={PLACE_SIZE},mode=700".encode()
    users = os.open(USER_NAMESPACE, os.O_RDONLY)
    is_entered = libc.setns(users, _CLONE_NEWUSER) == 0 and libc.unshare(_CLONE_NEWNS) == 0
    os.close(users)
    if not is_entered or libc.mount(b"browser", PLACE.encode(), b"tmpfs", 0, options) != 0:
        say(f"the browser shares {PLACE}: {os.strerror(ctypes.get_errno())}")


def main() -> None:
    options = read_command_line(sys.argv[1:])
    page = page_of(options.get("-u", ""))
    enter_own_memory()
    log = os.open(LOG, os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o644)
    os.dup2(log, 1)
    os.dup2(log, 2)
    os.environ["TMPDIR"] = PLACE
    if "FAKETIME" in os.environ:
        del os.environ["LD_PRELOAD"]  # the service's time runs faster; the browser's does not
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # Python ignores it, and exec would pass that on
    command = [
        BROWSER,
        "--",  # for Debian's launcher, which would swallow the one before the page
        *FLAGS,
        *proxy_flags(options.get("-c")),
        f"--remote-debugging-port={DEBUGGING_PORT}",
        f"--user-data-dir={tempfile.mkdtemp(prefix='browser-', dir=PLACE)}",
        *page_arguments(page, os.environ.get("DISPLAY")),
    ]
    os.execv(command[0], command)


if __name__ == "__main__":
    main()
