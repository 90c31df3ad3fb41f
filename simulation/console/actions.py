"""What a request can do to the station: one action for each path."""

from collections.abc import Callable, Mapping
from dataclasses import dataclass
from typing import Any

from simulation.console.errors import BadRequest
from simulation.console.fields import Field, read_fields
from simulation.console.incidents import INCIDENTS, find_incident
from simulation.console.messages import read_message
from simulation.handles import Handles
from simulation.unit_handles import TOOLS

_DECADE = 10 * 366 * 86400  # seconds


@dataclass(frozen=True)
class Action:
    """POST to its path, with its fields."""

    path: str
    words: str
    fields: tuple[Field, ...]
    act: Callable[[Handles, dict[str, Any]], None]
    reads_all: bool = False  # the fields depend on the request: act checks them

    def run(self, handles: Handles, body: Mapping[str, Any]) -> None:
        self.act(handles, dict(body) if self.reads_all else read_fields(self.fields, body))


def _choice(name: str, words: str, *choices: str) -> Field:
    return Field(name, "choice", words, choices=choices)


def _on(words: str) -> tuple[Field, ...]:
    return (Field("on", "flag", words, True),)


def _power(handles: Handles, values: dict[str, Any]) -> None:
    tv = handles.tv
    {"on": tv.turn_on, "off": tv.turn_off, "toggle": tv.press_power}[values["power"]]()


def _cable(handles: Handles, values: dict[str, Any]) -> None:
    {"out": handles.tv.pull_cable, "in": handles.tv.plug_cable}[values["state"]]()


def _send(handles: Handles, body: dict[str, Any]) -> None:
    message = read_message(body)
    handles.gateway.send(message.content, message.words, message.is_datagram)


def _incident(handles: Handles, values: dict[str, Any]) -> None:
    incident = find_incident(values["name"])
    assert incident is not None
    for message in incident.messages:
        handles.gateway.send(message, f"{incident.words} ({len(message)} bytes)")


def _dhcp(handles: Handles, values: dict[str, Any]) -> None:
    (handles.unit.start_dhcp if values["on"] else handles.unit.stop_dhcp)()


def _address(handles: Handles, values: dict[str, Any]) -> None:
    unit = handles.unit
    {"lost": unit.lose_address, "back": unit.restore_address}[values["state"]]()


def _browser(handles: Handles, values: dict[str, Any]) -> None:
    unit = handles.unit
    states = {"killed": unit.kill_browser, "hung": unit.hang_browser, "back": unit.restore_browser}
    states[values["state"]]()


def _web_server(handles: Handles, values: dict[str, Any]) -> None:
    unit = handles.unit
    {"killed": unit.kill_web_server, "back": unit.restore_web_server}[values["state"]]()


def _tool(handles: Handles, values: dict[str, Any]) -> None:
    if values["state"] == "fails":
        handles.unit.fail(values["tool"], values["status"])
    elif values["state"] == "slow":
        handles.unit.slow(values["tool"], values["seconds"])
    else:
        handles.unit.restore(values["tool"])


def _memory(handles: Handles, values: dict[str, Any]) -> None:
    unit = handles.unit
    {"full": unit.fill_memory, "free": unit.free_memory}[values["state"]]()


def _clock(handles: Handles, values: dict[str, Any]) -> None:
    if values["offset"]:
        handles.unit.set_clock(values["offset"])
    else:
        handles.unit.restore_clock()


ACTIONS = (
    Action(
        "/tv/power",
        "the remote control's power button",
        (_choice("power", "what it does", "on", "off", "toggle"),),
        _power,
    ),
    Action(
        "/tv/input",
        "the remote control's input buttons",
        (Field("input", "text", "a physical address, like 3.0.0.0"),),
        lambda handles, values: handles.tv.choose_input(values["input"]),
    ),
    Action(
        "/tv/deaf",
        "the television ignores the bus",
        _on("false: it listens again"),
        lambda handles, values: handles.tv.be_deaf(values["on"]),
    ),
    Action(
        "/tv/slow",
        "the television answers late",
        (
            Field("seconds", "seconds", "until it answers; 0: at once again", 3, most=600),
            Field("wake", "seconds", "until it is awake", None, most=600),
        ),
        lambda handles, values: handles.tv.be_slow(values["seconds"], values["wake"]),
    ),
    Action(
        "/tv/stubborn",
        "the television stays in standby, whatever the unit sends",
        _on("false: it wakes up again"),
        lambda handles, values: handles.tv.be_stubborn(values["on"]),
    ),
    Action(
        "/tv/cable",
        "the cable between unit and television",
        (_choice("state", "where it is", "out", "in"),),
        _cable,
    ),
    Action("/gateway/send", "sends the unit a message", (), _send, reads_all=True),
    Action(
        "/gateway/incident",
        "sends the unit the messages of an incident",
        (_choice("name", "which", *(incident.name for incident in INCIDENTS)),),
        _incident,
    ),
    Action(
        "/unit/dhcp",
        "the network leases addresses",
        _on("false: it leases none"),
        _dhcp,
    ),
    Action(
        "/unit/address",
        "the unit's address",
        (_choice("state", "whether it has it", "lost", "back"),),
        _address,
    ),
    Action(
        "/unit/browser",
        "the kiosk browser",
        (_choice("state", "how it is", "killed", "hung", "back"),),
        _browser,
    ),
    Action(
        "/unit/web-server",
        "the web server that has the station page",
        (_choice("state", "how it is", "killed", "back"),),
        _web_server,
    ),
    Action(
        "/unit/tool",
        "one of the board's tools",
        (
            _choice("tool", "which", *TOOLS),
            _choice("state", "how it is", "fails", "slow", "back"),
            Field("status", "number", "of a tool that fails", 1, most=255),
            Field("seconds", "seconds", "of a slow tool", 5, most=600),
        ),
        _tool,
    ),
    Action(
        "/unit/memory",
        "/dev/shm, where the alert document is",
        (_choice("state", "whether there is room", "full", "free"),),
        _memory,
    ),
    Action(
        "/unit/clock",
        "the unit's clock",
        (
            Field(
                *("offset", "seconds", "ahead of this machine's; 0: right again", 0),
                least=-_DECADE,
                most=_DECADE,
            ),
        ),
        _clock,
    ),
    Action(
        "/unit/reset",
        "everything in the unit ends and starts anew, as when its watchdog resets it",
        (),
        lambda handles, _: handles.unit.reset(),
    ),
    Action(
        "/unit/mark",
        "the document's changes are those since now",
        (),
        lambda handles, _: handles.view.mark_document(),
    ),
    Action(
        "/undo",
        "television and unit behave again",
        (),
        lambda handles, _: handles.undo_all(),
    ),
)


def find_action(path: str) -> Action:
    for action in ACTIONS:
        if action.path == path:
            return action
    raise BadRequest(f"There is no {path} to post to: GET /actions lists what there is.", 404)
