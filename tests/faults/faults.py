"""A row of the table of faults: what comes of a call that fails, and how it is checked."""

import errno
import pprint
from collections.abc import Iterator, Mapping
from dataclasses import dataclass, field
from enum import Enum

from day import Day, Fault, Rehearsal
from ledger import SHORT
from observation import differences
from script import FIRST_RUN, SECOND_RUN

_STEPS = [*FIRST_RUN, *SECOND_RUN]
_SHORT = "short"


class Outcome(Enum):
    UNHARMED = "unharmed"
    WHOLE_AGAIN = "harmed, then whole"
    UNTIL_START = "harmed until the next start"
    ENDED = "ended because it must"


@dataclass(frozen=True)
class Case:
    """One row with one of its errors, at one of its calls."""

    row: "Row"
    error: str
    number: int

    @property
    def fault(self) -> Fault:
        error = SHORT if self.error == _SHORT else getattr(errno, self.error)
        return Fault(self.row.site, error, self.row.at, self.number - 1)


def name_of(case: Case) -> str:
    return f"{case.row.site}, {case.error}, {case.row.at}, {case.number}".replace("/", "|")


@dataclass(frozen=True)
class Row:
    site: str
    errors: str  # names, with blanks between them; "short" is half a transfer
    at: str  # the step in which the call fails
    outcome: Outcome
    lost: str = ""  # what is lost, or what happens instead, in words
    # The aspects that are not as usual: in one step, or from one to another ("start to date"). In the
    # first of these steps every one of them is not as usual.
    differs: Mapping[str, str] = field(default_factory=dict)
    end: str = ""  # how the service ends in this step
    numbers: tuple[int, ...] = (1,)  # of the calls in the step that fail, one in each case
    is_sample: bool = False

    def cases(self) -> Iterator[Case]:
        for number in self.numbers:
            for error in self.errors.split():
                yield Case(self, error, number)

    def steps_of(self, aspect: str) -> list[str]:
        first, _, last = self.differs.get(aspect, "").partition(" to ")
        if not first:
            return []
        return _STEPS[_STEPS.index(first) : _STEPS.index(last or first) + 1]

    def may_differ(self, step: str, aspect: str) -> bool:
        return step in self.steps_of(aspect)

    @property
    def is_without_rest(self) -> bool:
        return self.end in ("waits", "busy")


def play(case: Case, usual: Day) -> Day:
    row = case.row
    is_restarted = row.outcome in (Outcome.UNTIL_START, Outcome.ENDED)
    # What never rests need not be waited for long.
    patience = 2.0 if row.is_without_rest else 15.0
    return Rehearsal(case.fault, usual, row.may_differ, is_restarted, patience).play()


def check(case: Case, usual: Day) -> None:
    row, day = case.row, play(case, usual)
    assert day.has_struck, "the day does not come by this call"
    assert day.ends == ({row.at: row.end} if row.end else {})
    different = {step: differences(seen, usual.steps[step]) for step, seen in day.steps.items()}
    unexpected = {
        f"{aspect}: {step}": difference
        for step, aspects in different.items()
        for aspect, difference in aspects.items()
        if not row.may_differ(step, aspect)
    }
    assert not unexpected, pprint.pformat(unexpected)
    for aspect in row.differs:
        first = row.steps_of(aspect)[0]
        assert aspect in different[first], f"as usual: {aspect} in the step {first}"
