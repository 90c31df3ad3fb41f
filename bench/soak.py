"""A long day: mixed messages on both channels, then a check for leaks."""

import argparse
import random
from collections import Counter
from pathlib import Path

from simulation import gateway
from simulation.gateway import Unit
from simulation.station import Process, Station

# A roll call that meets a closed port leaves its socket open; the descriptor limit is about 1000.
ROLL_CALLS = 100
DATAGRAMS_AT_ONCE = 20


def main() -> None:
    parser = argparse.ArgumentParser(prog="bench/soak", description=__doc__)
    parser.add_argument("--messages", type=int, default=100_000, help="default: %(default)s")
    parser.add_argument("--seed", type=int, default=random.randrange(2**32))
    arguments = parser.parse_args()
    print(f"{arguments.messages} messages, seed {arguments.seed}")
    with Station() as station:
        station.write_config('{"rotation":"0"}')
        service = station.start_service()
        station.wait_for_calls("qt-webkit-kiosk")
        warm_up(station)
        before = measure(service)
        documents = count_documents(station)
        sent = soak(station, random.Random(arguments.seed), arguments.messages)
        gateway.deliver(station, gateway.display_alert("ALIVE"))
        assert station.document()["alert_area"] == "ALIVE", service.errors
        assert service.is_running(), service.errors
        report(before, measure(service), sent, count_documents(station) - documents)


def warm_up(station: Station) -> None:
    for _ in range(100):
        gateway.deliver(station, gateway.detail_alert("WARM UP", {0: Unit("E1", 1)}))


def soak(station: Station, source: random.Random, messages: int) -> Counter[str]:
    sent: Counter[str] = Counter()
    roll_calls = set(source.sample(range(messages), min(ROLL_CALLS, messages // 10)))
    with station.on_gateway():
        for number in range(messages):
            if number in roll_calls:
                gateway.send_datagram(station, gateway.roll_call())
                sent["roll calls to a closed port"] += 1
            elif source.random() < 0.3:
                gateway.send_datagram(station, random_message(source))
                sent["datagrams"] += 1
            else:
                gateway.send(station, random_message(source))
                sent["connections"] += 1
            if number % DATAGRAMS_AT_ONCE == 0:
                gateway.deliver(station, b"\0")  # so that no datagram is dropped
    return sent


def random_message(source: random.Random) -> bytes:
    text = "x" * source.randrange(1, 300)
    units = {slot: Unit(f"U{slot}", 1 + slot) for slot in range(source.randrange(16))}
    return source.choice(
        [
            gateway.display_alert(text, source.randrange(2), source.randrange(600)),
            gateway.detail_alert(text, units, source.randrange(2), turnout_end=90),
            gateway.detail_alert(""),
            gateway.hdtv_alert(text, 60),
            gateway.set_map_address("http://map/" + text),
            gateway.stop_turnout(),
            b'{"comm_gw":"10.87.33.21"}',
            source.randbytes(1) + text.encode() if source.random() < 0.02 else b"\0",
        ]
    )


def measure(service: Process) -> dict[str, int]:
    process = Path(f"/proc/{service.pid}")
    fields = dict(line.split(":", 1) for line in (process / "status").read_text().splitlines())
    return {
        # The minimum of several samples: a connection may be about to close.
        "open descriptors": min(len(list((process / "fd").iterdir())) for _ in range(200)),
        "resident kB": int(fields["VmRSS"].split()[0]),
        "heap and data kB": int(fields["VmData"].split()[0]),
    }


def count_documents(station: Station) -> int:
    return station.path("/tmp/alerts.log").read_bytes().count(b"\n")


def report(
    before: dict[str, int], after: dict[str, int], sent: Counter[str], documents: int
) -> None:
    for name, count in sent.items():
        print(f"{count:9} {name}")
    print(f"{documents:9} documents written")
    print(f"\n{'':20}{'before':>10}{'after':>10}{'growth':>10}")
    for name, value in after.items():
        print(f"{name:20}{before[name]:10}{value:10}{value - before[name]:10}")
    print("\nLeft behind on purpose:")
    sockets = sent["roll calls to a closed port"]
    print(f"  {sockets} sockets, one for each roll call whose connect failed")
    grown = (after["heap and data kB"] - before["heap and data kB"]) * 1024
    print(
        f"  {documents} timestamps of log lines: {grown / max(documents, 1):.0f} bytes of heap each"
    )
    unexplained = after["open descriptors"] - before["open descriptors"] - sockets
    print(f"Other descriptors left open: {unexplained}")


if __name__ == "__main__":
    main()
