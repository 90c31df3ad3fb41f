"""gatewayctl against the real service: every message type, with its effect."""

import contextlib
import json
import os
import socket
import subprocess
import time
from collections.abc import Callable, Iterator, Sequence
from pathlib import Path

import pytest
from conftest import StationMaker, busy_service, start

from station import gateway
from station.station import (
    GATEWAY_FILE,
    HARDWARE_ADDRESS,
    LOUDSPEAKER,
    UNIT_ADDRESS,
    Process,
    Station,
    dying_with_starter,
    host_build_directory,
    top_directory,
)
from station.waiting import DEADLINE, wait_for

GATEWAYCTL = str(host_build_directory() / "tools" / "gatewayctl" / "gatewayctl")
SOURCES = top_directory() / "tools" / "gatewayctl"

Result = subprocess.CompletedProcess[str]
Tool = Callable[..., Result]


def command_line(station: Station, *arguments: str) -> list[str]:
    """In the gateway's network, with this machine's files."""
    return dying_with_starter(station.gateway_network_command(GATEWAYCTL, *arguments))


def run(*command: str, answer: str = "") -> Result:
    return subprocess.run(command, input=answer, capture_output=True, text=True, timeout=30)


@pytest.fixture
def tool(station: Station, service: Process) -> Iterator[Tool]:
    """Runs gatewayctl with the unit's address; the unit has acted when it returns."""

    def run_tool(*arguments: str, answer: str = "") -> Result:
        result = run(*command_line(station, "--to", UNIT_ADDRESS, *arguments), answer=answer)
        gateway.deliver(station, b"\0")
        return result

    yield run_tool


def test_display_alert(station: Station, tool: Tool) -> None:
    result = tool("display-alert", "--text", "FIRE\\nMAIN ST", "--turnout", "90")
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout == "20 bytes taken by 10.87.33.50:4000\n"
    document = station.document()
    assert (document["alert_type"], document["alert_area"]) == ("display_alert", "FIRE\nMAIN ST")
    assert int(document["alert_expiration"]) == int(document["alert_time"]) + 90


def test_detail_alert_map_and_end(station: Station, tool: Tool) -> None:
    tool(
        *("detail-alert", "--text", "FIRE", "--unit", "E1:2", "--unit", "L3:5"),
        *("--turnout", "120", "--zero", "60", "--reverse"),
    )
    document = station.document()
    assert document["alert_type"] == "hdtv_alert"
    assert document["units"] == [{"unit": "E1", "color": "2"}, {"unit": "L3", "color": "5"}]
    assert [document[f"turnout_{x}"] for x in ("end", "zero", "reverse")] == ["120", "60", "1"]
    tool("map", "http://10.87.33.20/map.png")
    assert station.document()["map_url"] == "http://10.87.33.20/map.png"
    tool("end-alert")
    assert station.document()["alert_time"] == "0"


def test_sixteen_units(station: Station, tool: Tool) -> None:
    units = [word for slot in range(16) for word in ("--unit", f"U{slot}:{slot + 1}")]
    tool("detail-alert", "--text", "FIRE", *units)
    assert [unit["unit"] for unit in station.document()["units"]] == [f"U{n}" for n in range(16)]


def test_alert_flag(station: Station, tool: Tool) -> None:
    tool("display-alert", "--text", "DRILL", "--flag", "0")
    assert station.document()["show_turnout_timer"] == "0"


def test_turnout_timer(station: Station, tool: Tool) -> None:
    tool("turnout-timer", "77")
    tool("display-alert", "--text", "FIRE")
    document = station.document()
    assert int(document["alert_expiration"]) == int(document["alert_time"]) + 77


def test_stop_turnout(station: Station, tool: Tool) -> None:
    tool("stop-turnout")
    assert station.document()["alert_type"] == "stop_turnout"


def test_set_date(station: Station, tool: Tool) -> None:
    tool("set-date", "2026-03-05 07:04:09")
    tool("set-date")
    first, second = (call.argv[-1] for call in station.wait_for_calls("date", 2))
    assert first == "2026-03-05 07:04:09"
    assert abs(int(second.removeprefix("@")) - station.calls("date")[1].time) < 60


def test_page(station: Station, tool: Tool) -> None:
    tool("page", "http://10.87.33.20/news")
    call = station.wait_for_calls("qt-webkit-kiosk", 2)[-1]
    assert call.argv[-1] == "http://10.87.33.20/news"


def test_blank_page(station: Station, tool: Tool) -> None:
    browser = station.calls("qt-webkit-kiosk")[0]
    tool("page", "--blank")
    wait_for(lambda: not station.path(f"/proc/{browser.pid}").exists(), "the browser's end")


def test_rotation(station: Station, tool: Tool) -> None:
    tool("rotation", "270")
    assert station.wait_for_calls("qt-webkit-kiosk", 2)[-1].argv[-1].endswith("?rotation=270")


def test_play_audio(station: Station, tool: Tool, tmp_path: Path) -> None:
    station.behave("amixer", "sleep 1")
    clip = "http://10.87.33.20/clip.wav"
    directory = tmp_path
    gateway.make_clip(directory / "clip.wav")
    with gateway.web_server(station, directory):
        tool("play-audio", clip, "--volume", "40", "--device", "headphones")
        loudspeaker = station.path(LOUDSPEAKER)
        wait_for(lambda: loudspeaker.exists() and loudspeaker.stat().st_size > 16000, "the sound")
    assert any(call.argv == ["amixer", "set", "PCM", "40%"] for call in station.calls("amixer"))


def test_set_gateway(station: Station, tool: Tool) -> None:
    tool("set-gateway", "10.87.33.21")
    assert '"gateway_addr": "10.87.33.21"' in station.path(GATEWAY_FILE).read_text()


def test_raw(station: Station, tool: Tool, tmp_path: Path) -> None:
    tool("raw", "03:01:00:00:00:04", "46495245")
    assert station.document()["alert_area"] == "FIRE"
    file = tmp_path / "message"
    file.write_bytes(gateway.display_alert("SMOKE"))
    tool("raw", "--file", str(file))
    assert station.document()["alert_area"] == "SMOKE"
    tool("raw", "--file", "-", answer="\x03\x01\0\0\0\3OUT")
    assert station.document()["alert_area"] == "OUT"


def test_over_udp(station: Station, tool: Tool) -> None:
    result = tool("--udp", "display-alert", "--text", "FIRE")
    assert result.stdout == (
        "10 bytes sent to 10.87.33.50:4000; nothing tells whether they arrived\n"
    )
    wait_for(lambda: station.document().get("alert_area") == "FIRE", "the document")


def test_longest_text_arrives_whole(station: Station, tool: Tool) -> None:
    text = "x" * 4089
    assert tool("display-alert", "--text", text).returncode == 0
    assert station.document()["alert_area"] == text
    result = tool("display-alert", "--text", "y" + text)
    assert result.returncode == 2
    assert result.stderr == (
        "gatewayctl: the text has 4090 bytes; over TCP it may have at most 4089\n"
    )
    assert station.document()["alert_area"] == text


# The reboot.


@pytest.mark.parametrize("arguments, answer", [(["--yes"], ""), ([], "y\n"), ([], "yes\n")])
def test_reboot(station: Station, tool: Tool, arguments: list[str], answer: str) -> None:
    assert tool("reboot", *arguments, answer=answer).returncode == 0
    assert len(station.wait_for_calls("reboot")) == 1


@pytest.mark.parametrize("answer", ["", "\n", "n\n", "perhaps\n"])
def test_reboot_that_is_not_confirmed_is_not_sent(
    station: Station, tool: Tool, answer: str
) -> None:
    result = tool("reboot", answer=answer)
    assert result.returncode == 1
    assert result.stdout == "Restart 10.87.33.50? [y/N] "
    assert result.stderr == "gatewayctl: nothing was sent\n"
    assert station.calls("reboot") == []


# Roll call.


def test_roll_call_lists_the_units_of_a_network(station: Station, service: Process) -> None:
    result = run(
        *command_line(station, "roll-call", "--broadcast", "10.87.33.255", "--wait", "500ms")
    )
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout.splitlines() == [
        "ADDRESS          HARDWARE ADDRESS   VERSION  ASKS FOR",
        f"{UNIT_ADDRESS}      {HARDWARE_ADDRESS}  47       date, settings",
    ]


def test_roll_call_of_one_unit_as_json(station: Station, tool: Tool) -> None:
    tool("set-date", "now")
    result = tool("roll-call", "--json", "--wait", "0.5")
    assert json.loads(result.stdout) == {
        "address": UNIT_ADDRESS,
        "hardware_address": HARDWARE_ADDRESS,
        "version": 47,
        "asks_for": ["settings"],
    }


def test_roll_call_that_nobody_answers(station: Station) -> None:
    result = run(*command_line(station, "--to", "10.87.33.77", "roll-call", "--wait", "100ms"))
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == "gatewayctl: no unit has answered a roll call to 10.87.33.77:4000\n"


def test_roll_call_where_another_gateway_listens(station: Station) -> None:
    with gateway.record_listener(station, "0.0.0.0"):
        result = run(*command_line(station, "--to", UNIT_ADDRESS, "roll-call"))
    assert result.returncode == 1
    assert result.stderr == (
        "gatewayctl: port 5000 is taken: another gateway runs on this machine\n"
    )


# A small gateway.


def test_serve_answers_requests_and_keeps_calling(make_station: StationMaker) -> None:
    station = make_station()
    server = station.start_in_gateway_network(
        *(GATEWAYCTL, "serve", "--rotation", "180"),
        *("--roll-call", "10.87.33.255", "--every", "500ms"),
    )
    server.wait_for_output("listens for units")
    start(station)
    server.wait_for_output("is there, version 47 (02:00:0a:57:21:32)", 2)
    server.wait_for_output("has taken the date")
    server.wait_for_output("has taken the rotation 180")
    assert station.wait_for_calls("date")[0].argv[2].startswith("@")
    assert station.wait_for_calls("qt-webkit-kiosk", 2)[-1].argv[-1].endswith("?rotation=180")
    # What has been answered is not asked for again.
    before = server.output.count("is there")
    server.wait_for_output("is there", before + 2)
    assert server.output.count("asks for the date") == 1
    assert server.output.count("asks for its settings") == 1
    assert all(line[2:3] + line[5:6] + line[8:9] == "::." for line in server.output.splitlines())
    assert server.errors == ""


def test_serve_ends_at_a_signal(station: Station) -> None:
    with subprocess.Popen(
        command_line(station, "serve"), stdout=subprocess.PIPE, text=True
    ) as server:
        try:
            assert server.stdout is not None
            assert "listens for units" in server.stdout.readline()
            server.terminate()
            assert server.wait(10) == 0
            assert server.stdout.read().endswith("gateway          ends\n")
        finally:
            server.kill()


def test_serve_survives_what_is_no_record(station: Station) -> None:
    server = station.start_in_gateway_network(GATEWAYCTL, "serve")
    server.wait_for_output("listens for units")
    for content in (b"x" * 100, b"\x02", b""):
        with station.in_unit():
            connection = socket.create_connection(("10.87.33.20", 5000), 20)
        with connection:
            connection.sendall(content)
    server.wait_for_output("sent what is no record", 2)
    assert server.is_running()


class FakeUnit:
    """One of many units, on the gateway's own loopback network. What gatewayctl sends to it stays
    untaken until take()."""

    def __init__(self, station: Station, number: int) -> None:
        self.address = f"127.0.0.{number}"
        self._station = station
        with station.on_gateway():
            self._listening = socket.create_server((self.address, 4000))
        self._listening.settimeout(DEADLINE)

    def connect(self) -> socket.socket:
        with self._station.on_gateway():
            source = (self.address, 0)
            return socket.create_connection(("127.0.0.1", 5000), DEADLINE, source_address=source)

    def send(self, code: int) -> None:
        with self.connect() as connection:
            connection.sendall(bytes([code]) + bytes(6))

    def take(self) -> bytes:
        connection, _ = self._listening.accept()
        with connection:
            return connection.recv(4096)

    def close(self) -> None:
        self._listening.close()


DATE, SETTINGS = 39, 47  # what units ask for


UnitMaker = Callable[[int], list[FakeUnit]]


@pytest.fixture
def make_units(station: Station) -> Iterator[UnitMaker]:
    with contextlib.ExitStack() as stack:
        yield lambda count: [
            stack.enter_context(contextlib.closing(FakeUnit(station, 2 + number)))
            for number in range(count)
        ]


def start_serve(station: Station, *arguments: str, launcher: Sequence[str] = ()) -> Process:
    server = station.start_in_gateway_network(*launcher, GATEWAYCTL, *arguments, "serve")
    server.wait_for_output("listens for units")
    return server


def lines_of(server: Process, unit: FakeUnit) -> list[str]:
    lines = [line.split(maxsplit=2)[1:] for line in server.output.splitlines()]
    return [words for address, words in lines if address == unit.address]


def test_units_that_take_nothing_delay_no_other(station: Station, make_units: UnitMaker) -> None:
    server = start_serve(station, "--timeout", "60min")
    units = make_units(10)
    for code in (DATE, SETTINGS):
        for unit in units:
            unit.send(code)
    for _ in range(2):
        for unit in units[3:]:
            assert unit.take()
    server.wait_for_output("has taken the rotation 0", 7)
    asks_for_date = "asks for the date (00:00:00:00:00:00)"
    asks_for_settings = "asks for its settings (00:00:00:00:00:00)"
    talk = [asks_for_date, "has taken the date", asks_for_settings, "has taken the rotation 0"]
    assert [lines_of(server, unit) for unit in units] == 3 * [talk[:1]] + 7 * [talk]
    # What has not been answered is said and answered in its order.
    assert units[0].take().startswith(b"\x28@")
    assert units[0].take() == b"\x31\0"
    server.wait_for_output("has taken the rotation 0", 8)
    assert lines_of(server, units[0]) == talk


def test_unit_that_takes_nothing_in_time_is_given_up(
    station: Station, make_units: UnitMaker
) -> None:
    server = start_serve(station, "--timeout", "100ms")
    (unit,) = make_units(1)
    unit.send(DATE)
    unit.send(DATE)
    server.wait_for_output("could not be sent the date: the message is on its way, but", 2)
    assert [line.partition(" ")[0] for line in lines_of(server, unit)] == 2 * ["asks", "could"]


def test_unit_that_asks_on_and_on_fills_no_memory(station: Station, make_units: UnitMaker) -> None:
    server = start_serve(station, "--timeout", "60min")
    greedy, other = make_units(2)
    for _ in range(20):
        greedy.send(DATE)
    server.wait_for_output("sends more than it takes answers: a record is lost", 3)
    other.send(DATE)
    assert other.take()
    server.wait_for_output("has taken the date")
    for _ in range(17):
        assert greedy.take()
    server.wait_for_output("has taken the date", 18)


def is_ended(connection: socket.socket) -> bool:
    """Whether gatewayctl has closed it."""
    connection.setblocking(False)
    try:
        return connection.recv(1) == b""
    except BlockingIOError:
        return False


def test_hundred_silent_connections_delay_nobody(station: Station, make_units: UnitMaker) -> None:
    server = start_serve(station)
    silent, unit = make_units(2)
    with contextlib.ExitStack() as stack:
        connections = [stack.enter_context(silent.connect()) for _ in range(100)]
        unit.send(DATE)
        assert unit.take()
        server.wait_for_output("has taken the date")
        assert not all(is_ended(connection) for connection in connections)
        wait_for(lambda: all(is_ended(connection) for connection in connections), "their ends")
    assert lines_of(server, silent) == []


def test_record_without_an_end_counts_after_a_while(
    station: Station, make_units: UnitMaker
) -> None:
    server = start_serve(station)
    (unit,) = make_units(1)
    with unit.connect() as connection:
        connection.sendall(bytes([DATE]) + bytes(6))
        assert unit.take()
    server.wait_for_output("has taken the date")


def processor_time(process: Process) -> float:
    fields = Path(f"/proc/{process.pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def test_serve_rests_while_there_are_no_descriptors(
    station: Station, make_units: UnitMaker
) -> None:
    server = start_serve(station, launcher=["prlimit", "--nofile=12"])
    silent, unit = make_units(2)
    with contextlib.ExitStack() as stack:
        connections = [stack.enter_context(silent.connect()) for _ in range(30)]
        server.wait_for_output("gateway          has no descriptors left: units wait their turn")
        begin, used = time.monotonic(), processor_time(server)
        wait_for(lambda: is_ended(connections[0]), "the end of the first connection")
        assert processor_time(server) - used < (time.monotonic() - begin) / 4
    unit.send(DATE)
    assert unit.take()
    server.wait_for_output("has taken the date")
    assert server.output.count("has no descriptors left") == 1


# Failures.


def test_unit_whose_service_is_down(station: Station) -> None:
    result = run(*command_line(station, "--to", UNIT_ADDRESS, "end-alert"))
    assert result.returncode == 1
    assert result.stderr == (
        "gatewayctl: 10.87.33.50:4000 refuses connections: that machine is up, the service is not\n"
    )


def test_unit_that_is_not_there(station: Station) -> None:
    result = run(*command_line(station, "--to", "10.87.33.77", "--timeout", "100ms", "end-alert"))
    assert result.returncode == 1
    assert result.stderr == "gatewayctl: 10.87.33.77:4000 does not answer\n"


def test_unit_that_is_busy(station: Station, service: Process) -> None:
    with busy_service(station):
        result = run(
            *command_line(station, "--to", UNIT_ADDRESS, "--timeout", "100ms", "end-alert")
        )
    assert result.returncode == 1
    assert result.stderr.startswith("gatewayctl: the message is on its way, but 10.87.33.50:4000")


def test_name_that_nobody_knows() -> None:
    result = run(GATEWAYCTL, "--to", "no-such-unit.invalid", "end-alert")
    assert result.returncode == 1
    assert result.stderr.startswith('gatewayctl: there is no host "no-such-unit.invalid": ')


@pytest.mark.parametrize(
    "arguments, words",
    [
        ([], "which command? gatewayctl --help lists them"),
        (["shout"], "not expected: shout"),
        (["end-alert"], "--to says where the unit is: --to HOST[:PORT]"),
        (["--to", "127.0.0.1:x", "end-alert"], '"x" is not a port'),
        (["--to", "x", "--udp", "map", "http://x"], "map counts over TCP only"),
        (["--to", "x", "--udp", "stop-turnout"], "stop-turnout counts over TCP only"),
        (["--to", "x", "display-alert"], "--text is required"),
        (["--to", "x", "display-alert", "--text", "y", "--turnout", "65536"], "0 to 65535"),
        (["--to", "x", "detail-alert", "--text", "y", "--unit", "E1:red"], "is not a number"),
        (["--to", "x", "rotation", "45"], "0, 90, 180 or 270"),
        (["--to", "x", "page"], "page takes an address, or --blank"),
        (["--to", "x", "page", "y", "--blank"], "page takes an address, or --blank"),
        (["--to", "x", "play-audio", "http://x/clip.mp3"], 'ends in ".wav" or ".raw"'),
        (["--to", "x", "set-gateway", "gateway"], '"gateway" is not an address'),
        (["--to", "x", "raw", "3"], "a hexadecimal byte has two digits"),
        (["--to", "x", "raw"], "as hexadecimal words or with --file"),
        (["--to", "x", "raw", "--file", "/dev/null"], "an empty message says nothing"),
        (["--to", "x", "--broadcast", "y", "roll-call"], "--broadcast"),
        (["roll-call", "--wait", "soon"], '"soon" is not a time like 2s, 500ms or 5min'),
        (["serve", "--rotation", "45"], "0, 90, 180 or 270"),
        (["decode"], "as hexadecimal words or with --file"),
    ],
)
def test_what_cannot_be_asked_for_is_said_with_status_2(arguments: list[str], words: str) -> None:
    result = run(GATEWAYCTL, *arguments)
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr.startswith("gatewayctl: ")
    assert words in result.stderr


def test_file_that_cannot_be_read() -> None:
    result = run(GATEWAYCTL, "decode", "--file", "/no/such/file")
    assert result.returncode == 1
    assert result.stderr == "gatewayctl: the file /no/such/file cannot be read\n"


# What steers a terminal, three times: as a byte of its own, and in UTF-8; and what turns text round.
HOSTILE = b"\x1b]0;x\x07\x9b31m\xc2\x9b31m\xe2\x80\xae\xff"
HARMLESS = r"\x1b]0;x\x07\x9b31m\u009b31m\u202e\xff"


@pytest.mark.parametrize(
    "arguments",
    [
        [HOSTILE],
        ["--to", b"x:" + HOSTILE, "end-alert"],
        ["--to", HOSTILE, "end-alert"],
        ["--to", HOSTILE, "reboot"],
        ["--to", "x", "--timeout", HOSTILE, "end-alert"],
        ["--to", "x", "rotation", b"1" + HOSTILE],
        ["--to", "x", "set-gateway", HOSTILE],
        ["--to", "x", "detail-alert", "--text", "x", "--unit", HOSTILE + b":z"],
        ["--to", "x", "detail-alert", "--text", "x", "--unit", HOSTILE + b":0"],
        ["--to", "x", "detail-alert", "--text", "x", "--unit", HOSTILE * 2],
        ["--dry-run", "detail-alert", "--text", HOSTILE, "--unit", HOSTILE],
        ["--dry-run", "display-alert", "--text", HOSTILE],
        ["--dry-run", "set-date", HOSTILE],
        ["--dry-run", "page", HOSTILE],
        ["--dry-run", "map", HOSTILE],
        ["--dry-run", "play-audio", HOSTILE + b".wav"],
        ["decode", "--file", HOSTILE],
        ["roll-call", "--broadcast", HOSTILE],
        ["serve", "--roll-call", HOSTILE],
        ["roll-call", "--wait", HOSTILE],
    ],
)
def test_nothing_from_outside_reaches_the_terminal_raw(arguments: list[str | bytes]) -> None:
    result = subprocess.run(
        [GATEWAYCTL, *arguments], stdin=subprocess.DEVNULL, capture_output=True, timeout=30
    )
    text = (result.stdout + result.stderr).decode()
    assert text.replace("\n", "").isprintable(), text
    assert HARMLESS in text


# Explaining.


def test_dry_run_explains_and_sends_nothing(station: Station, tool: Tool) -> None:
    before = station.document()
    result = tool("--dry-run", "detail-alert", "--text", "FIRE", "--unit", "E1:2")
    assert result.returncode == 0
    assert '     20  45 31 00 00 00 00 00 00 ..  unit 1, name        "E1"\n' in result.stdout
    assert tool("--dry-run", "reboot").returncode == 0
    assert station.document() == before
    assert station.calls("reboot") == []


def test_decode_explains_what_is_wrong() -> None:
    result = run(GATEWAYCTL, "decode", "31", "04")
    assert result.returncode == 1
    assert result.stdout == (
        "hdtv settings, 2 bytes over TCP\n"
        "      0  31                          type                49, hdtv settings\n"
        "      1  04                          quarter turns       4\n"
        "What a unit does with it:\n"
        "  - turns the page by 360 degrees\n"
        '  - stores "0" in the configuration, if it is another value\n'
        "What is wrong with it:\n"
        '  - more than three quarter turns are stored as "0"\n'
    )


def test_decode_explains_a_record() -> None:
    result = run(GATEWAYCTL, "decode", "--record", "2f 02 00 0a 57 21 32")
    assert result.returncode == 0
    assert "hardware address    02:00:0a:57:21:32" in result.stdout


# Help.


def commands() -> list[str]:
    lines = run(GATEWAYCTL, "--help").stdout.splitlines()
    names = lines[lines.index("Subcommands:") + 1 :]
    return [line.split()[0] for line in names[: names.index("")]]


def options(*command: str) -> list[str]:
    text = run(GATEWAYCTL, *command, "--help").stdout
    words = text[text.index("Options:") :].replace(",", " ").split()
    return sorted({word for word in words if word.startswith("--") and word.strip("-")})


def test_help_teaches() -> None:
    result = run(GATEWAYCTL, "--help")
    assert (result.returncode, result.stderr) == (0, "")
    assert "Examples:\n" in result.stdout
    assert "Exit status: 0 done" in result.stdout
    assert run(GATEWAYCTL, "--version").stdout == "gatewayctl 47\n"
    assert len(commands()) == 16


def test_manual_and_completion_know_every_command_and_option() -> None:
    manual = (SOURCES / "gatewayctl.1").read_text().replace("\\-", "-")
    completion = (SOURCES / "gatewayctl.bash").read_text()
    for command in commands():
        assert f"\n.B {command}" in manual or f"\n.BR {command}" in manual, command
        for option in options(command):
            assert option == "--help" or option in manual, (command, option)
            assert option in completion, (command, option)
        assert command in completion
    for option in options():
        assert option in manual and option in completion, option


def test_manual_is_well_formed() -> None:
    result = run("man", "--warnings", "-l", "-Tutf8", str(SOURCES / "gatewayctl.1"))
    assert (result.returncode, result.stderr) == (0, "")
    assert "roll-call" in result.stdout


@pytest.mark.parametrize(
    "words, expected",
    [
        (["det"], ["detail-alert"]),
        (["--u"], ["--udp"]),
        (["--to", "x", "de"], ["decode", "detail-alert"]),
        (["detail-alert", "--un"], ["--unit"]),
        (["rotation", ""], ["0", "180", "270", "90"]),
        (["--to", "x", "roll-call", "--b"], ["--broadcast"]),
    ],
)
def test_completion(words: list[str], expected: list[str]) -> None:
    line = ["gatewayctl", *words]
    script = (
        f'source {SOURCES}/gatewayctl.bash; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1));'
        "_gatewayctl; printf '%s\\n' \"${COMPREPLY[@]}\""
    )
    result = run("bash", "-c", script, "bash", *line)
    assert sorted(result.stdout.split()) == expected, result.stderr
