"""What gatewayctl says when something is not available, and that its output is harmless."""

import socket
import subprocess
from pathlib import Path

import pytest
from gatewayctl_support import GATEWAYCTL, Tool, gatewayctl_command, run
from support import busy_service

from simulation.places import UNIT_ADDRESS
from simulation.process import Process
from simulation.station import Station

pytestmark = pytest.mark.tool

PAGES = "page takes one of an address, --blank, --card and --status"
PAGE = "http://127.0.0.1/station_web/"


def test_unit_whose_service_is_down(station: Station) -> None:
    result = run(*gatewayctl_command(station, "--to", UNIT_ADDRESS, "end-alert"))
    assert result.returncode == 1
    assert result.stderr == (
        "gatewayctl: cannot connect to 10.87.33.50:4000: Connection refused"
        " (the machine is up, but the service is not running)\n"
    )


def test_unit_that_is_not_there(station: Station) -> None:
    result = run(
        *gatewayctl_command(station, "--to", "10.87.33.77", "--timeout", "100ms", "end-alert")
    )
    assert result.returncode == 1
    assert result.stderr == "gatewayctl: 10.87.33.77:4000 does not answer\n"


def test_unit_that_is_busy(station: Station, service: Process) -> None:
    with busy_service(station):
        result = run(
            *gatewayctl_command(station, "--to", UNIT_ADDRESS, "--timeout", "100ms", "end-alert")
        )
    assert result.returncode == 1
    assert result.stderr.startswith("gatewayctl: the message was sent, but 10.87.33.50:4000")


def test_name_that_nobody_knows() -> None:
    result = run(GATEWAYCTL, "--to", "no-such-unit.invalid", "end-alert")
    assert result.returncode == 1
    assert result.stderr.startswith('gatewayctl: cannot resolve "no-such-unit.invalid": ')


@pytest.mark.parametrize(
    "arguments, words",
    [
        ([], "no command given: see gatewayctl --help for a list"),
        (["shout"], "not expected: shout"),
        (["end-alert"], "no unit given: use --to HOST[:PORT]"),
        (["--to", "127.0.0.1:x", "end-alert"], '"x" is not a port'),
        (["--to", "x", "--udp", "map", "http://x"], "map works over TCP only"),
        (["--to", "x", "--udp", "stop-turnout"], "stop-turnout works over TCP only"),
        (["--dry-run", "roll-call"], "roll-call shows what units answer"),
        (["--dry-run", "serve"], "serve shows what units answer"),
        (["--dry-run", "watch"], "watch shows what units answer"),
        (["--to", "x", "display-alert"], "--text is required"),
        (["--to", "x", "display-alert", "--text", "y", "--turnout", "65536"], "0 to 65535"),
        (["--to", "x", "detail-alert", "--text", "y", "--unit", "E1:mauve"], "neither a number"),
        (["--to", "x", "rotation", "45"], "0, 90, 180 or 270"),
        (["--to", "x", "page"], PAGES),
        (["--to", "x", "page", "y", "--blank"], PAGES),
        (["--to", "x", "page", "y", "--card"], PAGES),
        (["--to", "x", "page", "--card", "--status"], PAGES),
        (["--to", "x", "page", "--framed", "--status"], "--framed takes an address"),
        (["--to", "x", "page", "--framed", "10.87.33.20/a"], "--framed takes an http://"),
        (["--to", "x", "page", "--framed", PAGE], "the station page cannot be framed"),
        (
            ["--to", "x", "page", "--framed", "http://x/" + 498 * "é"],
            "3005 bytes when it is percent-encoded; --framed takes at most 3000",
        ),
        (["--to", "x", "play-audio", "http://x/clip.mp3"], 'to end in ".wav" or ".raw"'),
        (["--to", "x", "set-gateway", "gateway"], '"gateway" is not an IPv4 address'),
        (["--to", "x", "raw", "3"], "a hexadecimal byte needs two digits"),
        (["--to", "x", "raw"], "as hexadecimal words or with --file"),
        (["--to", "x", "raw", "--file", "/dev/null"], "the message is empty"),
        (["--to", "x", "--broadcast", "y", "roll-call"], "--broadcast"),
        (["roll-call", "--wait", "soon"], '"soon" is not a duration such as 2s, 500ms or 5min'),
        (["serve", "--rotation", "45"], "0, 90, 180 or 270"),
        (["decode"], "as hexadecimal words or with --file"),
    ],
)
def test_what_cannot_be_asked_for_is_said_with_status_2(arguments: list[str], words: str) -> None:
    result = run(GATEWAYCTL, *arguments)
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr.startswith("gatewayctl: ")
    assert words in result.stderr


# Mostly a variable of a script that is not set: it would ask for all units, or for 0.
@pytest.mark.parametrize(
    "arguments",
    [
        ["--group", "", "reboot", "--yes"],
        ["--units", "", "end-alert"],
        ["--to", "", "end-alert"],
        ["--failed-to", "", "end-alert"],
        ["--timeout", "", "end-alert"],
        ["--bind", "", "end-alert"],
        ["--config", "", "end-alert"],
        ["rotation", ""],
        ["turnout-timer", ""],
        ["set-date", ""],
        ["display-alert", "--text", "FIRE", "--flag", ""],
        ["detail-alert", "--text", "FIRE", "--unit", ""],
        ["map", ""],
        ["raw", "31", "", "--dry-run"],
        ["decode", "--file", ""],
        ["--dry-run", "roll-call", "--expect", ""],
        ["--dry-run", "roll-call", "--broadcast", ""],
        ["--dry-run", "watch", "--listen", ""],
    ],
)
def test_empty_value_is_refused(arguments: list[str]) -> None:
    result = run(GATEWAYCTL, *arguments)
    assert (result.returncode, result.stdout) == (2, "")
    assert "the value is empty" in result.stderr


def test_text_of_an_alert_may_be_empty() -> None:
    for command in ("display-alert", "detail-alert"):
        assert "text" in run(GATEWAYCTL, "--dry-run", command, "--text", "").stdout


def test_file_that_cannot_be_read() -> None:
    result = run(GATEWAYCTL, "decode", "--file", "/no/such/file")
    assert result.returncode == 1
    assert result.stderr == "gatewayctl: cannot open /no/such/file: No such file or directory\n"


# Terminal control characters, as single bytes and in UTF-8; and one that reverses text.
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


# What decode finds fault with is not sent by accident.

FAULTY = ["detail-alert", "--text", "FIRE", "--unit", 'E"1:blue']
FAULT = "unit 1: a quotation mark in a name makes the alert document unreadable"


def test_message_with_a_fault_needs_force(station: Station, tool: Tool) -> None:
    before = station.document()
    result = tool(*FAULTY)
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == (
        f"gatewayctl: warning: {FAULT}\n"
        "gatewayctl: nothing was sent; --force sends it all the same\n"
    )
    assert station.document() == before
    result = tool("--force", "raw", "31", "01", "00")
    assert result.returncode == 0
    assert result.stdout.startswith("3 bytes taken by ")
    assert result.stderr == "gatewayctl: warning: nothing is read from offset 2 on\n"
    assert station.wait_for_calls("qt-webkit-kiosk", 2)[-1].argv[-1].endswith("?rotation=90")


@pytest.mark.parametrize("arguments, status", [(FAULTY, 1), (["end-alert"], 0)])
def test_dry_run_ends_as_decode_does(arguments: list[str], status: int) -> None:
    result = run(GATEWAYCTL, "--dry-run", *arguments)
    assert result.returncode == status
    assert (f"  - {FAULT}\n" in result.stdout) == bool(status)


@pytest.mark.parametrize(
    "message, options",
    [
        (b"", []),
        (b"1" * 5000, []),
        (b"4http://x/map.png", ["--udp"]),
        (b"\x2b", ["--udp"]),
    ],
)
def test_dry_run_explains_even_what_cannot_be_sent(
    message: bytes, options: list[str], tmp_path: Path
) -> None:
    file = tmp_path / "message"
    file.write_bytes(message)
    result = run(GATEWAYCTL, *options, "--dry-run", "raw", "--file", str(file))
    decoded = run(GATEWAYCTL, *options, "decode", "--file", str(file))
    assert (result.returncode, result.stdout, result.stderr) == (1, decoded.stdout, "")
    assert decoded.returncode == 1


@pytest.mark.parametrize("command", [["map", "http://x/map.png"], ["stop-turnout"]])
def test_dry_run_explains_why_it_is_not_for_udp(command: list[str]) -> None:
    result = run(GATEWAYCTL, "--udp", "--dry-run", *command)
    assert (result.returncode, result.stderr) == (1, "")
    assert "TCP" in result.stdout


def test_program_that_answers_is_no_unit() -> None:
    with socket.create_server(("127.0.0.1", 0)) as server:
        unit = "{}:{}".format(*server.getsockname())
        with subprocess.Popen(
            [GATEWAYCTL, "--to", unit, "end-alert"],
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
        ) as tool:
            connection, _ = server.accept()
            with connection:
                connection.sendall(b"HTTP/1.1 400 Bad Request\r\n\r\n")
            output, errors = tool.communicate(timeout=30)
    assert (tool.returncode, output) == (1, "")
    assert errors == (
        f"gatewayctl: something else than a unit is listening at {unit}: it answers, which no unit"
        " does\n"
    )
