"""Every row of the table of faults: ./scripts/check --faults

It takes minutes, so other runs do not find it by its name.
"""

import pytest
from day import Day
from faults import Case, check, name_of
from table_of_faults import TABLE
from usual_day import usual  # noqa: F401

pytestmark = pytest.mark.once


@pytest.mark.parametrize("case", [case for row in TABLE for case in row.cases()], ids=name_of)
def test_fault(case: Case, usual: Day) -> None:
    check(case, usual)
