"""The lists of mutants: *.txt beside this file. README.txt explains their form."""

import re
import shlex
from dataclasses import dataclass, field, replace
from pathlib import Path

LISTS = Path(__file__).resolve().parent
TOP = LISTS.parent.parent

ARROW = " ==>"


class ListError(Exception):
    """A list cannot be used; the text says where and why."""


@dataclass(frozen=True)
class Rings:
    """What judges a mutant, the fastest first."""

    unit: tuple[str, ...] = ()  # executables of tests/unit
    station: tuple[str, ...] = ()  # arguments of pytest; files of tests/station and options


@dataclass(frozen=True)
class Mutant:
    file: str
    old: str
    new: str
    rings: Rings
    place: str  # where it is listed
    allowed: str = ""  # why it may survive

    def __str__(self) -> str:
        return f"{self.file}: {self.old}{ARROW} {self.new}"

    def applied_to(self, text: str) -> str:
        found = text.count(self.old)
        if found != 1:
            raise ListError(f"{self.place}: found {found} times in {self.file}: {self.old}")
        return text.replace(self.old, self.new)


@dataclass
class Reader:
    """Reads one list from its first line to its last."""

    name: str
    mutants: list[Mutant] = field(default_factory=list)
    file: str = ""
    rings: Rings = Rings()

    def take(self, number: int, line: str) -> None:
        place = f"{self.name}:{number}"
        if not line.strip() or line.startswith("#"):
            return
        if header := re.fullmatch(r"\[(.+)\]", line):
            self.file, self.rings = header[1], Rings()
        elif option := re.fullmatch(r"(\s*)(unit|station|allowed): (.+)", line):
            self.take_option(place, option[2], option[3], is_of_mutant=bool(option[1]))
        elif ARROW in line and self.file:
            old, _, new = line.partition(ARROW)
            self.mutants.append(Mutant(self.file, old.strip(), new.strip(), self.rings, place))
        else:
            raise ListError(f"{place}: neither a file, an option nor a mutant: {line}")

    def take_option(self, place: str, name: str, value: str, is_of_mutant: bool) -> None:
        if not is_of_mutant and name != "allowed":
            self.rings = changed(self.rings, name, value)
        elif is_of_mutant and self.mutants:
            last = self.mutants.pop()
            if name == "allowed":
                last = replace(last, allowed=value)
            else:
                last = replace(last, rings=changed(last.rings, name, value))
            self.mutants.append(last)
        else:
            raise ListError(f'{place}: "{name}" belongs to no mutant')


def changed(rings: Rings, name: str, value: str) -> Rings:
    words = tuple(shlex.split(value))
    return replace(rings, unit=words) if name == "unit" else replace(rings, station=words)


def read_lists() -> list[Mutant]:
    """All mutants. Each has been seen to apply to this tree."""
    mutants: list[Mutant] = []
    for path in sorted(LISTS.glob("*.txt")):
        if path.stem == "README":
            continue
        reader = Reader(path.name)
        for number, line in enumerate(path.read_text().splitlines(), 1):
            reader.take(number, line)
        mutants += reader.mutants
    check(mutants)
    return mutants


def check(mutants: list[Mutant]) -> None:
    problems = []
    for mutant in mutants:
        try:
            check_one(mutant)
        except (ListError, OSError) as problem:
            problems.append(str(problem))
    if problems:
        raise ListError("\n".join(problems))


def check_one(mutant: Mutant) -> None:
    mutant.applied_to((TOP / mutant.file).read_text())
    if mutant.old == mutant.new:
        raise ListError(f"{mutant.place}: changes nothing")
    if not (mutant.rings.unit or mutant.rings.station):
        raise ListError(f"{mutant.place}: nothing judges it")
    for file in mutant.rings.station:
        if file.endswith(".py") and not (TOP / "tests" / "station" / file).exists():
            raise ListError(f"{mutant.place}: there is no tests/station/{file}")
