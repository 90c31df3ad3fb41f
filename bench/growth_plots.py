"""A plot for each question of bench/growth: an SVG that differs between two runs only in its data."""

from collections.abc import Callable
from pathlib import Path

import matplotlib
from matplotlib.axes import Axes
from matplotlib.figure import Figure
from matplotlib.ticker import FuncFormatter, NullFormatter, NullLocator

from bench.growth_load import Row

BLUE, ORANGE, GREEN, GRAY = "#0060a8", "#c85000", "#207840", "#606060"
BACK_OFF = (1, 3, 7)  # seconds after connect(), when its packet is sent again

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
    axes = new_axes(figure, "Alerts of parallel clients", "clients at once", "time of an alert")
    clients = column(rows, "clients")
    draw_times(axes, rows, clients)
    for seconds in BACK_OFF:
        axes.axhline(1000 * seconds, color=GRAY, linewidth=1, linestyle=":")
        axes.annotate(
            f"queue full: again after {seconds} s",
            (1, 1000 * seconds),
            xytext=(0, 2),
            textcoords="offset points",
            color=GRAY,
            fontsize=9,
        )
    logarithmic(axes, clients)
    axes.legend(loc="center right")


def draw_times(axes: Axes, rows: list[Row], places: list[float]) -> None:
    """Worst, p99 and median, in milliseconds on a logarithmic scale."""
    for title, color, mark in (("worst", ORANGE, "^"), ("p99", GREEN, "s"), ("median", BLUE, "o")):
        axes.plot(places, column(rows, f"{title} ms"), color=color, marker=mark, label=title)
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
    axes.plot(counts, column(rows, "all taken ms"), color=GRAY, marker="D", label="until all taken")
    draw_times(axes, rows, counts)
    logarithmic(axes, counts)
    axes.legend(title="alerts meanwhile:", loc="upper left")


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
        axes.set_ylim(bottom=0)
        axes.margins(x=0)
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
