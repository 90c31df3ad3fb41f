"""bench/growth at its smallest: every table has its rows, and every client is served."""

import subprocess
import sys

import pytest

from simulation.places import build_directory, top_directory

pytestmark = [pytest.mark.once, pytest.mark.slow]

Table = list[dict[str, float]]


def run_growth(*arguments: str) -> dict[str, Table]:
    """The tables by their first columns."""
    result = subprocess.run(
        [sys.executable, "-B", str(top_directory() / "bench" / "growth.py"), *arguments],
        env={"PATH": "/usr/sbin:/usr/bin", "PYTHONPATH": ".", "HDTV_BUILD": str(build_directory())},
        cwd=top_directory(),
        capture_output=True,
        text=True,
        timeout=120,
    )
    assert result.returncode == 0, result.stdout + result.stderr
    tables = [read_table(part) for part in result.stdout.split("\n\n") if part.startswith("|")]
    return {next(iter(table[0])): table for table in tables}


def read_table(text: str) -> Table:
    titles, _, *rows = [
        [cell.strip().replace(",", "") for cell in line.strip("|").split("|")]
        for line in text.splitlines()
    ]
    return [dict(zip(titles, map(float, row), strict=True)) for row in rows]


def column(table: Table, title: str) -> list[float]:
    return [row[title] for row in table]


def test_every_question_is_answered_in_full() -> None:
    tables = run_growth("--quick")
    assert {title: column(table, title) for title, table in tables.items()} == {
        "clients": [1, 2],
        "letters": [14, 4000],
        "log MB": [0, 1000],
        "notifications": [1, 100],
        "roll calls": [1, 20],
        "day": [0, 0.25, 0.5, 0.75, 1],
    }
    assert column(tables["clients"], "done") == [1, 2]
    assert column(tables["clients"], "alerts") == [5, 10]
    assert column(tables["roll calls"], "answered") == [1, 20]
    assert min(column(tables["notifications"], "alerts")) >= 1
    for held in ("descriptors", "children"):
        assert column(tables["day"], held) == column(tables["day"], f"expected {held}")


def test_only_the_questions_asked_are_answered() -> None:
    assert list(run_growth("--quick", "log", "sizes")) == ["log MB", "letters"]
