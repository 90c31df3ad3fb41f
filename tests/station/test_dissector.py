"""The packet viewer's dissector, on captures made here."""

import random
import re
import struct
from collections.abc import Sequence
from pathlib import Path

import pytest
from capture_support import RECORD, TCP, UDP, make_capture, run_tshark
from gatewayctl_support import GATEWAYCTL, run

from simulation import gateway
from simulation.gateway import VERSION, Unit

pytestmark = pytest.mark.once

EXPERT = "_ws.expert.message"
HARDWARE_ADDRESS = bytes.fromhex("02000a572132")
REPLY = b"\x02" + HARDWARE_ADDRESS

Frame = dict[str, list[str]]


@pytest.fixture
def directory(tmp_path: Path) -> Path:
    return tmp_path


def dissect(
    directory: Path, packets: Sequence[bytes], names: Sequence[str], kind: Sequence[str] = TCP
) -> list[Frame]:
    capture = directory / "capture.pcap"
    make_capture(capture, packets, kind)
    wanted = [word for name in [*names, EXPERT] for word in ("-e", name)]
    output = run_tshark(capture, "-T", "fields", "-E", "aggregator=|", "-E", "separator=;", *wanted)
    return [
        {
            name: value.split("|") if value else []
            for name, value in zip([*names, EXPERT], line.split(";"), strict=True)
        }
        for line in output.splitlines()
    ]


def dissect_one(directory: Path, packet: bytes, *names: str, kind: Sequence[str] = TCP) -> Frame:
    full = [f"station_display.{name}" for name in names]
    (frame,) = dissect(directory, [packet], full, kind)
    return {name.removeprefix("station_display."): value for name, value in frame.items()}


def test_detail_alert(directory: Path) -> None:
    units = {0: Unit("E1", 2), 15: Unit("L3", 17)}
    message = gateway.detail_alert(
        "FIRE", units, turnout_end=120, turnout_zero=60, turnout_reverse=1
    )
    names = ["type", "flag", "unit.color", "unit.name", "turnout_end", "turnout_zero"]
    frame = dissect_one(directory, message, *names, "turnout_reverse", "text_length", "text")
    assert frame == {
        **{"type": ["51"], "flag": ["1"], "unit.color": ["2", "17"], "unit.name": ["E1", "L3"]},
        **{"turnout_end": ["120"], "turnout_zero": ["60"], "turnout_reverse": ["1"]},
        **{"text_length": ["4"], "text": ["FIRE"], EXPERT: []},
    }


def test_display_alert_with_and_without_a_turnout_timer(directory: Path) -> None:
    frame = dissect_one(
        directory, gateway.display_alert("FIRE", turnout=90), "text", "turnout_timer"
    )
    assert frame == {"text": ["FIRE"], "turnout_timer": ["90"], EXPERT: []}
    frame = dissect_one(directory, gateway.display_alert("FIRE"), "text", "turnout_timer")
    assert frame == {"text": ["FIRE"], "turnout_timer": [], EXPERT: []}


@pytest.mark.parametrize(
    "message, field, value",
    [
        (gateway.hdtv_alert("text", 77), "turnout_timer", "77"),
        (gateway.set_date("2026-03-05"), "date", "2026-03-05"),
        (gateway.set_page_address("http://page/"), "page", "http://page/"),
        (gateway.set_map_address("http://map/"), "map", "http://map/"),
        (gateway.set_map_address("HTTPS://MAP/"), "map", "HTTPS://MAP/"),
        (gateway.hdtv_settings(3), "quarter_turns", "3"),
        (gateway.play_clip("http://x/a.wav"), "json.value", "http://x/a.wav"),
        (gateway.reboot(), "type", "32"),
        (gateway.stop_turnout(), "type", "46"),
    ],
)
def test_every_other_message(directory: Path, message: bytes, field: str, value: str) -> None:
    assert dissect_one(directory, message, field) == {field: [value], EXPERT: []}


def test_messages_over_udp(directory: Path) -> None:
    frame = dissect_one(directory, gateway.roll_call(), "type", kind=UDP)
    assert frame == {"type": ["1"], EXPERT: []}
    frame = dissect_one(directory, gateway.display_alert("FIRE"), "text", kind=UDP)
    assert frame == {"text": ["FIRE"], EXPERT: []}


def test_control_message_shows_its_members(directory: Path) -> None:
    message = b'{"play_audio":"http://x/a.wav","volume":"50", "odd": "1"}'
    frame = dissect_one(directory, message, "json.key", "json.value")
    assert frame["json.key"] == ["play_audio", "volume"]
    assert frame["json.value"] == ["http://x/a.wav", "50"]


IP = ("-l", "101")  # packets that begin with their IP header


def segment(content: bytes, sequence: int, is_pushed: bool) -> bytes:
    """A TCP segment to the command port, with its IP header."""
    flags = 0x18 if is_pushed else 0x10
    tcp = struct.pack(">HHIIBBHHH", 40000, 4000, sequence, 1, 0x50, flags, 1000, 0, 0) + content
    addresses = bytes([10, 1, 1, 1, 10, 2, 2, 2])
    return struct.pack(">BBHHHBBH", 0x45, 0, 20 + len(tcp), 0, 0, 64, 6, 0) + addresses + tcp


def test_long_alert_is_put_together_from_its_segments(directory: Path) -> None:
    message = gateway.detail_alert("x" * 3000)
    parts = [
        segment(message[place : place + 1460], 1 + place, is_pushed=place == 2920)
        for place in range(0, len(message), 1460)
    ]
    frames = dissect(directory, parts, ["station_display.text"], IP)
    assert [frame["station_display.text"] for frame in frames] == [[], [], ["x" * 3000]]
    assert frames[2][EXPERT] == []


def test_length_that_is_not_true_does_not_hide_a_message(directory: Path) -> None:
    message = gateway.detail_alert("FIRE", text_length=3000)
    frame = dissect_one(directory, segment(message, 1, is_pushed=True), "text", kind=IP)
    assert frame["text"] == ["FIRE"]
    assert frame[EXPERT] == ["The text length is 3000, but the text has 4 bytes"]
    message = gateway.display_alert("FIRE")[:4] + b"\x0f\xff" + b"FIRE"
    frame = dissect_one(directory, message, "text")
    assert frame["text"] == ["FIRE"]
    assert frame[EXPERT] == ["The text length is 4095, but 4 bytes follow"]


MALFORMED = [
    (b"\x03\x01", TCP, "The message ends before its byte 6"),
    (gateway.display_alert("FIRE") + b"abc", TCP, "The text length is 4, but 7 bytes follow"),
    (b"\x03\x01\0\0\0\4A\0BC\0\x09", TCP, "A zero byte ends the text early"),
    (b"\x26\0\0", TCP, "The message is too short"),
    (b"\x28", TCP, "The date is empty"),
    (b"\x28now\0then", TCP, "A zero byte ends the text early"),
    (b"\x31", TCP, "The message ends before its byte 2"),
    (b"\x31\x04", TCP, "More than three quarter turns are stored as none"),
    (b"\x31\x01\0", TCP, "The bytes after the message are not read"),
    (b"\x20\0", TCP, "The bytes after the message are not read"),
    (gateway.detail_alert("x")[:100], TCP, "The message ends before its byte 534"),
    (gateway.detail_alert("x")[:537], TCP, "The message ends before its byte 539"),
    (gateway.detail_alert("x")[:30], TCP, "The message ends before its byte 534"),
    (gateway.detail_alert("x", {0: Unit("", 1)}), TCP, "The unit has no name"),
    (gateway.detail_alert("x", {0: Unit("E1", 0)}), TCP, "The unit has color 0: its slot "),
    (
        gateway.detail_alert("x", {0: Unit("n" * 32, 1)}),
        TCP,
        "The name has no terminating zero: it is cut",
    ),
    (gateway.detail_alert("x", {0: Unit('E"1', 1)}), TCP, "A quotation mark in a name makes the"),
    (b'\x34http://x/"', TCP, "A quotation mark in the address makes the alert document unreada"),
    (b"\x26\0\0\0\0", TCP, "The turnout timer is taken from the type byte and the one after"),
    (gateway.detail_alert("", {0: Unit("E1", 1)})[:25], TCP, "The name of slot 1 is incomplete"),
    (
        gateway.detail_alert("xy", text_length=0),
        TCP,
        "The text length is 0, but the text has 2 byt",
    ),
    (
        gateway.set_map_address("javascript:x"),
        TCP,
        "The page follows http and https addresses only",
    ),
    (b'{"comm_gw": "x"}', TCP, 'There is neither "play_audio" nor "comm_gw"'),
    (b"\x63abc", TCP, "No message has type 99"),
    (b"\x01", TCP, "This message works over UDP only"),
    (b"\x2e", UDP, "This message works over TCP only"),
    (b"\x34http://x", UDP, "This message works over TCP only"),
    (b"\x30" + b"x" * 4096, UDP, "The message is too long: the rest is lost"),
    (b"\x30" + b"x" * 4095, TCP, "The message is too long: the rest is lost"),
]


@pytest.mark.parametrize("message, kind, words", MALFORMED)
def test_malformed_message_is_marked(
    directory: Path, message: bytes, kind: Sequence[str], words: str
) -> None:
    frame = dissect_one(directory, message, "type", kind=kind)
    assert frame["type"] == [str(message[0])]
    assert any(said.startswith(words) for said in frame[EXPERT]), frame


def any_messages() -> list[bytes]:
    """Messages of all kinds, with faults and without."""
    generator = random.Random(2)
    alert = gateway.detail_alert("FIRE", {0: Unit("E1", 1), 3: Unit('L"3', 2), 4: Unit("x", 0)})
    whole = [
        *(gateway.display_alert("FIRE"), gateway.display_alert("FIRE", turnout=9), alert),
        *(gateway.detail_alert("FIRE", {2: Unit("E1", 1)}), gateway.detail_alert("")),
        *(gateway.hdtv_alert("text", 7), gateway.set_date("now"), gateway.hdtv_settings(3)),
        *(gateway.set_page_address("http://x/"), gateway.set_map_address("HTTP://x/")),
        *(gateway.detail_alert("x", {1: Unit('E"1', 3)}), b'\x34http://x/"'),
        gateway.detail_alert("x", {1: Unit("E1" + 28 * "\0" + "1x", 3)}),
        *(
            b'{"x":"y"comm_gw":"z"}',
            b'{"comm_gw":"x"}',
            b'{"a""comm_gw":"x"}',
            b'{"comm_gw":"x',
            b'{"comm_gw":"","x":"y"}',
        ),
        *(gateway.play_clip("http://x/a.wav"), gateway.reboot(), gateway.stop_turnout()),
        *(b"\x09", gateway.roll_call(), b"\x26" + bytes(4)),
    ]
    changed = []
    for message in 6 * whole:
        place = generator.randrange(len(message))
        byte = generator.choice([b"\0", b'"', b"\1", b"x", b""])
        changed.append(message[:place] + byte + message[place + 1 :])
        changed.append(message[: place + 1])
    return whole + [message for message in changed if message]


@pytest.mark.tool
@pytest.mark.parametrize("kind, options", [(TCP, []), (UDP, ["--udp"])], ids=["TCP", "UDP"])
def test_dissector_finds_fault_with_what_decode_finds_fault_with(
    directory: Path, kind: Sequence[str], options: list[str]
) -> None:
    packets, place = any_messages(), 1
    statuses = [run(GATEWAYCTL, *options, "decode", p.hex()).returncode for p in packets]
    assert {*statuses} == {0, 1}
    if kind == TCP:
        messages = packets
        packets = []
        for message in messages:
            packets.append(segment(message, place, is_pushed=True))
            place += len(message)
    frames = dissect(directory, packets, ["station_display.type"], IP if kind == TCP else kind)
    marked = [1 if frame[EXPERT] else 0 for frame in frames]
    differing = [
        (any_messages()[number], frames[number][EXPERT])
        for number in range(len(statuses))
        if statuses[number] != marked[number]
    ]
    assert differing == []


RECORD_NAMES = [f"station_record.{x}" for x in ("code", "hardware_address", "fixed", "version")]


@pytest.mark.parametrize(
    "content, values, said",
    [
        (REPLY + bytes([12, VERSION]), ["2", "02:00:0a:57:21:32", "12", str(VERSION)], []),
        (b"\x27" + HARDWARE_ADDRESS, ["39", "02:00:0a:57:21:32", "", ""], []),
        (b"\x2f" + HARDWARE_ADDRESS, ["47", "02:00:0a:57:21:32", "", ""], []),
        (b"\x02", ["2", "", "", ""], ["The record has 1 bytes instead of 9"]),
        (
            b"\x27" + HARDWARE_ADDRESS + b"x",
            ["39", "02:00:0a:57:21:32", "", ""],
            ["The record has 8 bytes instead of 7"],
        ),
        (b"\x09" + HARDWARE_ADDRESS, ["9", "", "", ""], ["No record has code 9"]),
        (
            REPLY + bytes([13, VERSION]),
            ["2", "02:00:0a:57:21:32", "13", str(VERSION)],
            ["The fixed byte is not 12"],
        ),
    ],
)
def test_record(directory: Path, content: bytes, values: list[str], said: list[str]) -> None:
    (frame,) = dissect(directory, [content], RECORD_NAMES, RECORD)
    assert ["".join(frame[name]) for name in RECORD_NAMES] == values
    assert frame[EXPERT] == said


def test_packet_list_tells_what_matters(directory: Path) -> None:
    capture = directory / "capture.pcap"
    make_capture(capture, [gateway.display_alert("FIRE\nMAIN ST")], TCP)
    assert "STATION" in run_tshark(capture)
    assert "Display alert: FIRE MAIN ST" in run_tshark(capture)


HOSTILE = b"A\x1b[1mB\x9bC\xc2\x9bD\xe2\x80\xaeE\x7f"
SHOWN = "A\N{REPLACEMENT CHARACTER}[1mB"


@pytest.mark.parametrize(
    "form", [["-V"], [], ["-T", "fields", "-e", "_ws.col.Info"], ["-T", "json"], ["-T", "pdml"]]
)
def test_text_that_steers_a_terminal_is_shown_harmless(directory: Path, form: list[str]) -> None:
    alert = bytearray(gateway.detail_alert("", {0: Unit("E1", 1)})) + HOSTILE
    alert[20 : 20 + len(HOSTILE)] = HOSTILE
    members = b'"play_audio":"' + HOSTILE + b'","' + HOSTILE + b'":"x"'
    texts = [bytes([kind]) + HOSTILE for kind in (40, 48, 52)]
    packets = [bytes(alert), b"\3\1\0\0\0\0" + HOSTILE, b"{" + members + b"}", *texts]
    names = ["text", "unit.name", "date", "page", "map", "json", "json.key", "json.value"]
    wanted = [word for name in names for word in ("-e", f"station_display.{name}")]
    capture = directory / "capture.pcap"
    make_capture(capture, packets, TCP)
    output = run_tshark(capture, *form, *(wanted if "fields" in form else []))
    assert re.sub("[\n\t]", "", output).isprintable()
    assert SHOWN.replace("\N{REPLACEMENT CHARACTER}", " ") in output or SHOWN in output
    assert "\N{REPLACEMENT CHARACTER}" in output


def test_control_message_shows_all_members_of_a_foreign_language(directory: Path) -> None:
    message = '{"play_audio":"http://x/é.wav","volume":"50"}'.encode()
    frame = dissect_one(directory, message, "json.key", "json.value")
    assert frame["json.key"] == ["play_audio", "volume"]
    assert frame["json.value"][1] == "50"


@pytest.mark.parametrize("kind", [TCP, UDP, RECORD], ids=["TCP", "UDP", "record"])
def test_any_bytes_of_any_length(directory: Path, kind: Sequence[str]) -> None:
    generator = random.Random(1)
    types = [1, 2, 3, 32, 38, 39, 40, 46, 47, 48, 49, 51, 52, 123, 9]
    packets = [
        bytes([generator.choice(types)]) + generator.randbytes(generator.choice([0, 1, 5, 30, 540]))
        for _ in range(1000)
    ]
    capture = directory / "capture.pcap"
    make_capture(capture, packets, kind)
    output = run_tshark(capture, "-V")
    assert output.count("Station Display ") >= 500
