"""A failed test shows the end of its machine's console and where to find all of it."""

from collections.abc import Generator

import pytest
from machine import Machine

LINES = 40


@pytest.hookimpl(hookwrapper=True)  # type: ignore[misc]
def pytest_runtest_makereport(item: pytest.Function) -> Generator[None, None, None]:
    outcome = yield
    report = outcome.get_result()  # type: ignore[attr-defined]
    if report.failed:
        for machine in item.funcargs.values():
            if isinstance(machine, Machine):
                end = "\n".join(machine.console.splitlines()[-LINES:])
                report.sections.append((f"console, of {machine.console_path}", end))
