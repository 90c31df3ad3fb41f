"""Small faults, one at a time: does a test notice each? Needs root, like the simulated station."""

import argparse
import queue
import sys
import threading
import time
from collections import Counter
from dataclasses import dataclass, field

from mutant_list import ListError, Mutant, Rings, read_lists
from workshop import BuildError, Workshop

# Those of the quick check: they need hardly any building.
QUICK = ("bstrlib/bstrlib.cpp", "tools/wireshark/station_display.lua")

COLUMNS = ("mutants", "unit", "station", "explained", "survived")


@dataclass
class Results:
    """What has become of the mutants, from all workers."""

    lock: threading.Lock = field(default_factory=threading.Lock)
    counts: dict[str, Counter[str]] = field(default_factory=dict)
    problems: list[str] = field(default_factory=list)
    sound: dict[Rings, bool] = field(default_factory=dict)

    def note(self, mutant: Mutant, caught_by: str) -> None:
        outcome = caught_by or ("explained" if mutant.allowed else "survived")
        with self.lock:
            count = self.counts.setdefault(mutant.file, Counter())
            count["mutants"] += 1
            count[outcome] += 1
            print(f"{outcome:<9}  {mutant}", flush=True)
            if outcome == "survived":
                self.problems.append(f"{mutant.place}: survived: {mutant}")
            elif caught_by and mutant.allowed:
                self.problems.append(f"{mutant.place}: caught, though allowed to survive: {mutant}")

    def fail(self, problem: str) -> None:
        with self.lock:
            self.problems.append(problem)
            print(problem, flush=True)

    def table(self) -> str:
        rows = [[file, *(str(count[name]) for name in COLUMNS)] for file, count in self.sums()]
        heading = ["File", "Mutants", "By unit test", "By station test", "Explained", "Survived"]
        width = max(len(row[0]) for row in [heading, *rows])
        lines = [heading, *rows]
        text = [
            "| "
            + " | ".join(
                cell.ljust(width) if place == 0 else cell.rjust(len(heading[place]))
                for place, cell in enumerate(line)
            )
            + " |"
            for line in lines
        ]
        rule = "|" + "-" * (width + 2) + "|"
        rule += "|".join("-" * (len(name) + 1) + ":" for name in heading[1:]) + "|"
        return "\n".join([text[0], rule, *text[1:]])

    def sums(self) -> list[tuple[str, Counter[str]]]:
        files = sorted(self.counts.items())
        whole: Counter[str] = Counter()
        for _, count in files:
            whole.update(count)
        return [*files, ("all", whole)]


def is_sound(workshop: Workshop, rings: Rings, results: Results) -> bool:
    """Whether the rings pass without a mutant. Each is asked once."""
    if rings not in results.sound:
        results.sound[rings] = workshop.ring_that_fails(rings) == ""
        if not results.sound[rings]:
            results.fail(f"fails without a mutant: {rings}")
    return results.sound[rings]


def work(groups: "queue.SimpleQueue[list[Mutant]]", results: Results) -> None:
    workshop = Workshop()
    while not groups.empty():
        try:
            for mutant in groups.get_nowait():
                if is_sound(workshop, mutant.rings, results):
                    results.note(mutant, workshop.judge(mutant))
        except queue.Empty:
            return
        except (ListError, BuildError) as problem:
            results.fail(str(problem))


def grouped(mutants: list[Mutant]) -> "queue.SimpleQueue[list[Mutant]]":
    """By file, in groups of a few: each change of the file costs a build. The slowest first."""
    groups: queue.SimpleQueue[list[Mutant]] = queue.SimpleQueue()
    ordered = sorted(mutants, key=lambda mutant: (bool(mutant.rings.unit), mutant.file))
    while ordered:
        same = [mutant for mutant in ordered[:6] if mutant.file == ordered[0].file]
        groups.put(same)
        ordered = ordered[len(same) :]
    return groups


def run(mutants: list[Mutant], count: int) -> int:
    results = Results()
    groups = grouped(mutants)
    begin = time.monotonic()
    workers = [threading.Thread(target=work, args=(groups, results)) for _ in range(count)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    print("", results.table(), "", f"{time.monotonic() - begin:.0f} s", sep="\n")
    print(*results.problems, sep="\n")
    return 1 if results.problems else 0


def quick_ones(mutants: list[Mutant]) -> list[Mutant]:
    """The first of each quick file."""
    return [next(mutant for mutant in mutants if mutant.file == file) for file in QUICK]


def main() -> int:
    parser = argparse.ArgumentParser(prog="./scripts/mutate", description=__doc__)
    parser.add_argument(
        "filter", nargs="?", default="", help="only those whose file or text contains this"
    )
    parser.add_argument("-j", type=int, default=2, help="how many at a time (2)", dest="workers")
    parser.add_argument("--check", action="store_true", help="every mutant applies; run a few")
    parser.add_argument("--list", action="store_true", help="list them; run none")
    arguments = parser.parse_args()
    try:
        mutants = [one for one in read_lists() if arguments.filter in str(one)]
    except ListError as problem:
        print(problem, file=sys.stderr)
        return 1
    if arguments.list:
        print(*mutants, sep="\n")
        return 0
    if arguments.check:
        return run(quick_ones(mutants), 1)
    return run(mutants, arguments.workers)


if __name__ == "__main__":
    sys.exit(main())
