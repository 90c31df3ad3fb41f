"""What an alert costs: the system calls and user instructions of the service, counted by single steps,
beside those of the least program on the same event loop."""

import argparse
import socket
import sys
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

from simulation import gateway
from simulation.gateway import COMMAND_PORT, Unit
from simulation.station import UNIT_ADDRESS, Process, Station, build_directory
from simulation.waiting import wait_for

BARE_PORT = 4001
REPORT = "/tmp/steps"
BIN = "/run/station/bin"
REPETITIONS = 5  # of each message; the least counts
SLOW = 600.0  # seconds: single steps take their time

# Their numbers on x86-64.
WRITE, ACCEPT, SENDTO, RECVFROM, STAT = 1, 43, 44, 45, 262

FOUR_UNITS = {slot: Unit(f"E{slot + 1}", slot + 1) for slot in range(4)}
MESSAGES = {
    "display alert, 14 letters": gateway.display_alert("STRUCTURE FIRE"),
    "detail alert, four units": gateway.detail_alert("STRUCTURE FIRE", FOUR_UNITS, turnout_end=120),
    "display alert, 4,000 letters": gateway.display_alert("X" * 4000),
    "display alert, 1,000 quotation marks": gateway.display_alert('"' * 1000),
}
START_UP, TICK = "start-up", "clock tick"


@dataclass(frozen=True)
class Cost:
    instructions: int
    calls: int


@dataclass(frozen=True)
class Limit:
    instructions: int
    calls: int | None = None

    def is_exceeded_by(self, cost: Cost) -> bool:
        has_too_many_calls = self.calls is not None and cost.calls > self.calls
        return cost.instructions > self.instructions or has_too_many_calls


# Of the service.
LIMITS = {
    "display alert, 14 letters": Limit(9_500, 14),
    "detail alert, four units": Limit(15_000, 17),
    "display alert, 4,000 letters": Limit(17_000, 14),
    "display alert, 1,000 quotation marks": Limit(60_000, 14),
    START_UP: Limit(400_000),
    TICK: Limit(1_500),
}


@dataclass(frozen=True)
class Turn:
    """Of the event loop, its next wait included."""

    instructions: int
    calls: tuple[int, ...]

    @property
    def is_message(self) -> bool:
        return ACCEPT in self.calls

    @property
    def is_clock_tick(self) -> bool:
        """It looks at the browser and kicks the watchdog; the others do something else."""
        return self.calls.count(STAT) == 1 and self.calls.count(WRITE) == 1 and len(self.calls) == 3


class Counted:
    """A program that runs by single steps."""

    def __init__(self, station: Station, port: int, *command: str) -> None:
        self._station = station
        self._port = port
        self._report = station.path(f"{REPORT}.{port}")
        self.process: Process = station.start(f"{BIN}/step-counter", f"{REPORT}.{port}", *command)
        wait_for(lambda: len(self.turns()) > 0, "the start-up", deadline=SLOW)

    def turns(self) -> list[Turn]:
        lines = self._report.read_text().splitlines(keepends=True) if self._report.exists() else []
        fields = [line.split() for line in lines if line.endswith("\n")]
        return [Turn(int(count), tuple(map(int, x.split(",")))) for count, x in fields]

    def start_up(self) -> Cost:
        return cost_of(self.turns()[:1])

    def message(self, content: bytes) -> Cost:
        """The first one of a kind may start an alert or grow a buffer."""
        self._send(content)
        return cost_of([self._send(content) for _ in range(REPETITIONS)])

    def clock_tick(self) -> Cost:
        return cost_of(self._new(lambda turn: turn.is_clock_tick, REPETITIONS))

    def _send(self, content: bytes) -> Turn:
        before = len(self.turns())
        with self._station.on_gateway(), socket.create_connection(
            (UNIT_ADDRESS, self._port), SLOW
        ) as connection:
            connection.sendall(content)
        return self._new(lambda turn: turn.is_message, 1, before)[0]

    def _new(self, is_wanted: Callable[[Turn], bool], count: int, before: int = 0) -> list[Turn]:
        def found() -> list[Turn]:
            return [turn for turn in self.turns()[max(before, 1) :] if is_wanted(turn)]

        wait_for(lambda: len(found()) >= count, "the turns of the event loop", deadline=SLOW)
        return found()[-count:]


def cost_of(turns: list[Turn]) -> Cost:
    """The least: the others have shared their turn with a timer."""
    least = min(turns, key=lambda turn: turn.instructions)
    return Cost(least.instructions, len(least.calls))


def main() -> int:
    parser = argparse.ArgumentParser(prog="bench/cost", description=__doc__)
    parser.add_argument(
        "--check", action="store_true", help="exit with status 1 if any limit is exceeded"
    )
    arguments = parser.parse_args()
    service, bare = measure()
    report(service, bare)
    return (
        1 if arguments.check and any(LIMITS[x].is_exceeded_by(y) for x, y in service.items()) else 0
    )


def measure() -> tuple[dict[str, Cost], dict[str, Cost]]:
    bench = build_directory() / "bench"
    programs = {name: bench / f"bench-{name}" for name in ("step-counter", "bare-writer")}
    with Station(programs=programs) as station:
        station.write_config("{}")
        running = Counted(station, COMMAND_PORT, *station.service_command)
        service = {name: running.message(content) for name, content in MESSAGES.items()}
        service[START_UP] = running.start_up()
        service[TICK] = running.clock_tick()
        running.process.kill()
    with Station(programs=programs) as station:
        command = [f"{BIN}/bare-writer", str(BARE_PORT), "/dev/shm/bare.json", "/tmp/bare.log"]
        running = Counted(station, BARE_PORT, *command)
        bare = {name: running.message(content) for name, content in MESSAGES.items()}
        bare[START_UP] = running.start_up()
    return service, bare


def report(service: dict[str, Cost], bare: dict[str, Cost]) -> None:
    print(
        "| System calls / user instructions     |          Service |        Limit |        Least |"
    )
    print(
        "|--------------------------------------|-----------------:|-------------:|-------------:|"
    )
    for name, cost in service.items():
        limit = LIMITS[name]
        most = f"{limit.calls or '':>3} {limit.instructions:>8,}"
        least = f"{bare[name].calls:>3} {bare[name].instructions:>8,}" if name in bare else ""
        print(f"| {name:<36} | {cost.calls:>3} {cost.instructions:>12,} | {most} | {least:>12} |")


if __name__ == "__main__":
    sys.exit(main())
