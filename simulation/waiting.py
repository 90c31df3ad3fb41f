"""Waits for conditions with a deadline, never for a fixed time."""

import time
from collections.abc import Callable
from typing import TypeVar

T = TypeVar("T")

# Generous: it only matters when something has gone wrong.
DEADLINE = 60.0


def wait_for(
    condition: Callable[[], T], what: str, deadline: float = DEADLINE, pace: float = 0.002
) -> T:
    """Returns the first truthy result of condition, which is tried again at this pace. All in seconds."""
    end = time.monotonic() + deadline
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise TimeoutError(f"not within {deadline:g} s: {what}")
        time.sleep(pace)
