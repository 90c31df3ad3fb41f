"""The console's commands in a second terminal: ./scripts/station tv off.

They ask the running station's console over HTTP, as its page does. Standard library only.
"""

import argparse
import json
import os
import re
import sys
import urllib.error
import urllib.request
from collections.abc import Callable
from pathlib import Path
from typing import Any

KEY = "run/station/console"  # on the gateway's side; as in server.py

_TIMEOUT = 90.0  # longer than anything that a person does there takes

# A path of the console, and what to post there.
Request = tuple[str, dict[str, Any]]
Reader = Callable[[argparse.Namespace], Request]

# The commands of one word and one state, with the states.
_SIMPLE = {
    "dhcp": ("the network leases addresses", ("on", "off")),
    "address": ("the unit's address", ("lost", "back")),
    "browser": ("the kiosk browser", ("killed", "hung", "back")),
    "web-server": ("the web server that has the station page", ("killed", "back")),
    "memory": ("/dev/shm, where the alert document is", ("full", "free")),
}

_HABITS = "deaf, stubborn: or with off to end it; slow: the seconds, 0 to end it"


class NoConsole(Exception):
    """The text says why."""


def add_commands(commands: Any) -> None:
    """Adds them to the subcommands of an argparse parser."""

    def add(name: str, words: str, read: Reader | None = None) -> argparse.ArgumentParser:
        command: argparse.ArgumentParser = commands.add_parser(name, help=words, description=words)
        command.set_defaults(read=read)
        return command

    tv = add("tv", "the television: on, off, power, input 3.0.0.0, deaf, slow, …", _read_tv)
    tv.add_argument("do", choices=[*_TELEVISION], metavar="|".join(_TELEVISION))
    tv.add_argument("value", nargs="?", help="input: its address; cable: out or in; " + _HABITS)
    for name, (words, states) in _SIMPLE.items():
        command = add(name, f"{words}: {', '.join(states)}", _read_simple)
        command.add_argument("state", choices=states)
    fail = add("fail", "a tool of the board fails: fail wget", _read_fail)
    fail.add_argument("tool")
    fail.add_argument("status", nargs="?", type=int, default=1)
    slow = add("slow", "a tool of the board takes its time: slow wget 5", _read_slow)
    slow.add_argument("tool")
    slow.add_argument("seconds", nargs="?", type=float, default=5.0)
    clock = add("clock", "the unit's clock: seconds ahead, like 3600; 0: right", _read_clock)
    clock.add_argument("offset", type=float)
    mend = add("mend", "a tool of the board works again", _read_mend)
    mend.add_argument("tool")
    send = add("send", 'sends a message: send display-alert text="FIRE" turnout=60', _read_send)
    send.add_argument("message")
    send.add_argument("fields", nargs="*", metavar="FIELD=VALUE", help="units=E1:2,L3:5")
    incident = add(
        "incident", "sends the messages of an incident: fire, map, end, …", _read_incident
    )
    incident.add_argument("incident")
    add("reset", "everything in the unit starts anew", lambda _: ("/unit/reset", {}))
    add("mark", "the document's changes are those since now", lambda _: ("/unit/mark", {}))
    add("undo", "television and unit behave again", lambda _: ("/undo", {}))
    add("state", "prints the whole state as JSON")
    add("events", "prints all that has happened so far as JSON lines")


def run(arguments: argparse.Namespace, gateway_pid: int) -> int:
    """gateway_pid is the pid 1 of the running station's gateway side."""
    try:
        address, header = find_console(gateway_pid)
        if arguments.command in ("state", "events"):
            path = "state" if arguments.command == "state" else "events.jsonl"
            answer = ask(address + path, header)
            _write(json.dumps(json.loads(answer), indent=2) + "\n" if path == "state" else answer)
        else:
            path, body = arguments.read(arguments)
            ask(address + path.lstrip("/"), header, body)
    except NoConsole as error:
        print(error, file=sys.stderr)
        return 1
    return 0


def _write(text: str) -> None:
    try:
        print(text, end="", flush=True)
    except BrokenPipeError:
        # Whoever reads it has seen enough. What is left may not fail again at exit.
        nobody = os.open(os.devnull, os.O_WRONLY)
        os.dup2(nobody, sys.stdout.fileno())
        os.close(nobody)


def find_console(gateway_pid: int) -> tuple[str, tuple[str, str]]:
    """Its address, and the header that it wants."""
    try:
        text = Path(f"/proc/{gateway_pid}/root/{KEY}").read_text(encoding="ascii")
    except FileNotFoundError:
        raise NoConsole(
            "The station runs without a console: start one with ./scripts/station --console."
        ) from None
    except PermissionError:
        raise NoConsole("Only root may operate the station.") from None
    found = re.fullmatch(r'# (http://\S+)\nheader = "(\S+): (\S+)"\n', text)
    if not found:
        raise NoConsole("The station's console is just starting: try again.")
    return found[1], (found[2], found[3])


def ask(address: str, header: tuple[str, str], body: dict[str, Any] | None = None) -> str:
    headers = {header[0]: header[1], "Content-Type": "application/json"}
    content = None if body is None else json.dumps(body).encode()
    request = urllib.request.Request(address, content, headers)
    # Whatever proxy this machine uses, this is its own loopback.
    opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
    try:
        with opener.open(request, timeout=_TIMEOUT) as answer:
            return str(answer.read().decode())
    except urllib.error.HTTPError as error:
        raise NoConsole(_reason(error)) from None
    except OSError as error:
        raise NoConsole(f"The console does not answer: {error}.") from None


def _reason(error: urllib.error.HTTPError) -> str:
    try:
        return str(json.loads(error.read())["error"])
    except (ValueError, KeyError, OSError):
        return str(error)


def _value(arguments: argparse.Namespace, words: str) -> str:
    if arguments.value is None:
        raise NoConsole(f"tv {arguments.do}: {words}?")
    return str(arguments.value)


def _habit(arguments: argparse.Namespace) -> dict[str, Any]:
    if arguments.value not in (None, "on", "off"):
        raise NoConsole(f"tv {arguments.do}: on or off?")
    return {"on": arguments.value != "off"}


def _slow(arguments: argparse.Namespace) -> dict[str, Any]:
    text = arguments.value or "3"
    try:
        return {"seconds": 0.0 if text == "off" else float(text)}
    except ValueError:
        raise NoConsole("tv slow: how many seconds?") from None


# What comes after "tv": the path, and what to post there.
_TELEVISION: dict[str, tuple[str, Callable[[argparse.Namespace], dict[str, Any]]]] = {
    "on": ("/tv/power", lambda _: {"power": "on"}),
    "off": ("/tv/power", lambda _: {"power": "off"}),
    "power": ("/tv/power", lambda _: {"power": "toggle"}),
    "input": ("/tv/input", lambda arguments: {"input": _value(arguments, "which one")}),
    "deaf": ("/tv/deaf", _habit),
    "slow": ("/tv/slow", _slow),
    "stubborn": ("/tv/stubborn", _habit),
    "cable": ("/tv/cable", lambda arguments: {"state": _value(arguments, "out or in")}),
}


def _read_tv(arguments: argparse.Namespace) -> Request:
    path, read = _TELEVISION[arguments.do]
    if arguments.value is not None and arguments.do in ("on", "off", "power"):
        raise NoConsole(f'tv {arguments.do}: what is "{arguments.value}"?')
    return path, read(arguments)


def _read_simple(arguments: argparse.Namespace) -> Request:
    if arguments.command == "dhcp":
        return "/unit/dhcp", {"on": arguments.state == "on"}
    return f"/unit/{arguments.command}", {"state": arguments.state}


def _read_fail(arguments: argparse.Namespace) -> Request:
    return "/unit/tool", {"tool": arguments.tool, "state": "fails", "status": arguments.status}


def _read_slow(arguments: argparse.Namespace) -> Request:
    return "/unit/tool", {"tool": arguments.tool, "state": "slow", "seconds": arguments.seconds}


def _read_clock(arguments: argparse.Namespace) -> Request:
    return "/unit/clock", {"offset": arguments.offset}


def _read_mend(arguments: argparse.Namespace) -> Request:
    return "/unit/tool", {"tool": arguments.tool, "state": "back"}


def _read_incident(arguments: argparse.Namespace) -> Request:
    return "/gateway/incident", {"name": arguments.incident}


def _read_send(arguments: argparse.Namespace) -> Request:
    body: dict[str, Any] = {"message": arguments.message}
    for field in arguments.fields:
        name, sign, value = field.partition("=")
        if not sign:
            raise NoConsole(f'"{field}" is not of the form FIELD=VALUE.')
        body[name] = _read_units(value) if name == "units" else _read_field(name, value)
    return "/gateway/send", body


# The fields of a message that are numbers; docs/protocol.md.
_NUMBERS = ("flag", "turnout", "turnout_end", "turnout_zero", "turnout_reverse", "quarter_turns")


def _read_field(name: str, value: str) -> Any:
    return int(value) if name in _NUMBERS and value.isdecimal() else value


def _read_units(text: str) -> list[dict[str, Any]]:
    """E1:2,L3:5"""
    units = [unit.rpartition(":") for unit in text.split(",") if unit]
    if not all(name and color.isdecimal() for name, _, color in units):
        raise NoConsole("units are written as NAME:COLOR,NAME:COLOR, like E1:2,L3:5.")
    return [{"name": name, "color": int(color)} for name, _, color in units]
