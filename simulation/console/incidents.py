"""What a gateway sends for whole incidents, by name."""

from dataclasses import dataclass

from simulation import gateway
from simulation.demo.cases import CASES, END
from simulation.gateway import Unit

_TEXT = "STRUCTURE FIRE\n1200 MAIN ST, CROSS OAK AVE"
_MEDICAL = "MEDICAL, CHEST PAIN\n45 ELM ST, APT 3B\nMALE, 61, CONSCIOUS"
_MAP = f"http://{gateway.GATEWAY}/map.svg?incident=1042"


@dataclass(frozen=True)
class Incident:
    name: str
    words: str
    messages: tuple[bytes, ...]


def _alert(text: str, units: dict[int, Unit]) -> bytes:
    return gateway.detail_alert(text, units, turnout_end=120, turnout_zero=60)


_FIRE = _alert(_TEXT, {0: Unit("E1", 2), 1: Unit("L3", 5)})
_MORE = _alert(
    _TEXT + "\nSMOKE SHOWING, 2ND FLOOR", {0: Unit("E1", 2), 1: Unit("L3", 5), 2: Unit("B1", 1)}
)

INCIDENTS = (
    Incident("end", "the alert ends", (END,)),
    Incident("fire", "a structure fire for E1 and L3", (_FIRE,)),
    Incident("map", "the same, with a map", (_FIRE, gateway.set_map_address(_MAP))),
    Incident("more", "more is known, and B1 goes too", (_MORE,)),
    Incident("stop", "the crews have turned out", (gateway.stop_turnout(),)),
    Incident("medical", "a medical call for M1", (_alert(_MEDICAL, {0: Unit("M1", 3)}),)),
    Incident(
        "notice", "a text only", (gateway.display_alert("BRUSH FIRE\nALL CREWS", turnout=90),)
    ),
    *(
        Incident(f"case-{number}", case.caption, case.messages)
        for number, case in enumerate(CASES, 1)
    ),
)


def find_incident(name: str) -> Incident | None:
    return next((incident for incident in INCIDENTS if incident.name == name), None)
