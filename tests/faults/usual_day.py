"""The fixture that the tests with faults share."""

import pytest
from day import Day, Rehearsal


@pytest.fixture(scope="session")
def usual() -> Day:
    """The day without a fault."""
    return Rehearsal().play()
