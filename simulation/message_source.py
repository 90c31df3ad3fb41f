"""A message as Python source that builds it again with simulation.gateway's functions."""

from collections.abc import Callable, Iterator

from simulation import gateway
from simulation.gateway import Unit


def source_of(message: bytes) -> str:
    """Its plain bytes where no function builds exactly these."""
    for name, arguments in _readings(message):
        function: Callable[..., bytes] = getattr(gateway, name)
        if function(*arguments[0], **arguments[1]) == message:
            return f"gateway.{name}({_rendered(*arguments)})"
    return repr(message)


Arguments = tuple[tuple[object, ...], dict[str, object]]


def _readings(message: bytes) -> Iterator[tuple[str, Arguments]]:
    code, rest = message[:1], message[1:]
    for name in ("roll_call", "reboot", "stop_turnout"):
        yield name, ((), {})
    if code == b"\x03" and len(message) >= 6:
        yield from _display_alerts(message)
    if code == b"\x33" and len(message) >= 539:
        yield "detail_alert", _detail_alert(message)
    if code == b"\x31" and len(rest) == 1:
        yield "hdtv_settings", ((rest[0],), {})
    if code == b"\x26" and len(message) >= 6:
        yield "hdtv_alert", ((_text(message[1:-5]), _number(message, -5)), {})
    for name in ("set_date", "set_page_address", "set_map_address"):
        yield name, ((_text(rest),), {})


def _display_alerts(message: bytes) -> Iterator[tuple[str, Arguments]]:
    end = 6 + _number(message, 4)
    flag: dict[str, object] = {} if message[1] == 1 else {"flag": message[1]}
    yield "display_alert", ((_text(message[6:end]),), flag)
    if len(message) == end + 2:
        turnout: dict[str, object] = {"turnout": _number(message, end)}
        yield "display_alert", ((_text(message[6:end]),), {**flag, **turnout})


def _detail_alert(message: bytes) -> Arguments:
    units = {
        slot: Unit(_text(message[20 + 32 * slot : 52 + 32 * slot].rstrip(b"\0")), message[4 + slot])
        for slot in range(16)
        if message[4 + slot]
    }
    values: dict[str, object] = {
        "units": units,
        "flag": message[1],
        "turnout_end": _number(message, 532),
        "turnout_zero": _number(message, 534),
        "turnout_reverse": message[536],
    }
    usual = {"units": {}, "flag": 1, "turnout_end": 0, "turnout_zero": 0, "turnout_reverse": 0}
    unusual = {name: value for name, value in values.items() if value != usual[name]}
    return (_text(message[539:]),), unusual


def _number(message: bytes, place: int) -> int:
    return int.from_bytes(message[place:][:2], "big")


def _text(content: bytes) -> str | bytes:
    try:
        return content.decode()
    except UnicodeDecodeError:
        return content


def _rendered(positional: tuple[object, ...], named: dict[str, object]) -> str:
    return ", ".join(
        [*map(repr, positional), *(f"{name}={value!r}" for name, value in named.items())]
    )
