"""Prints the coverage of each file and holds it to the floors, which may only rise: see scripts/coverage."""

import argparse
import json
import sys
from pathlib import Path
from typing import Any

KINDS = ("line", "branch")


def percent(part: dict[str, Any], kind: str) -> float:
    """Of the file or of all; a file without branches reaches all of them."""
    covered, total = int(part[f"{kind}_covered"]), int(part[f"{kind}_total"])
    return 100.0 * covered / total if total else 100.0


def row(name: str, part: dict[str, Any]) -> str:
    cells = []
    for kind in KINDS:
        counts = f"{part[f'{kind}_covered']}/{part[f'{kind}_total']}"
        cells.append(f"{counts:>9} {percent(part, kind):>6.1f} %")
    return f"| {name:<33} | {' | '.join(cells)} |"


def table(summary: dict[str, Any]) -> str:
    files = sorted(summary["files"], key=lambda file: str(file["filename"]))
    heading = f"| {'File':<33} | {'Lines':>18} | {'Branches':>18} |"
    rule = "|" + "-" * 35 + "|" + ("-" * 19 + ":|") * 2
    rows = [row(file["filename"], file) for file in files]
    return "\n".join([heading, rule, *rows, row("all", summary)])


def read_floors(path: Path) -> dict[str, float]:
    words = [line.split() for line in path.read_text().splitlines() if not line.startswith("#")]
    return {name: float(floor) for name, floor in words}


def raise_floors(path: Path, floors: dict[str, float], reached: dict[str, float]) -> None:
    """Rounded down to a tenth, and never lower than before."""
    comments = [line for line in path.read_text().splitlines() if line.startswith("#")]
    raised = {kind: max(floors[kind], int(10 * reached[kind]) / 10) for kind in KINDS}
    path.write_text("\n".join([*comments, *(f"{kind} {raised[kind]}" for kind in KINDS), ""]))


def main() -> int:
    parser = argparse.ArgumentParser(prog="./scripts/coverage", description=__doc__)
    parser.add_argument("summary", type=Path)
    parser.add_argument("floors", type=Path)
    parser.add_argument("--raise", action="store_true", dest="is_raising", help="raise the floors")
    arguments = parser.parse_args()
    summary = json.loads(arguments.summary.read_text())
    floors = read_floors(arguments.floors)
    reached = {kind: percent(summary, kind) for kind in KINDS}
    print(table(summary))
    if arguments.is_raising:
        raise_floors(arguments.floors, floors, reached)
    below = [kind for kind in KINDS if reached[kind] < floors[kind]]
    for kind in below:
        print(f"{kind} coverage is {reached[kind]:.1f} %, below its floor of {floors[kind]} %")
    return 1 if below else 0


if __name__ == "__main__":
    sys.exit(main())
