#!/usr/bin/python3
"""Writes the table of faults into docs/reliability.md."""

import sys
from pathlib import Path

TOP = Path(__file__).resolve().parent.parent.parent
sys.path[:0] = [str(TOP), str(Path(__file__).parent)]

from faults import Outcome, Row  # noqa: E402
from table_of_faults import CANNOT_FAIL, NOT_REPLACED, TABLE  # noqa: E402

DOCUMENT = TOP / "docs" / "reliability.md"
MARK = "<!-- faults -->\n"


def numbered(row: Row) -> str:
    if row.numbers == (1,):
        return row.site
    numbers = row.numbers
    is_range = len(numbers) > 2 and numbers == tuple(range(numbers[0], numbers[-1] + 1))
    text = f"{numbers[0]} to {numbers[-1]}" if is_range else ", ".join(map(str, numbers))
    return f"{row.site}, no. {text}"


def line_of(*cells: str) -> str:
    return "| " + " | ".join(cells) + " |\n"


def table_of(outcome: Outcome) -> str:
    rows = [row for row in TABLE if row.outcome is outcome]
    has_words = outcome is not Outcome.UNHARMED
    head = ["Call", "Fails with", "When", *(["What is lost"] if has_words else [])]
    text = line_of(*head) + line_of(*["---"] * len(head))
    for row in rows:
        errors = ", ".join(row.errors.split())
        text += line_of(f"`{numbered(row)}`", errors, row.at, *([row.lost] if has_words else []))
    return text


def printed() -> str:
    cases = [case for row in TABLE for case in row.cases()]
    sites = len({row.site for row in TABLE})
    text = f"\n{sites} calls, {len(TABLE)} rows, {len(cases)} faults.\n"
    for outcome in Outcome:
        words = outcome.value
        text += f"\n### {words[0].upper()}{words[1:]}\n\n{table_of(outcome)}"
    text += "\n### Cannot fail\n\n" + line_of("Call", "Why") + line_of("---", "---")
    for site, reason in CANNOT_FAIL.items():
        text += line_of(f"`{site}`", reason)
    for reason, names in NOT_REPLACED.items():
        text += line_of(" ".join(f"`{name}`" for name in names.split()), reason)
    return text + "\n"


def with_table(text: str) -> str:
    before, _, after = text.split(MARK)
    return before + MARK + printed() + MARK + after


if __name__ == "__main__":
    DOCUMENT.write_text(with_table(DOCUMENT.read_text()))
