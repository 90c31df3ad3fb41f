"""The comparison with programs in other languages."""

import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest

from simulation.places import top_directory

pytestmark = [pytest.mark.once, pytest.mark.slow]

COMMANDS = ("ip", "nsenter", "python3", "setpriv", "socat")


def test_peers_are_compared_and_missing_ones_skipped_with_a_word(tmp_path: Path) -> None:
    for command in COMMANDS:
        (tmp_path / command).symlink_to(shutil.which(command) or "")
    top = top_directory()
    environment = {**os.environ, "PATH": str(tmp_path), "PYTHONPATH": str(top)}
    run = subprocess.run(
        ["/usr/bin/python3", "-B", top / "bench" / "peers.py", "--alerts", "20"],
        env=environment,
        capture_output=True,
        text=True,
    )
    assert run.returncode == 0, run.stderr
    assert run.stderr.splitlines() == [
        "Skipping Rust, standard library: there is no rustc",
        "Skipping Node: there is no node",
    ]
    cells = [re.split(r"\s*\|\s*", line.strip("| ")) for line in run.stdout.splitlines()]
    rows = {name: [float(x.split()[0].replace(",", "")) for x in row] for name, *row in cells[2:]}
    names = ["service", "bare program", "Python, asyncio", "shell script behind socat"]
    assert list(rows) == names
    for median, p90, cpu, resident, *_ in rows.values():
        assert 0 < median <= p90 and cpu > 0 and resident > 0
    assert rows["bare program"][-2:] == [1, 1]
    # Thousands of instructions, a whole interpreter, several processes.
    assert rows["service"][-1] < rows["shell script behind socat"][-1]
