"""Whatever a peer sends, the service keeps running."""

import random

import pytest

from simulation import gateway
from simulation.process import Process
from simulation.station import Station

MESSAGES = 100_000
# The types that do not start a program. Those that do take milliseconds each; the fully random
# messages include enough of them.
QUICK_TYPES = [3, 38, 46, 51, 52]


def random_message(source: random.Random) -> bytes:
    """Half have any type, half one that reaches a handler. Most are short, some too long."""
    kind = source.randrange(256) if source.random() < 0.5 else source.choice(QUICK_TYPES)
    size = source.choice([source.randrange(16), source.randrange(700), source.randrange(5000)])
    message = bytearray([kind]) + bytearray(source.randbytes(size))
    if source.random() < 0.5 and len(message) > 1:
        message[1] = source.choice([0, 1, 255])  # flags that mean something
    return bytes(message)


@pytest.mark.slow
@pytest.mark.timeout(1800)  # under emulation
def test_random_messages_end_with_the_service_alive_and_answering(
    station: Station, service: Process
) -> None:
    seed = random.randrange(2**32)
    print(f"seed {seed}")
    source = random.Random(seed)
    with station.on_gateway():
        for number in range(MESSAGES):
            if source.random() < 0.25:
                gateway.send_datagram(station, random_message(source))
            else:
                gateway.send(station, random_message(source))
            if number % 20 == 0:
                gateway.deliver(station, b"\0")  # so that no datagram is dropped
    assert service.is_running(), service.errors
    gateway.deliver(station, gateway.detail_alert(""))
    gateway.deliver(station, gateway.display_alert("ALIVE"))
    assert station.document()["alert_area"] == "ALIVE"
