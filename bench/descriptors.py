"""How many descriptors a process holds for good."""

import os
import time


def count_descriptors(pid: int) -> int:
    """The least of some looks: a connection may be about to close."""
    counts = []
    for _ in range(200):
        counts.append(len(os.listdir(f"/proc/{pid}/fd")))
        time.sleep(0.001)
    return min(counts)
