"""The gateway's messages as forms: the fields of docs/protocol.md."""

from collections.abc import Callable, Mapping
from dataclasses import dataclass
from typing import Any

from simulation import gateway
from simulation.console.errors import BadRequest
from simulation.console.fields import Field, read_fields
from simulation.gateway import Unit

LONGEST = 4095  # bytes that a unit reads of a message
SLOTS = 16
_LONGEST_NAME = 31

_FLAG = Field("flag", "number", "alert flag, 1 = on", 1, most=255)
_TEXT = Field("text", "text", "text")


@dataclass(frozen=True)
class Form:
    """A message that the gateway can send."""

    name: str
    words: str
    fields: tuple[Field, ...]
    build: Callable[[dict[str, Any]], bytes]
    channels: tuple[str, ...] = ("tcp", "udp")  # those that it works on; the first is the usual one


def _display_alert(values: dict[str, Any]) -> bytes:
    return gateway.display_alert(values["text"], values["flag"], values["turnout"])


def _detail_alert(values: dict[str, Any]) -> bytes:
    units = values.pop("units")
    if len(units) > SLOTS:
        raise BadRequest(f"A detail alert has room for {SLOTS} units.")
    for unit in units:
        if len(unit["name"].encode()) > _LONGEST_NAME:
            raise BadRequest(
                f'The unit\'s name "{unit["name"]}" is over {_LONGEST_NAME} bytes long.'
            )
    slots = {slot: Unit(unit["name"], unit["color"]) for slot, unit in enumerate(units)}
    return gateway.detail_alert(units=slots, **values)


def _control(values: dict[str, Any]) -> bytes:
    """Not with a JSON writer: the unit knows no escapes (docs/protocol.md)."""
    given = {key: value for key, value in values.items() if value}
    for key, value in given.items():
        if '"' in value:
            raise BadRequest(f'The field "{key}" cannot hold a quotation mark.')
    return ("{" + ",".join(f'"{key}":"{value}"' for key, value in given.items()) + "}").encode()


def _raw(values: dict[str, Any]) -> bytes:
    try:
        return bytes.fromhex(values["hex"].replace(":", " ").replace(",", " "))
    except ValueError:
        raise BadRequest("The bytes have to be hexadecimal: 03 01 00 00.") from None


_CONTROL_FIELDS = {
    "play_audio": "address of a clip that ends in .wav or .raw",
    "device": "headphones, or anything else",
    "volume": "percent",
    **{"channels": "of a .raw clip", "rate": "of a .raw clip", "sample_format": "of a .raw clip"},
    "comm_gw": "the gateway's address from now on",
}

FORMS = (
    Form("roll-call", "asks the unit who it is", (), lambda _: gateway.roll_call(), ("udp",)),
    Form(
        "detail-alert",
        "an alert with units and turnout values; an empty text ends it",
        (
            _TEXT,
            Field("units", "units", "units and their colors", []),
            _FLAG,
            Field("turnout_end", "number", "turnout end, s", 120),
            Field("turnout_zero", "number", "turnout zero, s", 60),
            Field("turnout_reverse", "number", "reverse, 1 = up", 0, most=255),
        ),
        _detail_alert,
    ),
    Form(
        "display-alert",
        "a text-only alert; an empty text ends it",
        (_TEXT, _FLAG, Field("turnout", "number", "turnout timer, s", None)),
        _display_alert,
    ),
    Form(
        "set-map-address",
        "adds a map to the active alert",
        (Field("address", "text", "address of the map"),),
        lambda values: gateway.set_map_address(values["address"]),
        ("tcp",),
    ),
    Form(
        "stop-turnout",
        "stops the turnout timer; the alert stays",
        (),
        lambda _: gateway.stop_turnout(),
        ("tcp",),
    ),
    Form(
        "hdtv-alert",
        "sets the turnout timer, and shows nothing",
        (Field("text", "text", "text", ""), Field("turnout", "number", "turnout timer, s")),
        lambda values: gateway.hdtv_alert(values["text"], values["turnout"]),
    ),
    Form(
        "set-date",
        "sets the unit's clock",
        (Field("text", "text", "the date, as date -s takes it"),),
        lambda values: gateway.set_date(values["text"]),
    ),
    Form(
        "hdtv-settings",
        "turns the page",
        (Field("quarter_turns", "number", "quarter turns, 0 to 3", most=255),),
        lambda values: gateway.hdtv_settings(values["quarter_turns"]),
    ),
    Form(
        "set-page-address",
        "shows another page; an empty address stops the browser",
        (Field("address", "text", "address of the page"),),
        lambda values: gateway.set_page_address(values["address"]),
    ),
    Form(
        "json-control",
        "plays a clip, names the gateway",
        tuple(Field(name, "text", words, "") for name, words in _CONTROL_FIELDS.items()),
        _control,
    ),
    Form("reboot", "restarts the board", (), lambda _: gateway.reboot()),
    Form(
        "raw",
        "any bytes",
        (Field("hex", "text", "the bytes in hexadecimal"),),
        _raw,
    ),
)


@dataclass(frozen=True)
class Message:
    content: bytes
    channel: str  # "tcp" or "udp"
    words: str

    @property
    def is_datagram(self) -> bool:
        return self.channel == "udp"


def read_message(body: Mapping[str, Any]) -> Message:
    """{"message": NAME, "channel": "tcp" or "udp", and the fields of that message}"""
    rest = dict(body)
    name, channel = rest.pop("message", None), rest.pop("channel", None)
    form = next((form for form in FORMS if form.name == name), None)
    if form is None:
        known = ", ".join(form.name for form in FORMS)
        raise BadRequest(f'The field "message" has to be one of {known}.')
    if channel not in (None, "tcp", "udp"):
        raise BadRequest('The field "channel" has to be "tcp" or "udp".')
    values = read_fields(form.fields, rest)
    try:
        content = form.build(values)
    except UnicodeEncodeError:
        raise BadRequest("A text holds half a character.") from None
    if len(content) > LONGEST:
        raise BadRequest(f"The message has {len(content)} bytes, and a unit reads {LONGEST}.")
    words = gateway.message_name(content) if name == "raw" else form.name.replace("-", " ")
    return Message(content, channel or form.channels[0], words)
