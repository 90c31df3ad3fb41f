"""A very long day: mixed messages on both channels, and what they leave behind as they go on. Exits with
status 1 if that is more than what is left behind on purpose."""

import argparse
import random
import sys
from collections import Counter
from collections.abc import Callable, Iterable, Iterator
from dataclasses import dataclass
from pathlib import Path

from bench.descriptors import count_descriptors
from simulation import gateway
from simulation.gateway import GATEWAY, OTHER_GATEWAY, Unit
from simulation.places import ALERT_LOG, build_directory
from simulation.process import Process
from simulation.station import Station, is_for_arm

DATAGRAMS_AT_ONCE = 20
# What leaves something behind comes this often, however many messages there are: a unit has a limit of
# descriptors and of processes.
MOST_OF_A_KIND = 100
CHILDREN_OF_A_CLIP = 3
# The time in a line of the log is kept, in 80 bytes of heap.
MOST_BYTES_OF_A_DOCUMENT = 100
HEAP_TO_SPARE = 256  # kB
ROLL_CALL_REPLY = b"\x02"

ROLL_CALL, UNANSWERED, CLIP, REBOOT, PAGE = (
    "roll calls",
    "roll calls to a closed port",
    "clips",
    "reboots",
    "addresses of pages",
)
DATAGRAM, CONNECTION = "other datagrams", "other connections"


@dataclass(frozen=True)
class Figures:
    messages: int
    documents: int
    descriptors: int
    children: int
    resident: int  # kB
    heap: int  # kB


def main() -> int:
    parser = argparse.ArgumentParser(prog="bench/soak", description=__doc__)
    parser.add_argument("--messages", type=int, default=100_000, help="default: %(default)s")
    parser.add_argument("--lines", type=int, default=10, help="of figures (default: %(default)s)")
    parser.add_argument("--seed", type=int, default=random.randrange(2**32))
    arguments = parser.parse_args()
    print(f"{arguments.messages:,} messages, seed {arguments.seed}", flush=True)
    with Station() as station, gateway.record_listener(station) as records:
        station.write_config('{"rotation":"0"}')
        service = station.start_service()
        station.wait_for_calls("qt-webkit-kiosk")
        warm_up(station)
        before = measure(station, service, 0, 0)
        answers = -count_answers(records)
        print_heading()
        print_figures(before)
        messages = mixed_messages(random.Random(arguments.seed), arguments.messages)
        step = max(arguments.messages // arguments.lines, 1)
        sent, after = soak(station, service, messages, step, before)
        gateway.deliver(station, gateway.display_alert("ALIVE"))
        assert station.document()["alert_area"] == "ALIVE", service.errors
        assert service.is_running(), service.errors
        answers += count_answers(records)
    return judge(before, after, sent, answers)


def warm_up(station: Station) -> None:
    for _ in range(100):
        gateway.deliver(station, gateway.detail_alert("WARM UP", {0: Unit("E1", 1)}))


Sender = Callable[[Station], None]


def soak(
    station: Station,
    service: Process,
    messages: Iterable[tuple[str, Sender]],
    step: int,
    figures: Figures,
) -> tuple[Counter[str], Figures]:
    """The figures are those before it."""
    sent: Counter[str] = Counter()
    for number, (kind, send) in enumerate(messages, 1):
        send(station)
        sent[kind] += 1
        if number % DATAGRAMS_AT_ONCE == 0 or number % step == 0:
            gateway.deliver(station, b"\0")  # so that no datagram is dropped
        if number % step == 0:
            figures = measure(station, service, number, figures.documents)
            print_figures(figures)
    return sent, figures


def mixed_messages(source: random.Random, count: int) -> Iterator[tuple[str, Sender]]:
    rare = rare_messages(source, count)
    for number in range(count):
        if number in rare:
            yield rare[number]
        elif source.random() < 0.05:
            yield ROLL_CALL, datagram(gateway.roll_call())
        elif source.random() < 0.3:
            yield DATAGRAM, datagram(random_message(source))
        else:
            yield CONNECTION, connection(random_message(source))


def rare_messages(source: random.Random, count: int) -> dict[int, tuple[str, Sender]]:
    of_a_kind = min(MOST_OF_A_KIND, count // 200)
    rare = [
        (UNANSWERED, datagram(gateway.roll_call(), OTHER_GATEWAY)),
        (CLIP, connection(gateway.play_clip("http://10.87.33.20/clip.wav"))),
        (REBOOT, connection(gateway.reboot())),
        (PAGE, connection(gateway.set_page_address("http://10.87.33.20/page"))),
    ] * of_a_kind
    return dict(zip(source.sample(range(count), len(rare)), rare, strict=True))


def datagram(message: bytes, source: str = GATEWAY) -> Sender:
    return lambda station: gateway.send_datagram(station, message, source)


def connection(message: bytes) -> Sender:
    return lambda station: gateway.send(station, message)


def random_message(source: random.Random) -> bytes:
    text = "x" * source.randrange(1, 300)
    units = {slot: Unit(f"U{slot}", 1 + slot) for slot in range(source.randrange(16))}
    return source.choice(
        [
            gateway.display_alert(text, source.randrange(2), source.randrange(600)),
            gateway.display_alert('"&<>/\\' * source.randrange(1, 600)),
            gateway.detail_alert(text, units, source.randrange(2), turnout_end=90),
            gateway.detail_alert(""),
            gateway.hdtv_alert(text, 60),
            gateway.set_map_address("http://map/" + text),
            gateway.stop_turnout(),
            gateway.hdtv_settings(source.randrange(4)),
            b'{"comm_gw":"10.87.33.21"}',
            garbage(source),
        ]
    )


def garbage(source: random.Random) -> bytes:
    """Of no type, or of one that only the document shows."""
    return source.choice([b"\0", b"\xff", b"\x03", b"\x33", b"{"]) + source.randbytes(
        source.randrange(4096)
    )


def measure(station: Station, service: Process, messages: int, documents: int) -> Figures:
    """After so many messages; so many documents had been written before the last measurement."""
    process = Path(f"/proc/{service.pid}")
    fields = dict(line.split(":", 1) for line in (process / "status").read_text().splitlines())
    return Figures(
        messages,
        documents + take_lines(station.path(ALERT_LOG)),
        count_descriptors(service.pid),
        len((process / "task" / str(service.pid) / "children").read_text().split()),
        int(fields["VmRSS"].split()[0]),
        int(fields["VmData"].split()[0]),
    )


def take_lines(file: Path) -> int:
    """How many there are. The file is emptied, as a unit's upkeep does before it fills /tmp."""
    with file.open("r+b") as lines:
        count = sum(part.count(b"\n") for part in iter(lambda: lines.read(1 << 20), b""))
        lines.truncate(0)
    return count


def count_answers(records: gateway.RecordListener) -> int:
    return sum(record.startswith(ROLL_CALL_REPLY) for record in records.records())


def print_heading() -> None:
    print("|  Messages | Documents | Descriptors | Children | Resident kB | Heap and data kB |")
    print("|----------:|----------:|------------:|---------:|------------:|-----------------:|")


def print_figures(x: Figures) -> None:
    print(
        f"| {x.messages:>9,} | {x.documents:>9,} | {x.descriptors:>11,} | {x.children:>8,} "
        f"| {x.resident:>11,} | {x.heap:>16,} |",
        flush=True,
    )


def judge(before: Figures, after: Figures, sent: Counter[str], answers: int) -> int:
    """What is left behind, and what may be."""
    print()
    for kind, count in sorted(sent.items()):
        print(f"{count:9,} {kind}")
    print()
    documents = after.documents - before.documents
    left = {
        "roll calls without an answer": (sent[ROLL_CALL] - answers, 0),
        f"descriptors, one for each of the {UNANSWERED}": (
            after.descriptors - before.descriptors,
            sent[UNANSWERED],
        ),
        f"children, {CHILDREN_OF_A_CLIP} for each clip and one for each reboot at most": (
            after.children - before.children,
            CHILDREN_OF_A_CLIP * sent[CLIP] + sent[REBOOT],
        ),
    }
    if has_a_heap_of_its_own():
        left[f"kB of heap, {MOST_BYTES_OF_A_DOCUMENT} bytes for each document at most"] = (
            after.heap - before.heap,
            MOST_BYTES_OF_A_DOCUMENT * documents // 1024 + HEAP_TO_SPARE,
        )
    for name, (found, most) in left.items():
        print(f"{found:9,} {name} ({most:,}){': TOO MANY' if found > most else ''}")
    return 1 if any(found > most for found, most in left.values()) else 0


def has_a_heap_of_its_own() -> bool:
    """Not one that a sanitizer or an emulator keeps for it."""
    program = build_directory() / "hdtv" / "hdtv"
    return not is_for_arm(program) and b"__asan_init" not in program.read_bytes()


if __name__ == "__main__":
    sys.exit(main())
