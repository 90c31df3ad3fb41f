"""A short incident as a gateway reports it, and what each step must lead to."""

from collections.abc import Callable

from simulation import gateway
from simulation.gateway import Unit
from simulation.places import GATEWAY_FILE, LOUDSPEAKER, UNIT_ADDRESS
from simulation.scenario import Scene

PAGE = "http://127.0.0.1/station_web/"
UNIT_INPUT = "1.0.0.0"
OTHER_INPUT = "3.0.0.0"
CLIP = "http://10.87.33.20/clip.wav"
CLIP_SIZE = 16000  # bytes of sound

_UNITS = {0: Unit("E1", 2), 1: Unit("L3", 5)}
_TEXT = "STRUCTURE FIRE\n1200 MAIN ST, CROSS OAK AVE"
_UPDATE = _TEXT + "\nSMOKE SHOWING, 2ND FLOOR"
_DATE = "2026-03-05 07:04:09"
_MAP = "http://10.87.33.20/map.svg?incident=1042"
_NOTICE = "BRUSH FIRE\nALL CREWS TO THE YARD"


def play(scene: Scene) -> None:
    _start(scene)
    _alert(scene)
    _notice(scene)


def _start(scene: Scene) -> None:
    scene.expect("the station is idle and shows its address", lambda: _is_idle(scene))
    _call_roll(scene, 2, 2, 39, 47)
    scene.send(
        f"the date, {_DATE}",
        gateway.set_date(_DATE),
        lambda: scene.calls("date") == [["date", "-s", _DATE]],
    )
    scene.send(
        "settings: a quarter turn",
        gateway.hdtv_settings(1),
        lambda: _page_address(scene) == f"{PAGE}?rotation=90",
    )
    _call_roll(scene, 39, 47, 2)
    scene.send(
        "settings: upright again", gateway.hdtv_settings(0), lambda: _page_address(scene) == PAGE
    )
    scene.send("a clip to play", gateway.play_clip(CLIP), lambda: _plays_the_clip(scene))


def _alert(scene: Scene) -> None:
    scene.do(
        "the television's input is set to 3.0.0.0 while it sleeps",
        lambda: scene.tv.choose_input(OTHER_INPUT),
        _tv_is(scene, "in standby", OTHER_INPUT),
    )
    alert = gateway.detail_alert(_TEXT, _UNITS, turnout_end=120, turnout_zero=60)
    words = "detail alert for E1 and L3, turnout 120 s"
    scene.send(words, alert, lambda: _shows_alert(scene))
    scene.send(
        "map address",
        gateway.set_map_address(_MAP),
        lambda: scene.has_document(map_url=_MAP) and _shows_units(scene),
    )
    update = gateway.detail_alert(_UPDATE, _UNITS, turnout_end=120, turnout_zero=60)
    scene.send("the same alert with more text", update, lambda: _shows_update(scene))
    scene.send(
        "stop turnout",
        gateway.stop_turnout(),
        lambda: scene.has_document(alert_type="stop_turnout"),
    )
    words = "end of the alert: flag on, empty text"
    scene.send(words, gateway.detail_alert(""), lambda: _shows_end(scene))


def _notice(scene: Scene) -> None:
    scene.do(
        "somebody switches the television on and watches input 3.0.0.0",
        scene.tv.turn_on,
        _tv_is(scene, "on", OTHER_INPUT),
    )
    scene.send(
        "display alert, turnout 90 s",
        gateway.display_alert(_NOTICE, turnout=90),
        lambda: scene.has_document(alert_area=_NOTICE) and scene.tv_is("on", UNIT_INPUT),
    )
    scene.send(
        "end of the alert: the television goes back to its input",
        gateway.display_alert(""),
        _tv_is(scene, "on", OTHER_INPUT),
    )
    scene.do(
        "somebody chooses the unit's input: the station is idle",
        lambda: scene.tv.choose_input(UNIT_INPUT),
        _tv_is(scene, "on", UNIT_INPUT),
    )


def _call_roll(scene: Scene, *answers: int) -> None:
    seen = lambda: scene.has_received(*answers)  # noqa: E731
    scene.send("roll call", gateway.roll_call(), seen, is_datagram=True)


def _tv_is(scene: Scene, power: str, tv_input: str) -> Callable[[], bool]:
    return lambda: scene.tv_is(power, tv_input)


def _is_idle(scene: Scene) -> bool:
    browsers = scene.calls("qt-webkit-kiosk")
    return scene.has_document(alert_area=UNIT_ADDRESS) and len(browsers) == 1


def _page_address(scene: Scene) -> str:
    return scene.calls("qt-webkit-kiosk")[-1][-1]


def _plays_the_clip(scene: Scene) -> bool:
    loudspeaker = scene.station.path(LOUDSPEAKER)
    return loudspeaker.exists() and len(loudspeaker.read_bytes()) > CLIP_SIZE


def _shows_units(scene: Scene) -> bool:
    return scene.has_document(units=[{"unit": "E1", "color": "2"}, {"unit": "L3", "color": "5"}])


def _shows_alert(scene: Scene) -> bool:
    document = scene.document()
    duration = int(document.get("alert_expiration", 0)) - int(document.get("alert_time", 0))
    return (
        scene.has_document(
            alert_area=_TEXT, alert_type="hdtv_alert", show_turnout_timer="1", turnout_end="120"
        )
        and duration == 120
        and _shows_units(scene)
        and gateway.GATEWAY in scene.station.path(GATEWAY_FILE).read_text()
        and scene.tv_is("on", UNIT_INPUT)
    )


def _shows_update(scene: Scene) -> bool:
    text = str(scene.document().get("alert_area", ""))
    return "SMOKE SHOWING" in text and scene.has_document(map_url="")


def _shows_end(scene: Scene) -> bool:
    ended = scene.has_document(alert_type="hdtv_alert", alert_time="0", alert_area="", units=[])
    return ended and scene.tv_is("in standby", OTHER_INPUT)
