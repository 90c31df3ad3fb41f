"""An alert's latency and costs: the service and a bare program compared with programs in other languages
that go the same way. All take turns. A program whose command is missing is skipped."""

import argparse
import shutil
import subprocess
import sys
from collections.abc import Iterable, Mapping
from dataclasses import dataclass
from pathlib import Path

from bench import receivers
from bench.receivers import BARE, Figures, Receiver
from simulation.places import BIN, host_build_directory
from simulation.station import Station

PROGRAMS = Path(__file__).with_name("peers_programs")
RUST_PROGRAM = "receiver-rust"


@dataclass(frozen=True)
class Peer:
    name: str
    needs: str  # a command
    source: str  # among PROGRAMS
    command: tuple[str, ...]  # in the station; its port, document and log follow


PEERS = (
    Peer("Rust, standard library", "rustc", "receiver.rs", (f"{BIN}/{RUST_PROGRAM}",)),
    Peer("Node", "node", "receiver.js", (f"{BIN}/node", f"{BIN}/receiver.js")),
    Peer("Python, asyncio", "python3", "receiver.py", ("/usr/bin/python3", f"{BIN}/receiver.py")),
    # The connection becomes the script's standard input and output.
    Peer(
        "shell script behind socat",
        "socat",
        "receiver.sh",
        (
            "/bin/sh",
            "-c",
            f'exec {BIN}/socat "TCP-LISTEN:$0,fork,reuseaddr" "EXEC:{BIN}/receiver.sh $1 $2,nofork"',
        ),
    ),
)


def main() -> None:
    parser = argparse.ArgumentParser(prog="bench/peers", description=__doc__)
    parser.add_argument("--alerts", type=int, default=1000, help="to each (default: %(default)s)")
    parser.add_argument(
        "--letters", type=int, default=40, help="of the texts (default: %(default)s)"
    )
    arguments = parser.parse_args()
    peers = [peer for peer in PEERS if is_available(peer)]
    with Station(programs=lent_programs(peers)) as station:
        running = [receivers.start_service(station), receivers.start_bare(station)]
        running += start(station, peers)
        report(receivers.measure(station, running, arguments.alerts, arguments.letters))


def is_available(peer: Peer) -> bool:
    if shutil.which(peer.needs):
        return True
    print(f"Skipping {peer.name}: there is no {peer.needs}", file=sys.stderr)
    return False


def lent_programs(peers: Iterable[Peer]) -> Mapping[str, Path]:
    """Interpreters, too: this machine may have them where a station sees nothing."""
    programs = receivers.bench_programs("bare-writer")
    for peer in peers:
        programs[peer.source] = PROGRAMS / peer.source
        if peer.needs == "rustc":
            programs[RUST_PROGRAM] = compile_rust(PROGRAMS / peer.source)
        elif f"{BIN}/{peer.needs}" in " ".join(peer.command):
            programs[peer.needs] = Path(shutil.which(peer.needs) or "").resolve()
    return programs


def compile_rust(source: Path) -> Path:
    program = host_build_directory() / "bench" / f"bench-{RUST_PROGRAM}"
    subprocess.run(["rustc", "-O", "-o", program, source], check=True)
    return program


def start(station: Station, peers: Iterable[Peer]) -> list[Receiver]:
    return [
        receivers.start_other(station, peer.name, number, *peer.command)
        for number, peer in enumerate(peers, start=2)
    ]


def report(figures: Mapping[str, Figures]) -> None:
    bare = figures[BARE]
    print(
        "|                           |     Median |        p90 |   CPU time | Resident "
        "| Median, to bare | CPU, to bare |"
    )
    print(
        "|---------------------------|-----------:|-----------:|-----------:|---------:"
        "|----------------:|-------------:|"
    )
    for name, x in figures.items():
        times = "".join(f" {y:7,.0f} us |" for y in (x.median, x.percentile(90), x.cpu))
        ratios = f" {x.median / bare.median:15.2f} | {x.cpu / bare.cpu:12.2f} |"
        print(f"| {name:25} |{times} {x.resident:5} kB |{ratios}")


if __name__ == "__main__":
    main()
