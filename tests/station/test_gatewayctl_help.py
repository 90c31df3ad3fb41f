"""gatewayctl explains messages, records, and itself."""

from pathlib import Path

import pytest
from gatewayctl_support import GATEWAYCTL, Tool, run

from simulation.gateway import VERSION
from simulation.places import top_directory
from simulation.station import Station

pytestmark = pytest.mark.tool

SOURCES = top_directory() / "tools" / "gatewayctl"


# Messages and records.


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
        "  - rotates the page by 360 degrees\n"
        '  - stores "0" in the configuration, if the value differs\n'
        "What is wrong with it:\n"
        '  - more than three quarter turns are stored as "0"\n'
    )


def test_decode_explains_a_record() -> None:
    result = run(GATEWAYCTL, "decode", "--record", "2f 02 00 0a 57 21 32")
    assert result.returncode == 0
    assert "hardware address    02:00:0a:57:21:32" in result.stdout


# Help, manual and completion.


def commands() -> list[str]:
    lines = run(GATEWAYCTL, "--help").stdout.splitlines()
    names = lines[lines.index("Subcommands:") + 1 :]
    return [line.split()[0] for line in names[: names.index("")]]


def options(*command: str) -> list[str]:
    text = run(GATEWAYCTL, *command, "--help").stdout
    words = text[text.index("Options:") :].replace(",", " ").split()
    names = {word.partition("=")[0] for word in words}
    return sorted({name for name in names if name.startswith("--") and name.strip("-")})


def test_help_teaches() -> None:
    result = run(GATEWAYCTL, "--help")
    assert (result.returncode, result.stderr) == (0, "")
    assert "Examples:\n" in result.stdout
    assert "Exit status: 0 done" in result.stdout
    assert run(GATEWAYCTL, "--version").stdout == f"gatewayctl {VERSION}\n"
    assert len(commands()) == 17


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
        (["--ud"], ["--udp"]),
        (["--to", "x", "de"], ["decode", "detail-alert"]),
        (["detail-alert", "--un"], ["--unit", "--units"]),
        (["rotation", ""], ["0", "180", "270", "90"]),
        (["--to", "x", "roll-call", "--br"], ["--broadcast"]),
        (["watch", "--pr"], ["--prometheus"]),
        (["detail-alert", "--unit", "E1", ":", "w"], ["white"]),
        (["--units", "UNITS", "--to", ""], ["a1", "a2", "b"]),
        (["--units", "=", "UNITS", "end-alert", "--to", "a"], ["a1", "a2"]),
        (["--units", "UNITS", "--to", "="], ["a1", "a2", "b"]),
        (["--units", "UNITS", "end-alert", "--to", "=", "a"], ["a1", "a2"]),
        (["--units", "UNITS", "--group", "=", "e"], ["east"]),
        (["--units", "UNITS", "--group", ""], ["east", "west"]),
        (["--units", "/no/such/file", "--to", ""], []),
    ],
)
def test_completion(words: list[str], expected: list[str], inventory: Path) -> None:
    assert complete(*words, inventory=inventory) == expected


@pytest.fixture
def inventory(tmp_path: Path) -> Path:
    file = tmp_path / "units"
    file.write_text("# c 10.0.0.9\na1 h1 west\na2 h2 - # gone\nb h3 hw=02:00:0a:57:21:32 east\n")
    return file


def test_completion_runs_nothing_of_the_inventory(tmp_path: Path) -> None:
    file, trace = tmp_path / "units", tmp_path / "trace"
    file.write_text(f"$(echo>{trace}) 10.0.0.1 `echo>{trace}`\n$HOME 10.0.0.2\n")
    assert complete("--units", "UNITS", "--to", "", inventory=file) == sorted(
        [rf"\$\(echo\>{trace}\)", r"\$HOME"]
    )
    assert complete("--units", "UNITS", "--group", "", inventory=file) == [rf"\`echo\>{trace}\`"]
    assert not trace.exists()


def complete(*words: str, inventory: Path) -> list[str]:
    line = ["gatewayctl", *(str(inventory) if word == "UNITS" else word for word in words)]
    script = (
        f'source {SOURCES}/gatewayctl.bash; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1));'
        "_gatewayctl; printf '%s\\n' \"${COMPREPLY[@]}\""
    )
    result = run("bash", "-c", script, "bash", *line)
    assert result.stderr == ""
    return sorted(result.stdout.split())


def test_completion_knows_the_default_inventory(
    inventory: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.delenv("GATEWAYCTL_UNITS", raising=False)
    monkeypatch.setenv("HOME", str(tmp_path))
    (tmp_path / ".config").mkdir()
    (tmp_path / ".config" / "gatewayctl.conf").write_text('parallel=2\nunits = "~/units"\n')
    assert complete("--to", "b", inventory=inventory) == ["b"]
    monkeypatch.setenv("GATEWAYCTL_UNITS", "/dev/null")
    assert complete("--to", "b", inventory=inventory) == []
