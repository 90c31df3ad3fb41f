"""How the service behaves as its load grows: parallel clients, long messages, a long log, bursts of the
television bus and of roll calls, and accelerated days. A table for each question, and a plot if wanted."""

import argparse
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from pathlib import Path

from bench.growth_day import measure_days
from bench.growth_load import (
    Row,
    measure_bus,
    measure_clients,
    measure_log,
    measure_roll_calls,
    measure_sizes,
)


@dataclass(frozen=True)
class Scale:
    clients: Sequence[int]
    alerts_of_each: int
    letters: Sequence[int]
    log_megabytes: Sequence[int]
    rounds: int
    notifications: Sequence[int]
    bursts: int
    roll_calls: Sequence[int]
    days: int


FULL = Scale(
    clients=(1, 2, 4, 8, 16, 32, 64),
    alerts_of_each=20,
    letters=(14, 100, 500, 1000, 2000, 3000, 4000),
    log_megabytes=(0, 1, 10, 100, 300, 1000),
    rounds=300,
    notifications=(1, 10, 100, 1000, 10_000, 100_000),
    bursts=20,
    roll_calls=(1, 25, 50, 100, 200, 400, 800),
    days=14,
)
QUICK = Scale(
    clients=(1, 2),
    alerts_of_each=5,
    letters=(14, 4000),
    log_megabytes=(0, 1000),
    rounds=2,
    notifications=(1, 100),
    bursts=2,
    roll_calls=(1, 20),
    days=1,
)


@dataclass(frozen=True)
class Question:
    text: str
    measure: Callable[[Scale], list[Row]]


QUESTIONS = {
    "clients": Question(
        "Parallel clients, each sending alerts one after another: connect() to the connection's end",
        lambda scale: measure_clients(scale.clients, scale.alerts_of_each),
    ),
    "sizes": Question(
        "The length of a display alert: connect() to the line in the log, and processor time",
        lambda scale: measure_sizes(scale.letters, scale.rounds),
    ),
    "log": Question(
        "The length of the log: connect() to the line in the log, and processor time",
        lambda scale: measure_log(scale.log_megabytes, scale.rounds),
    ),
    "bus": Question(
        "A burst on the television bus (median of several), and the alerts sent meanwhile",
        lambda scale: measure_bus(scale.notifications, scale.bursts),
    ),
    "roll-calls": Question(
        "Roll calls at once, three records each, and the alerts sent meanwhile",
        lambda scale: measure_roll_calls(scale.roll_calls),
    ),
    "days": Question(
        "Whole days as fast as they go: what the service holds, and what it should",
        lambda scale: measure_days(scale.days),
    ),
}


def main() -> None:
    parser = argparse.ArgumentParser(prog="bench/growth", description=__doc__)
    parser.add_argument("--quick", action="store_true", help="small loads, to see that it works")
    parser.add_argument("--plots", type=Path, metavar="DIR", help="write an SVG for each question")
    parser.add_argument(
        "question", nargs="*", metavar="QUESTION", help=f"of {', '.join(QUESTIONS)}; all by default"
    )
    arguments = parser.parse_args()
    if unknown := set(arguments.question) - set(QUESTIONS):
        parser.error(f"no such question: {', '.join(sorted(unknown))}")
    for name in arguments.question or QUESTIONS:
        rows = QUESTIONS[name].measure(QUICK if arguments.quick else FULL)
        print("\n".join([QUESTIONS[name].text, "", *table(rows), ""]), flush=True)
        if arguments.plots:
            from bench.growth_plots import plot  # its library is installed only for plots

            plot(name, rows, arguments.plots)


def table(rows: list[Row]) -> list[str]:
    titles = list(rows[0])
    texts = [[figure(row[title]) for title in titles] for row in rows]
    widths = [max(map(len, column)) for column in zip(titles, *texts)]
    line = "|".join("-" * (width + 1) + ":" for width in widths)
    return [_line(titles, widths), f"|{line}|", *(_line(row, widths) for row in texts)]


def _line(words: Sequence[str], widths: Sequence[int]) -> str:
    return "| " + " | ".join(f"{word:>{width}}" for word, width in zip(words, widths)) + " |"


def figure(value: float) -> str:
    """Whole numbers whole, others with as many digits as they need."""
    if value == int(value) or value >= 1000:
        return f"{value:,.0f}"
    return f"{value:.{2 if value < 100 else 0}f}"


if __name__ == "__main__":
    main()
