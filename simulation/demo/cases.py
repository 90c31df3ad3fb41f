"""What a gateway may also send, for pictures of how it is shown."""

from dataclasses import dataclass

from simulation import gateway
from simulation.gateway import Unit

_MAP = f"http://{gateway.GATEWAY}/map.svg"
_DISPATCH = "STRUCTURE FIRE\n1200 MAIN ST, CROSS OAK AVE\nSMOKE FROM THE SECOND FLOOR"
_NINE_LINES = _DISPATCH + (
    "\nBOX 2114, MAP PAGE 47 C\nHYDRANT AT THE CORNER OF OAK AVE\nGAS SHUTOFF ON THE NORTH SIDE"
    "\nTACTICAL CHANNEL 4\nENGINE 7 IS OUT OF SERVICE\nWIND FROM THE WEST, 25 KM/H"
)
_SENTENCE = "Caller reports heavy smoke and flames from the rear of the building. "
_SCRIPTS = "ПОЖАР, ул. Ленина 12\nΠΥΡΚΑΓΙΑ, Οδός Αθηνάς 7\nحريق في مبنى\n火災 中山路12号 화재\n" "⚠ → ½ №"


@dataclass(frozen=True)
class Case:
    caption: str
    messages: tuple[bytes, ...]


def _alert(
    text: str, units: dict[int, Unit] | None = None, zero: int = 60, reverse: int = 0
) -> bytes:
    crew = {0: Unit("E1", 2), 1: Unit("L3", 5)} if units is None else units
    return gateway.detail_alert(
        text, crew, turnout_end=120, turnout_zero=zero, turnout_reverse=reverse
    )


def _units(name: str) -> dict[int, Unit]:
    return {slot: Unit(name.format(slot + 1), slot + 1) for slot in range(16)}


END = gateway.detail_alert("")

# After each, the alert ends.
CASES = [
    Case("one word", (_alert("FIRE"),)),
    Case("sixteen units in the sixteen colors", (_alert(_DISPATCH, _units("E{}")),)),
    Case(
        "sixteen units with names of 31 letters, in pages",
        (_alert(_DISPATCH, _units("NORTH DISTRICT RESCUE COMPANY{:02}")),),
    ),
    Case(
        "nine lines with a map: they take turns",
        (_alert(_NINE_LINES), gateway.set_map_address(_MAP)),
    ),
    Case("1,500 characters, in pages", (_alert((_DISPATCH + "\n" + 22 * _SENTENCE)[:1500]),)),
    Case("a timer that counts up", (_alert(_DISPATCH, reverse=1),)),
    Case("no units and no timer", (gateway.detail_alert(_DISPATCH),)),
    Case("a quotation mark in a unit's name", (_alert(_DISPATCH, {0: Unit('"BIG" E1', 2)}),)),
    Case("several scripts, and symbols", (_alert(_SCRIPTS),)),
    Case("characters that no font has", (_alert("BOX \u0378 \U00012345 \ufdd0\n1200 MAIN ST"),)),
    Case("a notice while the station is idle", (gateway.display_alert("TRAINING AT 14:00", 0),)),
]
