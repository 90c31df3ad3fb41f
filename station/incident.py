"""A short incident as a gateway reports it, with what has to be seen at each step."""

from collections.abc import Callable
from dataclasses import dataclass
from typing import Any

from station import gateway
from station.gateway import Unit
from station.station import GATEWAY_FILE, UNIT_ADDRESS, Station

Document = dict[str, Any]

_UNITS = {0: Unit("E1", 2), 1: Unit("L3", 5)}
_TEXT = "STRUCTURE FIRE\n1200 MAIN ST, CROSS OAK AVE"
_UPDATE = _TEXT + "\nSMOKE SHOWING, 2ND FLOOR"
_MAP = "http://10.87.33.20/map?incident=1042"


@dataclass(frozen=True)
class Step:
    """One message, in words and in bytes, and whether its effect can be seen."""

    words: str
    message: bytes | None
    is_seen: Callable[[Station, Document], bool]


def _shows_units(document: Document) -> bool:
    return document.get("units") == [{"unit": "E1", "color": "2"}, {"unit": "L3", "color": "5"}]


def _is_idle(station: Station, document: Document) -> bool:
    browser = station.calls("qt-webkit-kiosk")
    return document.get("alert_area") == UNIT_ADDRESS and len(browser) == 1


def _shows_alert(station: Station, document: Document) -> bool:
    return (
        document.get("alert_area") == "STRUCTURE FIRE\n1200 MAIN ST, CROSS OAK AVE"
        and document["alert_type"] == "hdtv_alert"
        and document["show_turnout_timer"] == "1"
        and document["turnout_end"] == "120"
        and int(document["alert_expiration"]) == int(document["alert_time"]) + 120
        and _shows_units(document)
        and gateway.GATEWAY in station.path(GATEWAY_FILE).read_text()
    )


def _shows_map(_: Station, document: Document) -> bool:
    return document.get("map_url") == _MAP and _shows_units(document)


def _shows_update(_: Station, document: Document) -> bool:
    return "SMOKE SHOWING" in document.get("alert_area", "") and document["map_url"] == ""


def _shows_stopped_timer(_: Station, document: Document) -> bool:
    return document.get("alert_type") == "stop_turnout"


def _shows_end(_: Station, document: Document) -> bool:
    return (
        document.get("alert_type") == "hdtv_alert"
        and document["alert_time"] == "0"
        and document["alert_area"] == ""
        and document["units"] == []
    )


INCIDENT = [
    Step("the station is idle and shows its address", None, _is_idle),
    Step(
        "detail alert for E1 and L3, turnout 120 s",
        gateway.detail_alert(_TEXT, _UNITS, turnout_end=120, turnout_zero=60),
        _shows_alert,
    ),
    Step("map address", gateway.set_map_address(_MAP), _shows_map),
    Step(
        "the same alert with more text",
        gateway.detail_alert(_UPDATE, _UNITS, turnout_end=120, turnout_zero=60),
        _shows_update,
    ),
    Step("stop turnout", gateway.stop_turnout(), _shows_stopped_timer),
    Step("end of the alert: flag on, empty text", gateway.detail_alert(""), _shows_end),
]
