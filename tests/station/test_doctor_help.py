"""hdtv-doctor explains itself."""

import re

import pytest
from doctor_support import DOCTOR
from gatewayctl_support import run

from simulation.gateway import VERSION
from simulation.places import top_directory

pytestmark = [pytest.mark.tool, pytest.mark.once]

TOP = top_directory()
SOURCES = TOP / "tools" / "doctor"
HELP = run(str(DOCTOR), "--help").stdout if DOCTOR.exists() else ""


def options() -> set[str]:
    words = HELP[HELP.index("Options:") : HELP.index("Run it as root")].replace(",", " ").split()
    return {word for word in words if word.startswith("--")}


def test_help_teaches() -> None:
    assert "Exit status: 0 no FAIL; 1 a FAIL" in HELP
    assert run(str(DOCTOR), "--version").stdout == f"hdtv-doctor {VERSION}\n"
    assert options() == {"--help", "--json", "--watch", "--stop-service", "--version"}


@pytest.mark.parametrize("arguments", [["--foo"], ["word"], ["--watch", "--stop-service"]])
def test_invalid_request_looks_at_nothing(arguments: list[str]) -> None:
    result = run(str(DOCTOR), *arguments)
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr.startswith("hdtv-doctor: ")
    assert result.stderr.endswith("See hdtv-doctor --help.\n")


def test_manual_and_completion_know_every_option() -> None:
    manual = (SOURCES / "hdtv-doctor.1").read_text().replace("\\-", "-")
    completion = (SOURCES / "hdtv-doctor.bash").read_text()
    for option in options():
        assert option in manual and option in completion, option


def test_manual_is_well_formed() -> None:
    result = run("man", "--warnings", "-l", "-Tutf8", str(SOURCES / "hdtv-doctor.1"))
    assert (result.returncode, result.stderr) == (0, "")
    assert "say what is wrong" in result.stdout


def test_completion() -> None:
    script = (
        f"source {SOURCES}/hdtv-doctor.bash; COMP_WORDS=(hdtv-doctor --); COMP_CWORD=1;"
        "_hdtv_doctor; printf '%s\\n' \"${COMPREPLY[@]}\""
    )
    assert set(run("bash", "-c", script).stdout.split()) == options()


def test_every_chapter_is_there() -> None:
    """Those that the next steps refer to."""
    chapters = re.findall(r'char \*\w+ = "(.+)";', (SOURCES / "finding.h").read_text())
    assert len(chapters) == 9
    operations = (TOP / "docs" / "operations.md").read_text()
    assert [chapter for chapter in chapters if f"\n## {chapter}\n" not in operations] == []


def test_every_program_of_the_service_is_looked_for() -> None:
    programs = re.findall(r"char \*(\w+) = ", (TOP / "hdtv" / "programs.h").read_text())
    machine = (SOURCES / "machine.cpp").read_text()
    assert len(programs) == 13
    assert [name for name in programs if f"{{programs::{name}," not in machine] == []
