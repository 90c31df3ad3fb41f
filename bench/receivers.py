"""Receivers of alerts in one station, which take turns: how long each one's alerts take, and what they
cost it."""

import os
import statistics
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

from simulation.gateway import COMMAND_PORT
from simulation.places import ALERT_LOG, BIN, DOCUMENT, UNIT_ADDRESS
from simulation.places import host_build_directory
from simulation.process import Process
from simulation.station import Station
from simulation.waiting import wait_for

SERVICE = "service"
BARE = "bare program"

WARM_UP = 200  # at most so many alerts to each, before those that count
BATCHES = 5  # of those that count
CLOCK_TICK = 1_000_000 / os.sysconf("SC_CLK_TCK")  # microseconds

# This machine's may name places that the unit does not have.
UNIT_PATH = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin"}


@dataclass(frozen=True)
class Receiver:
    name: str
    process: Process
    port: int
    document: str
    log: str


@dataclass(frozen=True)
class Figures:
    times: list[float]  # microseconds from connect() to the document, one for each alert
    cpu: float  # microseconds for an alert, of the program and of the system for it
    resident: int  # kilobytes

    @property
    def median(self) -> float:
        return statistics.median(self.times)

    def percentile(self, number: int) -> float:
        return statistics.quantiles(self.times, n=100)[number - 1]


def bench_programs(*names: str) -> dict[str, Path]:
    """For the station: the named ones and the one that sends the alerts."""
    bench = host_build_directory() / "bench"
    return {name: bench / f"bench-{name}" for name in ("alert-client", *names)}


def start_service(station: Station) -> Receiver:
    station.write_config("{}")
    process = station.start_service()
    station.wait_for_calls("qt-webkit-kiosk")
    return Receiver(SERVICE, process, COMMAND_PORT, DOCUMENT, ALERT_LOG)


def start_other(station: Station, name: str, number: int, *command: str) -> Receiver:
    """A program that takes its port, its document and its log as arguments. Each in the station has
    another number."""
    port, document, log = COMMAND_PORT + number, f"/dev/shm/{number}.json", f"/tmp/{number}.log"
    process = station.start(*command, str(port), document, log, environment=UNIT_PATH)
    receiver = Receiver(name, process, port, document, log)
    wait_for(lambda: station.listen_queue(port) == 0 or not process.is_running(), name, deadline=30)
    assert process.is_running(), process.errors
    return receiver


def start_bare(station: Station) -> Receiver:
    return start_other(station, BARE, 1, f"{BIN}/bare-writer")


def measure(
    station: Station, receivers: Sequence[Receiver], alerts: int, letters: int
) -> dict[str, Figures]:
    _send(station, receivers, min(WARM_UP, alerts), letters)
    times: list[list[float]] = [[] for _ in receivers]
    costs: list[list[float]] = [[] for _ in receivers]
    # The median batch: what else the machine does may leave one of them with cold caches.
    size = max(alerts // BATCHES, 2)
    for _ in range(BATCHES):
        before = [_cpu_time(receiver.process.pid) for receiver in receivers]
        for i, batch in enumerate(_send(station, receivers, size, letters)):
            times[i] += batch
        for i, receiver in enumerate(receivers):
            costs[i].append((_cpu_time(receiver.process.pid) - before[i]) / size)
    return {
        x.name: Figures(times[i], statistics.median(costs[i]), _resident(x.process.pid))
        for i, x in enumerate(receivers)
    }


def _send(
    station: Station, receivers: Sequence[Receiver], alerts: int, letters: int
) -> list[list[float]]:
    """Returns the times of each receiver."""
    # Inside the unit: the unit's files are nobody else's to read.
    command = [f"{BIN}/alert-client", UNIT_ADDRESS, str(alerts), str(letters)]
    for receiver in receivers:
        command += [str(receiver.port), receiver.document, receiver.log]
    run = station.start(*command)

    def has_ended() -> bool:
        return not all(x.is_running() for x in (run, *(y.process for y in receivers)))

    wait_for(has_ended, "the alerts", deadline=600)
    for receiver in receivers:
        assert receiver.process.is_running(), receiver.name + receiver.process.errors
    assert run.wait() == 0, run.errors
    times: list[list[float]] = [[] for _ in receivers]
    for line in run.output.splitlines():
        number, nanoseconds = line.split()
        times[int(number)].append(int(nanoseconds) / 1000)
    return times


def _cpu_time(pid: int) -> float:
    """Microseconds, of all its threads and of the children that it has waited for."""
    threads = Path(f"/proc/{pid}/task").glob("*/schedstat")
    own = sum(int(thread.read_text().split()[0]) for thread in threads) / 1000
    fields = Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return own + (int(fields[13]) + int(fields[14])) * CLOCK_TICK


def _resident(pid: int) -> int:
    rollup = Path(f"/proc/{pid}/smaps_rollup").read_text()
    return int(next(x for x in rollup.splitlines() if x.startswith("Rss:")).split()[1])
