#!/usr/bin/python3 -I
"""Stands for the board's kiosk browser: Chromium, with the command line of the other one.

    qt-webkit-kiosk [-c SETTINGS] -u ADDRESS

Without a display it draws into nothing (headless). SETTINGS is an INI file whose section "proxy"
may name a host and a port. Whatever shows or drives the browser finds it at DEBUGGING_PORT.

The address may come from anybody on the network. One that is not of the web could be an option of
the browser's: it is said on standard error, and the station page is shown.
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

# In a memory of its own: nothing that a page does takes room from the alert document or its log.
PLACE = "/dev/shm"
PLACE_SIZE = "256m"
USER_NAMESPACE = "/run/station/user-namespace"

_CLONE_NEWNS = 0x00020000
_CLONE_NEWUSER = 0x10000000

# It is alone with the station's network, and has nothing to ask anybody else.
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
    """What came from outside, for a terminal or a log."""
    return "".join(c if " " <= c <= "~" else "?" for c in text[:100])


def page_of(address: str) -> str:
    if re.match("https?://.", address):
        return address
    say(f"not a web address: {printable(address)}")
    # The service appends it to whatever it was sent.
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
    """A plain window of the screen's size; or the whole of a screen that exists by its word only."""
    if display:
        return [f"--window-size={SIZE[0]},{SIZE[1]}", f"--app={page}"]
    return ["--headless", "--kiosk", f"--screen-info={{{SIZE[0]}x{SIZE[1]}}}", "--", page]


def read_command_line(arguments: list[str]) -> dict[str, str]:
    """A value is taken whole, whatever it begins with; the last one counts."""
    try:
        return dict(getopt.getopt(arguments, "c:u:")[0])
    except getopt.GetoptError:
        say("usage: qt-webkit-kiosk [-c SETTINGS] -u ADDRESS")
        return {}


def enter_own_memory() -> None:
    """A /dev/shm of the browser's own. The station's service may not mount, but the root of the user
    namespace that the station has for this may, in a mount namespace that belongs to it."""
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
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # which Python ignores, for its children too
    command = [
        BROWSER,
        "--",  # for Debian's launcher, which would take the one before the page
        *FLAGS,
        *proxy_flags(options.get("-c")),
        f"--remote-debugging-port={DEBUGGING_PORT}",
        f"--user-data-dir={tempfile.mkdtemp(prefix='browser-', dir=PLACE)}",
        *page_arguments(page, os.environ.get("DISPLAY")),
    ]
    os.execv(command[0], command)


if __name__ == "__main__":
    main()
