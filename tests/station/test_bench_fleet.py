"""The measurement of whole fleets: a small one, with what it must say."""

import os
import re
import subprocess

import pytest

from simulation.places import top_directory

pytestmark = [pytest.mark.once, pytest.mark.slow, pytest.mark.waits]


def test_fleet_with_dead_and_hanging_units_is_measured() -> None:
    run = subprocess.run(
        ["/usr/bin/python3", "bench/fleet.py", "--units", "2", "6", "--runs", "1"],
        cwd=top_directory(),
        env=os.environ | {"PYTHONPATH": str(top_directory())},
        capture_output=True,
        text=True,
        timeout=100,
    )
    assert run.returncode == 0, run.stdout + run.stderr
    cells = [re.split(r"\s*\|\s*", line.strip("| ")) for line in run.stdout.splitlines()]
    rows = {(size, what): row for size, what, *row in cells[2:]}
    kinds = ("roll call", "alert", "alert, first")
    assert list(rows) == [(size, what) for size in "26" for what in kinds]
    for (size, _), (asked, median, worst, lost, cpu, memory, *_) in rows.items():
        # Of six units, two are dead and one hangs.
        assert (asked, lost) == ("2" if size == "2" else "3", "0")
        assert float(median.split()[0]) <= float(worst.split()[0]) + 0.01
        assert float(cpu.split()[0]) > 0 and float(memory.split()[0]) > 0
