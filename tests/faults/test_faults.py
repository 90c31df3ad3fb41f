"""A sample of the table of faults, and the table itself."""

import subprocess
from pathlib import Path

import pytest
from day import LIBRARY, Day
from faults import Case, Outcome, Row, check, name_of
from printed_table import DOCUMENT, with_table
from script import FIRST_RUN, LAST_STEPS, SECOND_RUN
from table_of_faults import CANNOT_FAIL, NOT_REPLACED, TABLE
from usual_day import usual  # noqa: F401

from simulation.places import build_directory

pytestmark = pytest.mark.once

SAMPLE = [next(row.cases()) for row in TABLE if row.is_sample]


def test_day_without_a_fault_has_all_its_steps(usual: Day) -> None:
    assert list(usual.steps) == [*FIRST_RUN, *SECOND_RUN]


@pytest.mark.parametrize("case", SAMPLE, ids=name_of)
def test_fault(case: Case, usual: Day) -> None:
    check(case, usual)


def symbols(kind: str, path: Path) -> set[str]:
    command = ["nm", "-D", "--format=posix", f"--{kind}-only", str(path)]
    lines = subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()
    return {line.split()[0].partition("@")[0] for line in lines}


def test_every_function_that_the_service_calls_is_replaced_or_need_not_be() -> None:
    called = symbols("undefined", build_directory() / "hdtv" / "hdtv")
    listed = {name for names in NOT_REPLACED.values() for name in names.split()}
    assert called - symbols("defined", LIBRARY) - listed == set()


def test_table_has_every_call_that_the_day_comes_by(usual: Day) -> None:
    met = {site for sites in usual.sites.values() for site in sites}
    assert met == {row.site for row in TABLE} | set(CANNOT_FAIL)


def test_day_comes_by_every_row(usual: Day) -> None:
    missed = [row for row in TABLE if usual.sites[row.at][row.site] < max(row.numbers)]
    assert missed == []


def test_rows_are_consistent() -> None:
    for row in TABLE:
        is_harmed = row.outcome in (Outcome.WHOLE_AGAIN, Outcome.UNTIL_START)
        assert bool(row.differs or row.end) == (is_harmed or row.outcome is Outcome.ENDED), row
        assert bool(row.lost) == (row.outcome is not Outcome.UNHARMED), row
        if row.outcome is Outcome.WHOLE_AGAIN:
            assert not last_steps_of(row), row


def last_steps_of(row: Row) -> list[str]:
    """Of those that show that it is whole again, the ones in which it is not."""
    return [step for step in LAST_STEPS for aspect in row.differs if row.may_differ(step, aspect)]


def test_document_has_the_table() -> None:
    """If not: tests/faults/printed_table.py writes it."""
    text = DOCUMENT.read_text()
    assert with_table(text) == text
