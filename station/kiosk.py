#!/usr/bin/python3 -I
"""Stands for the board's kiosk browser: Chromium, with the command line of the other one.

    qt-webkit-kiosk [-c SETTINGS] -u ADDRESS

Without a display it draws into nothing (headless). SETTINGS is an INI file whose section "proxy"
may name a host and a port. Whatever shows or drives the browser finds it at DEBUGGING_PORT.
"""

import argparse
import configparser
import os
import tempfile

BROWSER = "/usr/bin/chromium"
DEBUGGING_PORT = 9222
LOG = "/tmp/browser.log"
SIZE = (1280, 720)

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


def proxy_flags(settings: str | None) -> list[str]:
    if settings is None:
        return []
    parser = configparser.ConfigParser()
    parser.read(settings)
    host = parser.get("proxy", "host", fallback="10.87.33.1")
    port = parser.get("proxy", "port", fallback="3128")
    return [f"--proxy-server={host}:{port}"]


def page_arguments(address: str, display: str | None) -> list[str]:
    """A plain window of the screen's size; or the whole of a screen that exists by its word only."""
    if display:
        return [f"--window-size={SIZE[0]},{SIZE[1]}", f"--app={address}"]
    return ["--headless", "--kiosk", f"--screen-info={{{SIZE[0]}x{SIZE[1]}}}", address]


def main() -> None:
    parser = argparse.ArgumentParser()
    parser.add_argument("-u", dest="address", required=True)
    parser.add_argument("-c", dest="settings")
    arguments = parser.parse_args()
    log = os.open(LOG, os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o644)
    os.dup2(log, 1)
    os.dup2(log, 2)
    command = [
        BROWSER,
        *FLAGS,
        *proxy_flags(arguments.settings),
        f"--remote-debugging-port={DEBUGGING_PORT}",
        f"--user-data-dir={tempfile.mkdtemp(prefix='browser-')}",
        *page_arguments(arguments.address, os.environ.get("DISPLAY")),
    ]
    os.execv(command[0], command)


if __name__ == "__main__":
    main()
