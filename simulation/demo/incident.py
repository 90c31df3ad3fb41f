"""A short incident as a gateway reports it, and what each step must lead to."""

from collections.abc import Callable
from dataclasses import dataclass
from typing import Any

from simulation import gateway
from simulation.gateway import RecordListener, Unit
from simulation.station import GATEWAY_FILE, LOUDSPEAKER, UNIT_ADDRESS, Station
from simulation.television import IN_STANDBY, ON, Television
from simulation.television import UNIT_ADDRESS as UNIT_INPUT

Document = dict[str, Any]

PAGE = "http://127.0.0.1/station_web/"
OTHER_INPUT = 0x3000
CLIP = "http://10.87.33.20/clip.wav"
CLIP_SIZE = 16000  # bytes of sound

_UNITS = {0: Unit("E1", 2), 1: Unit("L3", 5)}
_TEXT = "STRUCTURE FIRE\n1200 MAIN ST, CROSS OAK AVE"
_UPDATE = _TEXT + "\nSMOKE SHOWING, 2ND FLOOR"
_DATE = "2026-03-05 07:04:09"
_MAP = "http://10.87.33.20/map.svg?incident=1042"
_NOTICE = "BRUSH FIRE\nALL CREWS TO THE YARD"


@dataclass(frozen=True)
class Scene:
    """Where the incident is played."""

    station: Station
    television: Television
    records: RecordListener

    def shows(self, power: int, tv_input: int) -> bool:
        return (self.television.power, self.television.input) == (power, tv_input)


@dataclass(frozen=True)
class Step:
    """What happens, in words and as a message or action, and a check for its effect."""

    words: str
    is_seen: Callable[[Scene, Document], bool]
    message: bytes | None = None
    action: Callable[[Scene], None] | None = None
    is_datagram: bool = False


def _shows_units(document: Document) -> bool:
    return document.get("units") == [{"unit": "E1", "color": "2"}, {"unit": "L3", "color": "5"}]


def _is_idle(scene: Scene, document: Document) -> bool:
    browser = scene.station.calls("qt-webkit-kiosk")
    return document.get("alert_area") == UNIT_ADDRESS and len(browser) == 1


def _choose_another_input(scene: Scene) -> None:
    scene.television.switch_input(OTHER_INPUT)


def _is_told_of_the_input(scene: Scene, _: Document) -> bool:
    return scene.shows(IN_STANDBY, OTHER_INPUT)


def _has_received(*codes: int) -> Callable[[Scene, Document], bool]:
    """Checks that these are the last records that the gateway received."""

    def is_seen(scene: Scene, _: Document) -> bool:
        return [record[0] for record in scene.records.records()][-len(codes) :] == list(codes)

    return is_seen


def _has_set_the_date(scene: Scene, _: Document) -> bool:
    calls = scene.station.calls("date")
    return [call.argv for call in calls] == [["date", "-s", _DATE]]


def _shows_page(address: str) -> Callable[[Scene, Document], bool]:
    def is_seen(scene: Scene, _: Document) -> bool:
        return scene.station.calls("qt-webkit-kiosk")[-1].argv[-1] == address

    return is_seen


def _shows_alert(scene: Scene, document: Document) -> bool:
    return (
        document.get("alert_area") == _TEXT
        and document["alert_type"] == "hdtv_alert"
        and document["show_turnout_timer"] == "1"
        and document["turnout_end"] == "120"
        and int(document["alert_expiration"]) == int(document["alert_time"]) + 120
        and _shows_units(document)
        and gateway.GATEWAY in scene.station.path(GATEWAY_FILE).read_text()
        and scene.shows(ON, UNIT_INPUT)
    )


def _shows_map(_: Scene, document: Document) -> bool:
    return document.get("map_url") == _MAP and _shows_units(document)


def _shows_update(_: Scene, document: Document) -> bool:
    return "SMOKE SHOWING" in document.get("alert_area", "") and document["map_url"] == ""


def _shows_stopped_timer(_: Scene, document: Document) -> bool:
    return document.get("alert_type") == "stop_turnout"


def _shows_end(scene: Scene, document: Document) -> bool:
    return (
        document.get("alert_type") == "hdtv_alert"
        and document["alert_time"] == "0"
        and document["alert_area"] == ""
        and document["units"] == []
        and scene.shows(IN_STANDBY, OTHER_INPUT)
    )


def _shows_notice(scene: Scene, document: Document) -> bool:
    return document.get("alert_area") == _NOTICE and scene.shows(ON, UNIT_INPUT)


def _plays_the_clip(scene: Scene, _: Document) -> bool:
    loudspeaker = scene.station.path(LOUDSPEAKER)
    return loudspeaker.exists() and len(loudspeaker.read_bytes()) > CLIP_SIZE


INCIDENT = [
    Step("the station is idle and shows its address", _is_idle),
    Step("roll call", _has_received(2, 2, 39, 47), gateway.roll_call(), is_datagram=True),
    Step(f"the date, {_DATE}", _has_set_the_date, gateway.set_date(_DATE)),
    Step("settings: a quarter turn", _shows_page(f"{PAGE}?rotation=90"), gateway.hdtv_settings(1)),
    Step("roll call", _has_received(39, 47, 2), gateway.roll_call(), is_datagram=True),
    Step("settings: upright again", _shows_page(PAGE), gateway.hdtv_settings(0)),
    Step("a clip to play", _plays_the_clip, gateway.play_clip(CLIP)),
    Step(
        "the television's input is set to 3.0.0.0 while it sleeps",
        _is_told_of_the_input,
        action=_choose_another_input,
    ),
    Step(
        "detail alert for E1 and L3, turnout 120 s",
        _shows_alert,
        gateway.detail_alert(_TEXT, _UNITS, turnout_end=120, turnout_zero=60),
    ),
    Step("map address", _shows_map, gateway.set_map_address(_MAP)),
    Step(
        "the same alert with more text",
        _shows_update,
        gateway.detail_alert(_UPDATE, _UNITS, turnout_end=120, turnout_zero=60),
    ),
    Step("stop turnout", _shows_stopped_timer, gateway.stop_turnout()),
    Step("end of the alert: flag on, empty text", _shows_end, gateway.detail_alert("")),
    Step(
        "somebody switches the television on and watches input 3.0.0.0",
        lambda scene, _: scene.shows(ON, OTHER_INPUT),
        action=lambda scene: scene.television.switch_on(),
    ),
    Step("display alert, turnout 90 s", _shows_notice, gateway.display_alert(_NOTICE, turnout=90)),
    Step(
        "end of the alert: the television goes back to its input",
        lambda scene, _: scene.shows(ON, OTHER_INPUT),
        gateway.display_alert(""),
    ),
    Step(
        "somebody chooses the unit's input: the station is idle",
        lambda scene, _: scene.shows(ON, UNIT_INPUT),
        action=lambda scene: scene.television.switch_input(UNIT_INPUT),
    ),
]
