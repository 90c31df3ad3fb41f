"""A fleet in one network: one broadcast roll call of all units, and one alert to all of them, both by
gatewayctl. Times count from the start of its process. Before the roll call and before a first alert, the
gateway's machine knows no unit's hardware address. In a fleet of four or more, two units are dead (in one
the service has ended, the other is unplugged) and one hangs: its service is stopped, and holds its port.
Exits with status 1 if an answer or a document is missing."""

import argparse
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time
from collections.abc import Iterator, Sequence
from dataclasses import dataclass
from pathlib import Path

from bench.fleet_records import TakenRecords
from simulation import gateway
from simulation.fleet import BROADCAST, MOST_UNITS, Fleet
from simulation.places import DOCUMENT, host_build_directory
from simulation.process import dying_with_starter
from simulation.station import CONFINED, Station

SIZES = (1, 10, 50, 200)
ENDED, UNPLUGGED, HANGING = SICK = 1, 2, 3  # numbers of units
ROLL_CALL, ALERT, FIRST_ALERT = "roll call", "alert", "alert, first"
PEEK = 0.002  # seconds between looks at the memory; a short run may end before it is looked at
# Without the defaults that a user may have set for gatewayctl.
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/nonexistent"}
RECORDS = 3  # of a unit that has got neither its date nor its settings


@dataclass(frozen=True)
class Cost:
    """Of one run of gatewayctl."""

    start: float  # seconds since the epoch
    seconds: float  # until its end
    cpu: float  # seconds
    memory: int  # kB at most
    output: str


@dataclass(frozen=True)
class Row:
    what: str
    asked: int  # of how many units an answer or a document is expected
    seconds: float  # to the last of them
    lost: int
    cost: Cost
    busy: float  # the processors' share in use just before


def main() -> int:
    parser = argparse.ArgumentParser(prog="bench/fleet", description=__doc__)
    parser.add_argument(
        "--units",
        type=int,
        nargs="+",
        default=SIZES,
        help=f"at most {MOST_UNITS} (default: all of 1 10 50 200)",
    )
    parser.add_argument("--runs", type=int, default=5, help="of each (default: %(default)s)")
    parser.add_argument("--healthy", action="store_true", help="no unit is dead or hangs")
    arguments = parser.parse_args()
    lost = 0
    print_heading()
    for size in arguments.units:
        with Fleet(size) as fleet:
            services = fleet.start_services()
            has_sick = size > len(SICK) and not arguments.healthy
            if has_sick:
                services[ENDED].kill()
                fleet.unplug(UNPLUGGED)
                services[HANGING].suspend()
            healthy = [x for x in range(size) if not has_sick or x not in SICK]
            rows = list(measure(fleet, healthy, arguments.runs))
        print_rows(size, rows)
        lost += sum(row.lost for row in rows)
    return 1 if lost else 0


def measure(fleet: Fleet, healthy: Sequence[int], runs: int) -> Iterator[Row]:
    for run in range(runs):
        settle(fleet, healthy)
        forget_hardware_addresses(fleet)
        yield call_roll(fleet, healthy)
        settle(fleet, healthy)
        yield alert(fleet, healthy, ALERT, f"FIRE {run}")
        settle(fleet, healthy)
        forget_hardware_addresses(fleet)
        yield alert(fleet, healthy, FIRST_ALERT, f"FIRST FIRE {run}")


def settle(fleet: Fleet, healthy: Sequence[int]) -> None:
    """Until every unit has nothing left to do."""
    for number in healthy:
        gateway.deliver(fleet, b"\0", destination=address_of(fleet, number))


def forget_hardware_addresses(fleet: Fleet) -> None:
    """As a gateway that has just been switched on: it asks all for each of them."""
    flush = fleet.start_in_gateway_network("/usr/sbin/ip", "neighbor", "flush", "dev", "gw0")
    assert flush.wait() == 0, flush.errors


def address_of(fleet: Fleet, number: int) -> str:
    return str(fleet.identities[number].address)


def call_roll(fleet: Fleet, healthy: Sequence[int]) -> Row:
    busy = busy_share()
    with TakenRecords(fleet) as taken:
        cost = run_gatewayctl(fleet, "roll-call", "--broadcast", BROADCAST, "--json")
        last = max(taken.times(), default=cost.start)
    answers = {x["address"]: x for x in map(json.loads, cost.output.splitlines())}
    whole = [
        number
        for number in healthy
        if (answer := answers.get(address_of(fleet, number)))
        and answer["version"] == gateway.VERSION
        and len(answer["asks_for"]) == RECORDS - 1
    ]
    return Row(ROLL_CALL, len(healthy), last - cost.start, len(healthy) - len(whole), cost, busy)


def alert(fleet: Fleet, healthy: Sequence[int], what: str, text: str) -> Row:
    busy = busy_share()
    with tempfile.NamedTemporaryFile() as inventory:
        fleet.write_inventory(Path(inventory.name))
        message = ("detail-alert", "--text", text, "--unit", "E1:2", "--turnout", "120")
        cost = run_gatewayctl(fleet, "--units", inventory.name, *message)
    times = [written(fleet.units[number], text) for number in healthy]
    last = max((x for x in times if x is not None), default=cost.start)
    return Row(what, len(healthy), last - cost.start, times.count(None), cost, busy)


def written(unit: Station, text: str) -> float | None:
    """When its document with this text was written, to a tick of the kernel."""
    if unit.document().get("alert_area") != text:
        return None
    return unit.path(DOCUMENT).stat().st_mtime


def run_gatewayctl(fleet: Fleet, *arguments: str) -> Cost:
    program = host_build_directory() / "tools" / "gatewayctl" / "gatewayctl"
    command = dying_with_starter(["setpriv", *CONFINED, "--", str(program), *arguments])
    with tempfile.TemporaryFile("w+") as output:
        start = time.time()
        with fleet.on_gateway():
            running = subprocess.Popen(
                command, stdout=output, stderr=subprocess.DEVNULL, env=ENVIRONMENT
            )
        memory = 0
        while not has_ended(running.pid):
            memory = peak_memory(running.pid) or memory
            time.sleep(PEEK)
        seconds, cpu = time.time() - start, cpu_seconds(running.pid)
        running.wait()
        output.seek(0)
        return Cost(start, seconds, cpu, memory, output.read())


def has_ended(pid: int) -> bool:
    """It is not reaped yet: what it has used can still be read."""
    return os.waitid(os.P_PID, pid, os.WEXITED | os.WNOWAIT | os.WNOHANG) is not None


def cpu_seconds(pid: int) -> float:
    """As the scheduler counts it."""
    return int(Path(f"/proc/{pid}/schedstat").read_text().split()[0]) / 1e9


def peak_memory(pid: int) -> int:
    """In kB; 0 of a process that has ended."""
    status = Path(f"/proc/{pid}/status").read_text()
    return next((int(x.split()[1]) for x in status.splitlines() if x.startswith("VmHWM:")), 0)


def busy_share() -> float:
    before = processor_times()
    time.sleep(0.5)
    all_of_it, idle = (y - x for x, y in zip(before, processor_times(), strict=True))
    return 1 - idle / all_of_it


def processor_times() -> tuple[int, int]:
    """All and idle, in the kernel's clock ticks."""
    fields = [int(x) for x in Path("/proc/stat").read_text().split("\n")[0].split()[1:]]
    return sum(fields), fields[3] + fields[4]


def print_heading() -> None:
    print(
        "| Units | What         | Answers from |     Last after |      Worst | Lost | CPU time |   Memory "
        "| Ends after | Busy before |"
    )
    print(
        "|------:|--------------|-------------:|---------------:|-----------:|-----:|---------:|---------:"
        "|-----------:|------------:|"
    )


def print_rows(size: int, rows: Sequence[Row]) -> None:
    for what in dict.fromkeys(row.what for row in rows):
        of_it = [row for row in rows if row.what == what]
        seconds = [row.seconds for row in of_it]
        cpu = statistics.median(row.cost.cpu for row in of_it)
        memory = max(row.cost.memory for row in of_it)
        print(
            f"| {size:5} | {what:12} | {of_it[0].asked:12} | {statistics.median(seconds):12.3f} s "
            f"| {max(seconds):8.3f} s | {sum(row.lost for row in of_it):4} | {1000 * cpu:5.0f} ms "
            f"| {memory:5} kB | {statistics.median(row.cost.seconds for row in of_it):8.2f} s "
            f"| {statistics.median(row.busy for row in of_it):11.0%} |",
            flush=True,
        )


if __name__ == "__main__":
    sys.exit(main())
