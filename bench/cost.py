"""What an alert costs: the system calls and user instructions of the service, counted by single steps,
beside those of the least program on the same event loop; and the same of the board's build, counted by
the emulator."""

import argparse
import os
import socket
import sys
from collections.abc import Callable
from dataclasses import dataclass

from bench.turns import EmulatorLog, StepLog, Turn
from simulation import gateway
from simulation.gateway import COMMAND_PORT, Unit
from simulation.places import BIN, UNIT_ADDRESS
from simulation.places import build_directory, host_build_directory, top_directory
from simulation.process import Process
from simulation.station import EMULATOR_OPTIONS, Station
from simulation.waiting import wait_for

BARE_PORT = 4001
REPORT = "/tmp/steps"
REPETITIONS = 5  # of each message; the least counts
SLOW = 600.0  # seconds: single steps take their time

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


# Of the service, on x86-64 and on the board.
LIMITS = {
    "display alert, 14 letters": Limit(9_500, 14),
    "detail alert, four units": Limit(15_000, 17),
    "display alert, 4,000 letters": Limit(17_000, 14),
    "display alert, 1,000 quotation marks": Limit(60_000, 14),
    START_UP: Limit(400_000),
    TICK: Limit(1_500),
}
BOARD_LIMITS = {
    "display alert, 14 letters": Limit(15_000, 17),
    "detail alert, four units": Limit(24_000, 20),
    "display alert, 4,000 letters": Limit(45_000, 17),
    "display alert, 1,000 quotation marks": Limit(60_000, 17),
    TICK: Limit(2_500),
}


class Counted:
    """A program whose instructions are counted. On the board its start-up is not: there it would look
    for its libraries elsewhere."""

    def __init__(self, station: Station, port: int, *command: str) -> None:
        self._station = station
        self._port = port
        path = f"{REPORT}.{port}"
        self._log: StepLog | EmulatorLog
        self.has_start_up = not is_for_board()
        if self.has_start_up:
            self._log = StepLog(station.path(path))
            start = [f"{BIN}/step-counter", path]
        else:
            # Without an environment, which would move the stack.
            self._log = EmulatorLog(station.path(path))
            emulator = f"{BIN}/arm/hdtv"
            start = ["/usr/bin/env", "-i", emulator, *EmulatorLog.OPTIONS, path, *EMULATOR_OPTIONS]
        self.process: Process = station.start(*start, *command)
        wait_for(
            lambda: self.turns() or not self.process.is_running(), "the start-up", deadline=SLOW
        )
        assert self.process.is_running(), self.process.errors

    def turns(self) -> list[Turn]:
        return self._log.turns()

    def costs(self) -> dict[str, Cost]:
        costs = {name: self.message(content) for name, content in MESSAGES.items()}
        return {**costs, START_UP: self.start_up()} if self.has_start_up else costs

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
        "--check",
        action="store_true",
        help="the service alone; exit with status 1 if any limit is exceeded",
    )
    arguments = parser.parse_args()
    exceeds = report("x86-64", LIMITS, *measure(arguments.check))
    # Every station from here on is for this build.
    os.environ["HDTV_BUILD"] = str(top_directory() / "build" / "armv6")
    print()
    exceeds |= report("ARMv6", BOARD_LIMITS, *measure(arguments.check))
    return 1 if arguments.check and exceeds else 0


def is_for_board() -> bool:
    return build_directory() != host_build_directory()


def measure(is_service_enough: bool) -> tuple[dict[str, Cost], dict[str, Cost]]:
    programs = {
        "step-counter": host_build_directory() / "bench" / "bench-step-counter",
        "bare-writer": build_directory() / "bench" / "bench-bare-writer",
    }
    with Station(programs=programs) as station:
        station.write_config("{}")
        program = [f"{BIN}/hdtv"]
        running = Counted(station, COMMAND_PORT, *program)
        service = {**running.costs(), TICK: running.clock_tick()}
        running.process.kill()
    if is_service_enough:
        return service, {}
    with Station(programs=programs) as station:
        program = [f"{BIN}/bare-writer", str(BARE_PORT), "/dev/shm/bare.json", "/tmp/bare.log"]
        bare = Counted(station, BARE_PORT, *program).costs()
    return service, bare


def report(
    title: str, limits: dict[str, Limit], service: dict[str, Cost], bare: dict[str, Cost]
) -> bool:
    """Whether a limit is exceeded."""
    heading = f"{title}: calls / instructions"
    print(f"| {heading:<36} |          Service |        Limit |        Least |")
    print(
        "|--------------------------------------|-----------------:|-------------:|-------------:|"
    )
    for name, cost in service.items():
        limit = limits[name]
        most = f"{limit.calls or '':>3} {limit.instructions:>8,}"
        least = f"{bare[name].calls:>3} {bare[name].instructions:>8,}" if name in bare else ""
        print(f"| {name:<36} | {cost.calls:>3} {cost.instructions:>12,} | {most} | {least:>12} |")
    return any(limits[name].is_exceeded_by(cost) for name, cost in service.items())


if __name__ == "__main__":
    sys.exit(main())
