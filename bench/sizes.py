"""The service's size: stripped for the board, with and without libraries, and in memory."""

import argparse
import re
import subprocess
import sys
from dataclasses import dataclass
from pathlib import Path

from simulation import gateway
from simulation.station import Station, top_directory


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
        Size("resident memory after 1000 alerts (x86-64)", resident_size(), 2300),
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


def resident_size() -> int:
    with Station() as station:
        station.write_config("{}")
        service = station.start_service()
        station.wait_for_calls("qt-webkit-kiosk")
        with station.on_gateway():
            for number in range(1000):
                gateway.send(station, gateway.display_alert(f"ALERT {number}"))
        status = Path(f"/proc/{service.pid}/status").read_text()
    match = re.search(r"VmRSS:\s+(\d+) kB", status)
    assert match
    return round(int(match[1]) * 1.024)


if __name__ == "__main__":
    sys.exit(main())
