"""The soak itself: a short one, with what it must say."""

import os
import subprocess

import pytest

from simulation.places import top_directory

pytestmark = pytest.mark.once


def test_mixed_messages_leave_behind_what_they_may_and_no_more() -> None:
    run = subprocess.run(
        ["/usr/bin/python3", "bench/soak.py", "--messages", "2000", "--lines", "4", "--seed", "1"],
        cwd=top_directory(),
        env=os.environ | {"PYTHONPATH": str(top_directory())},
        capture_output=True,
        text=True,
        timeout=100,
    )
    assert run.returncode == 0, run.stdout + run.stderr
    lines = run.stdout.splitlines()
    assert [x.split("|")[1].strip() for x in lines if x.startswith("|")][2:] == [
        "0",
        "500",
        "1,000",
        "1,500",
        "2,000",
    ]
    assert "        0 roll calls without an answer (0)" in lines
    assert any(x.startswith("       10 descriptors, one for each") for x in lines), run.stdout
