"""The time from connect() to the new document: the service compared with a bare program."""

import argparse
import statistics
from pathlib import Path

from simulation.gateway import COMMAND_PORT
from simulation.station import ALERT_LOG, DOCUMENT, UNIT_ADDRESS, Process, Station, build_directory
from simulation.waiting import wait_for

BARE = "bare program"
SERVICE = "service"
BARE_PORT, BARE_DOCUMENT, BARE_LOG = 4001, "/dev/shm/bare.json", "/tmp/bare.log"
WARM_UP = 200


def main() -> None:
    parser = argparse.ArgumentParser(prog="bench/alert_latency", description=__doc__)
    parser.add_argument("--alerts", type=int, default=5000, help="to each (default: %(default)s)")
    arguments = parser.parse_args()
    bench = build_directory() / "bench"
    programs = {name: bench / f"bench-{name}" for name in ("bare-writer", "alert-client")}
    with Station(programs=programs) as station:
        service = station.start_service()
        station.wait_for_calls("qt-webkit-kiosk")
        bare = station.start(
            "/run/station/bin/bare-writer", str(BARE_PORT), BARE_DOCUMENT, BARE_LOG
        )
        wait_for(lambda: station.listen_queue(BARE_PORT) == 0, "the bare program")
        times = measure(station, arguments.alerts + WARM_UP)
        report(times, {SERVICE: service, BARE: bare})


def measure(station: Station, count: int) -> dict[str, list[float]]:
    """Microseconds for each alert. The two receivers alternate."""
    targets = {
        SERVICE: (COMMAND_PORT, DOCUMENT, ALERT_LOG),
        BARE: (BARE_PORT, BARE_DOCUMENT, BARE_LOG),
    }
    # Inside the unit: the unit's files are nobody else's to read.
    command = ["/run/station/bin/alert-client", UNIT_ADDRESS, str(count)]
    for port, document, log in targets.values():
        command += [str(port), document, log]
    run = station.start(*command)
    wait_for(lambda: not run.is_running(), "the alerts", deadline=600)
    assert run.wait() == 0, run.errors
    times: dict[str, list[float]] = {name: [] for name in targets}
    for line in run.output.splitlines()[WARM_UP * len(targets) :]:
        number, nanoseconds = line.split()
        times[list(targets)[int(number)]].append(int(nanoseconds) / 1000)
    return times


def report(times: dict[str, list[float]], processes: dict[str, Process]) -> None:
    print(f"{'':14}{'median':>9}{'p90':>9}{'p99':>9}{'resident':>11}")
    for name, values in times.items():
        cuts = statistics.quantiles(values, n=100)
        resident = resident_kilobytes(processes[name].pid)
        print(f"{name:14}{cuts[49]:6.1f} us{cuts[89]:6.1f} us{cuts[98]:6.1f} us{resident:8} kB")
    ratio = statistics.median(times[SERVICE]) / statistics.median(times[BARE])
    print(f"median, service to bare program: {ratio:.2f}")


def resident_kilobytes(pid: int) -> int:
    status = Path(f"/proc/{pid}/status").read_text()
    return int(next(x for x in status.splitlines() if x.startswith("VmRSS:")).split()[1])


if __name__ == "__main__":
    main()
