"""A plot for each question of bench/growth: an SVG that differs between two runs only in its data."""

from collections.abc import Callable
from pathlib import Path

import matplotlib
from matplotlib.axes import Axes
from matplotlib.figure import Figure
from matplotlib.ticker import FuncFormatter, NullFormatter, NullLocator

from bench.growth_load import Row

BLUE, ORANGE, GREEN, GRAY = "#0060a8", "#c85000", "#207840", "#606060"
MARKS = {"worst": (ORANGE, "^"), "p99": (GREEN, "s"), "median": (BLUE, "o")}
BACK_OFF = (1, 3, 7, 15)  # seconds after connect(), when its packet is sent again

STYLE = {
    "svg.fonttype": "none",  # texts stay texts
    "svg.hashsalt": "growth",
    "font.family": "sans-serif",
    "font.size": 11,
    "axes.spines.top": False,
    "axes.spines.right": False,
    "axes.grid": True,
    "grid.color": "#e0e0e0",
    "axes.axisbelow": True,
    "lines.linewidth": 1.8,
    "lines.markersize": 5,
    "legend.frameon": False,
    "savefig.facecolor": "white",
}


def plot(name: str, rows: list[Row], directory: Path) -> None:
    directory.mkdir(parents=True, exist_ok=True)
    with matplotlib.rc_context(STYLE):
        figure = Figure(figsize=(7.5, 4.2), layout="constrained")
        DRAWINGS[name](figure, rows)
        figure.savefig(directory / f"{name}.svg", metadata={"Date": None, "Creator": None})


def column(rows: list[Row], title: str) -> list[float]:
    return [row[title] for row in rows]


def draw_clients(figure: Figure, rows: list[Row]) -> None:
    axes = new_axes(figure, "Parallel clients", "clients at once", "time of an alert")
    clients = column(rows, "clients")
    draw_times(axes, rows, clients, "worst", "p99", "median")
    for seconds in BACK_OFF:
        axes.axhline(1000 * seconds, color=GRAY, linewidth=1, linestyle=":")
        note(axes, f"SYN again: {seconds} s", (0.95, 1000 * seconds), "left")
    for row in rows:
        if row["done"] < row["clients"]:
            place = (row["clients"], row["worst ms"])
            note(axes, f"{row['done']:.0f} served", place, "center")
    logarithmic(axes, clients)
    axes.set_ylim(top=40_000)
    axes.set_xlim(left=0.9)
    figure.set_size_inches(7.5, 5)
    axes.legend(loc="center right")


def note(axes: Axes, text: str, place: tuple[float, float], alignment: str) -> None:
    axes.annotate(
        text,
        place,
        xytext=(0, 3),
        textcoords="offset points",
        ha=alignment,
        color=GRAY,
        fontsize=9,
    )


def draw_times(axes: Axes, rows: list[Row], places: list[float], *titles: str) -> None:
    """In milliseconds on a logarithmic scale."""
    for title in titles:
        color, mark = MARKS[title]
        axes.plot(
            places, column(rows, f"{title} ms"), color=color, marker=mark, label=f"{title} alert"
        )
    axes.set_yscale("log")
    axes.yaxis.set_major_formatter(FuncFormatter(lambda value, _: duration(value)))


def duration(value: float) -> str:
    return f"{value / 1000:g} s" if value >= 1000 else f"{value:g} ms"


def draw_sizes(figure: Figure, rows: list[Row]) -> None:
    axes = new_axes(figure, "Long alerts", "letters in the text", "microseconds")
    letters = column(rows, "letters")
    for text, label, color in (("plain", "letters", BLUE), ("quotes", "quotation marks", ORANGE)):
        times, cpu = (column(rows, f"{text} {kind} us") for kind in ("median", "CPU"))
        axes.plot(letters, times, color=color, marker="o", label=f"{label}: median time")
        axes.plot(letters, cpu, color=color, marker="s", linestyle="--", label=f"{label}: CPU time")
    from_zero(axes)
    axes.legend(ncols=2, loc="upper left")


def draw_log(figure: Figure, rows: list[Row]) -> None:
    axes = new_axes(figure, "A long log", "size of the log in MB", "microseconds")
    sizes = column(rows, "log MB")
    for title, label, color in (("median us", "median time", BLUE), ("CPU us", "CPU time", GREEN)):
        axes.plot(sizes, column(rows, title), color=color, marker="o", label=label)
    axes.set_xscale("symlog", linthresh=1)
    label_places(axes, sizes)
    from_zero(axes)
    axes.legend(loc="lower right")


def draw_bus(figure: Figure, rows: list[Row]) -> None:
    axes = new_axes(figure, "Bursts on the television bus", "notifications at once", "time")
    counts = column(rows, "notifications")
    axes.plot(
        counts, column(rows, "all taken ms"), color=GRAY, marker="D", label="until all are taken"
    )
    draw_times(axes, rows, counts, "worst", "median")
    logarithmic(axes, counts)
    axes.legend(loc="upper left")


def draw_roll_calls(figure: Figure, rows: list[Row]) -> None:
    answered, times = figure.subplots(2, sharex=True)
    calls = column(rows, "roll calls")
    answered.set_title("Roll calls at once", loc="left")
    answered.plot(calls, calls, color=GRAY, linestyle=":", label="sent")
    answered.plot(calls, column(rows, "answered"), color=BLUE, marker="o", label="answered")
    answered.set_ylabel("roll calls")
    answered.legend(loc="upper left")
    times.plot(calls, column(rows, "all answered ms"), color=BLUE, marker="o", label="all answers")
    times.plot(calls, column(rows, "worst ms"), color=ORANGE, marker="^", label="slowest alert")
    times.set(xlabel="roll calls at once", ylabel="milliseconds")
    times.legend(loc="upper left")
    from_zero(answered)
    from_zero(times)


def draw_days(figure: Figure, rows: list[Row]) -> None:
    figure.set_size_inches(7.5, 6.5)
    days = column(rows, "day")
    names = ("resident kB", "descriptors", "children")
    for axes, name in zip(figure.subplots(3, sharex=True), names):
        axes.plot(
            days,
            column(rows, f"expected {name}"),
            color=ORANGE,
            linewidth=4,
            alpha=0.4,
            label="by the documented leaks",
        )
        axes.plot(days, column(rows, name), color=BLUE, label="held by the service")
        axes.set_ylabel(name.replace("resident kB", "resident memory in kB"))
        axes.set_xlim(0, days[-1])
        axes.set_ylim(bottom=0, top=1.2 * axes.get_ylim()[1])
    figure.axes[0].legend(loc="lower right")
    figure.axes[0].set_title("Whole days", loc="left")
    figure.axes[-1].set_xlabel("days")


def new_axes(figure: Figure, title: str, x: str, y: str) -> Axes:
    axes = figure.subplots()
    axes.set_title(title, loc="left")
    axes.set(xlabel=x, ylabel=y)
    return axes


def from_zero(axes: Axes) -> None:
    axes.set_xlim(left=0)
    axes.set_ylim(bottom=0, top=1.25 * axes.get_ylim()[1])


def logarithmic(axes: Axes, places: list[float]) -> None:
    axes.set_xscale("log")
    label_places(axes, places)


def label_places(axes: Axes, places: list[float]) -> None:
    axes.set_xticks(places, [f"{place:,.0f}" for place in places])
    axes.xaxis.set_minor_locator(NullLocator())
    axes.xaxis.set_minor_formatter(NullFormatter())


DRAWINGS: dict[str, Callable[[Figure, list[Row]], None]] = {
    "clients": draw_clients,
    "sizes": draw_sizes,
    "log": draw_log,
    "bus": draw_bus,
    "roll-calls": draw_roll_calls,
    "days": draw_days,
}
