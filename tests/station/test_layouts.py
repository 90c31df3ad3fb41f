"""The layouts on the wire are written down three times: for the unit (hdtv/protocol.h), for the
packet viewer and for the tests' gateway. Here they are compared."""

import re
import subprocess
import xml.etree.ElementTree as ElementTree
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

import pytest
from capture_support import RECORD, TCP, UDP, make_capture, run_tshark
from gatewayctl_support import GATEWAYCTL

from simulation import gateway
from simulation.gateway import VERSION, Unit
from simulation.places import top_directory

pytestmark = pytest.mark.once

TOP = top_directory()
HARDWARE_ADDRESS = bytes.fromhex("02000a572132")
NAME_SIZE = 31  # without its zero byte


@dataclass(frozen=True, order=True)
class Field:
    """By the dissector's name for it, without the protocol's prefix."""

    offset: int
    size: int
    name: str


@dataclass(frozen=True)
class Layout:
    title: str
    fields: list[Field]


# Where the decoder's names differ from the dissector's by more than underscores.
NAMES = {"alert flag": "flag", "not read": "unread", "object": "json", "fixed byte": "fixed"}
ADDRESSES = ("page", "map")  # each is the decoder's "address"


def common_name(decoders: str) -> str:
    if unit := re.fullmatch(r"unit \d+, (name|colou?r)", decoders):
        return "unit.name" if unit[1] == "name" else "unit.color"
    return NAMES.get(decoders, decoders.replace(" ", "_"))


def decoded(content: bytes, kind: Sequence[str]) -> Layout:
    """As explained by gatewayctl, which takes it from hdtv/protocol.h."""
    options = ["--record"] if kind == RECORD else []
    command = [GATEWAYCTL, *(["--udp"] if kind == UDP else []), "decode", *options, content.hex()]
    output = subprocess.run(command, capture_output=True, text=True, timeout=30).stdout
    lines = re.findall(r"^ +(\d+)  [0-9a-f .]{27} ([a-z0-9,-]+(?: [a-z0-9,-]+)*)", output, re.M)
    places = sorted((int(offset), common_name(name)) for offset, name in lines)
    ends = [offset for offset, _ in places[1:]] + [len(content)]
    fields = [Field(place, end - place, name) for (place, name), end in zip(places, ends)]
    return Layout(output.partition(",")[0].lower(), fields)


def dissected(content: bytes, kind: Sequence[str], directory: Path) -> Layout:
    """As the packet viewer shows it."""
    capture = directory / "capture.pcap"
    make_capture(capture, [content], kind)
    tree = ElementTree.fromstring(run_tshark(capture, "-T", "pdml"))
    (protocol,) = (x for x in tree.iter("proto") if x.attrib["name"].startswith("station_"))
    start, prefix = int(protocol.attrib["pos"]), protocol.attrib["name"] + "."
    fields = [
        Field(
            int(field.attrib["pos"]) - start,
            int(field.attrib["size"]),
            field.attrib["name"].removeprefix(prefix),
        )
        for field in protocol.iter("field")
        if field.attrib["name"].startswith(prefix)
    ]
    fields = [Field(x.offset, x.size, "address") if x.name in ADDRESSES else x for x in fields]
    return Layout(protocol.attrib["showname"].partition(": ")[2].lower(), sorted(fields))


def detail_alert(text: str = "AAAA", name: str = "A", color: int = 1, **settings: int) -> bytes:
    """With a unit in each slot; the last one has this name."""
    units = {slot: Unit("U" * NAME_SIZE, 1) for slot in range(15)}
    units[15] = Unit(name * NAME_SIZE, color)
    return gateway.detail_alert(text, units, **settings)


RECORDS = {
    "roll-call reply": b"\x02" + HARDWARE_ADDRESS + bytes([12, VERSION]),
    "set-date request": b"\x27" + HARDWARE_ADDRESS,
    "settings request": b"\x2f" + HARDWARE_ADDRESS,
}

MESSAGES = {
    "roll-call request": gateway.roll_call(),
    "display alert": gateway.display_alert("FIRE", turnout=90),
    "reboot": gateway.reboot(),
    "hdtv alert": gateway.hdtv_alert("text", 77),
    "set date": gateway.set_date("2026-03-05"),
    "stop turnout": gateway.stop_turnout(),
    "set page address": gateway.set_page_address("http://page/"),
    "hdtv settings": gateway.hdtv_settings(3),
    "detail alert": detail_alert(),
    "set map address": gateway.set_map_address("http://map/"),
    "json control": gateway.play_clip("http://x/a.wav"),
}

EVERYTHING = [
    *((title, message, UDP if message[0] == 1 else TCP) for title, message in MESSAGES.items()),
    *((title, record, RECORD) for title, record in RECORDS.items()),
]


@pytest.mark.parametrize("title, content, kind", EVERYTHING, ids=[x[0] for x in EVERYTHING])
def test_dissector_knows_the_units_layout(
    title: str, content: bytes, kind: Sequence[str], tmp_path: Path
) -> None:
    units, dissectors = decoded(content, kind), dissected(content, kind, tmp_path)
    assert units.title == dissectors.title == title
    # Of a unit's name the dissector marks the text alone. It has fields of its own, too: a unit, an
    # object's members, and the object's first byte as its type.
    expected = [
        Field(x.offset, NAME_SIZE, x.name) if x.name == "unit.name" else x for x in units.fields
    ]
    seen = [x for x in dissectors.fields if x.name != "unit" and not x.name.startswith("json.")]
    if title == "json control":
        seen.remove(Field(0, 1, "type"))
    assert seen == expected


TWO_BYTES = (0, 0xFFFF)

# A field, and two messages that differ in it.
ARGUMENTS = [
    ("flag", *(gateway.display_alert("A", flag=x) for x in (0, 1))),
    ("text_length", *(gateway.display_alert("A" * x) for x in (0, 0x0101))),
    ("text", *(gateway.display_alert(x * 4, turnout=0) for x in "AB")),
    ("turnout_timer", *(gateway.display_alert("A", turnout=x) for x in TWO_BYTES)),
    ("turnout_timer", *(gateway.hdtv_alert("A", x) for x in TWO_BYTES)),
    ("unread", *(gateway.hdtv_alert(x * 4, 5) for x in "AB")),
    ("date", *(gateway.set_date(x * 4) for x in "AB")),
    ("address", *(gateway.set_page_address(x * 4) for x in "AB")),
    ("address", *(gateway.set_map_address(x * 4) for x in "AB")),
    ("quarter_turns", *(gateway.hdtv_settings(x) for x in (0, 1))),
    ("flag", *(detail_alert(flag=x) for x in (0, 1))),
    ("unit.color", *(detail_alert(color=x) for x in (1, 2))),
    ("unit.name", *(detail_alert(name=x) for x in "AB")),
    ("turnout_end", *(detail_alert(turnout_end=x) for x in TWO_BYTES)),
    ("turnout_zero", *(detail_alert(turnout_zero=x) for x in TWO_BYTES)),
    ("turnout_reverse", *(detail_alert(turnout_reverse=x) for x in (0, 1))),
    ("text_length", *(detail_alert(text_length=x) for x in TWO_BYTES)),
    ("text", *(detail_alert(text=x * 4) for x in "AB")),
]


@pytest.mark.parametrize(
    "name, one, other", ARGUMENTS, ids=[f"{x[1][0]}: {x[0]}" for x in ARGUMENTS]
)
def test_tests_gateway_writes_what_the_unit_reads(name: str, one: bytes, other: bytes) -> None:
    """The bytes that differ between two messages are the field's position."""
    places = [place for place, pair in enumerate(zip(one, other)) if pair[0] != pair[1]]
    assert places == list(range(places[0], places[-1] + 1))
    size = len(places) + (1 if name == "unit.name" else 0)
    assert Field(places[0], size, name) in decoded(one, TCP).fields


@pytest.mark.parametrize("title, record", RECORDS.items(), ids=RECORDS)
def test_tests_gateway_reads_what_the_unit_writes(title: str, record: bytes) -> None:
    fields = {field.name: field for field in decoded(record, RECORD).fields}
    told = bytearray(record)
    address = fields["hardware_address"]
    told[address.offset : address.offset + address.size] = b"\1\2\3\4\5\6"
    words = f"{title.removeprefix('set-')} from 01:02:03:04:05:06"
    if "version" in fields:
        told[fields["version"].offset] = 200
        words += ", version 200"
    assert gateway.describe_record(bytes(told)) == words


# The version is defined in hdtv/protocol.h, and these cannot take it from there.
VERSION_OF = {
    "hdtv/protocol.h": r"constexpr int version = (\d+);",
    "board/package/hdtv/hdtv.mk": r"^HDTV_VERSION = (\d+)$",
    "board/package/station-web/station-web.mk": r"^STATION_WEB_VERSION = (\d+)$",
    "board/debian/changelog.in": r"^hdtv \((\d+)\)",
    "hdtv/hdtv.8": r'^\.TH HDTV 8 "" "hdtv (\d+)"',
    "tools/doctor/hdtv-doctor.1": r'^\.TH HDTV-DOCTOR 1 "" "hdtv-doctor (\d+)"',
    "tools/gatewayctl/gatewayctl.1": r'^\.TH GATEWAYCTL 1 "" "gatewayctl (\d+)"',
}


@pytest.mark.parametrize("file", VERSION_OF)
def test_version_is_the_same_everywhere(file: str) -> None:
    assert re.findall(VERSION_OF[file], (TOP / file).read_text(), re.M) == [str(VERSION)]


def test_every_package_of_the_board_has_its_version_checked() -> None:
    packages = {str(path.relative_to(TOP)) for path in (TOP / "board/package").glob("*/*.mk")}
    assert packages <= VERSION_OF.keys()
