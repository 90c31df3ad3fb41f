"""The service's size: stripped for the board, with and without libraries, and in memory."""

import argparse
import re
import subprocess
import sys
from dataclasses import dataclass
from pathlib import Path

from simulation import gateway
from simulation.places import top_directory
from simulation.station import Station


DOCUMENTS = 300


@dataclass(frozen=True)
class Size:
    what: str
    kilobytes: int
    limit: int  # maximum

    @property
    def is_too_large(self) -> bool:
        return self.kilobytes > self.limit


def main() -> int:
    parser = argparse.ArgumentParser(prog="bench/sizes", description=__doc__)
    parser.add_argument(
        "--check", action="store_true", help="exit with status 1 if any limit is exceeded"
    )
    arguments = parser.parse_args()
    sizes = [
        Size("executable for the board, stripped", stripped_size("armv6"), 36),
        Size("the same without shared libraries", stripped_size("armv6-static"), 760),
        *memory_sizes(),
    ]
    print("| What                                       |    KB | Limit |")
    print("|--------------------------------------------|------:|------:|")
    for size in sizes:
        print(f"| {size.what:<42} | {size.kilobytes:>5} | {size.limit:>5} |")
    return 1 if arguments.check and any(size.is_too_large for size in sizes) else 0


def stripped_size(preset: str) -> int:
    program = top_directory() / "build" / preset / "hdtv" / "hdtv"
    stripped = program.with_name("hdtv-stripped")
    subprocess.run(["arm-linux-gnueabi-strip", "-o", str(stripped), str(program)], check=True)
    return round(stripped.stat().st_size / 1000)


def memory_sizes() -> list[Size]:
    """On x86-64. At the same addresses each time: how much of a library is mapped at once depends on
    where it lies, which makes 140 KB."""
    with Station() as station:
        station.write_config("{}")
        service = station.start("/usr/bin/setarch", "--addr-no-randomize", *station.service_command)
        station.wait_for_calls("qt-webkit-kiosk")
        with station.on_gateway():
            for number in range(DOCUMENTS):
                gateway.deliver(station, gateway.display_alert(f"ALERT {number}"))
        rollup = Path(f"/proc/{service.pid}/smaps_rollup").read_text()
    fields = dict(re.findall(r"^(\w+): +(\d+) kB", rollup, re.MULTILINE))
    after = f"after {DOCUMENTS} documents (x86-64)"
    return [
        Size(f"resident {after}", round(int(fields["Rss"]) * 1.024), 2200),
        Size("of that, written to", round(int(fields["Private_Dirty"]) * 1.024), 250),
    ]


if __name__ == "__main__":
    sys.exit(main())
