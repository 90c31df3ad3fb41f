"""What an alert takes, from connect() to the new document, and what it costs: the service compared with
a bare program, which takes turns with it."""

import argparse

from bench import receivers
from bench.receivers import BARE, SERVICE, Figures
from simulation.station import Station


def main() -> None:
    parser = argparse.ArgumentParser(prog="bench/alert_latency", description=__doc__)
    parser.add_argument("--alerts", type=int, default=5000, help="to each (default: %(default)s)")
    parser.add_argument(
        "--letters",
        type=int,
        nargs="+",
        default=[40, 3900],
        help="of the texts, one run after the other (default: 40 3900)",
    )
    arguments = parser.parse_args()
    with Station(programs=receivers.bench_programs("bare-writer")) as station:
        both = [receivers.start_service(station), receivers.start_bare(station)]
        for letters in arguments.letters:
            report(letters, receivers.measure(station, both, arguments.alerts, letters))


def report(letters: int, figures: dict[str, Figures]) -> None:
    title = f"{letters} letters"
    print(f"{title:14}{'median':>11}{'p90':>11}{'p99':>11}{'CPU':>11}{'resident':>11}")
    for name, x in figures.items():
        values = (x.median, x.percentile(90), x.percentile(99), x.cpu)
        print(f"{name:14}" + "".join(f"{y:8.1f} us" for y in values) + f"{x.resident:8} kB")
    service, bare = figures[SERVICE], figures[BARE]
    ratios = f"median {service.median / bare.median:.2f}, CPU {service.cpu / bare.cpu:.2f}"
    print(f"service to bare program: {ratios}")


if __name__ == "__main__":
    main()
