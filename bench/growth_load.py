"""The loads of bench/growth: each measures the service in a simulated station of its own, at several
sizes of the load, and returns a row for each."""

import contextlib
import os
import selectors
import socket
import statistics
import threading
import time
from collections.abc import Callable, Iterator, Sequence
from functools import partial
from pathlib import Path

from simulation import gateway
from simulation.gateway import COMMAND_PORT, RECORD_PORT, RecordListener
from simulation.places import ALERT_LOG, UNIT_ADDRESS
from simulation.process import Process
from simulation.station import Station
from simulation.television import Television
from simulation.waiting import DEADLINE, wait_for

Row = dict[str, float]  # a figure for each column's title

ALERT = gateway.display_alert("STRUCTURE FIRE")
MEGABYTE = 1_000_000
PATIENCE = 20.0  # seconds that parallel clients have: their fourth try again comes after 15
SLOW = 300.0
ALERTS_IN_TURN = 10


@contextlib.contextmanager
def running_service() -> Iterator[tuple[Station, Process]]:
    """With an alert shown, and all sockets of this thread on the gateway's side."""
    with Station() as station:
        station.write_config('{"rotation":"0"}')
        service = start_service(station)
        with station.on_gateway():
            yield station, service


def start_service(station: Station) -> Process:
    service = station.start_service()
    station.wait_for_calls("qt-webkit-kiosk")
    for _ in range(100):
        gateway.deliver(station, ALERT)
    return service


class Probe:
    """Sends alerts, one at a time, and times each from connect() until the service has logged it,
    which is the last thing that it does."""

    def __init__(self, station: Station) -> None:
        self.seconds: list[float] = []
        self._log = station.path(ALERT_LOG)

    def send(self, message: bytes = ALERT) -> None:
        logged = self._log.stat().st_size
        start = time.perf_counter()
        with socket.create_connection((UNIT_ADDRESS, COMMAND_PORT), SLOW) as connection:
            connection.sendall(message)
            while self._log.stat().st_size == logged:
                time.sleep(0)  # lets other threads run, and the processor not rest
            self.seconds.append(time.perf_counter() - start)
            gateway.wait_until_closed(connection)

    def send_while(self, is_busy: Callable[[], bool]) -> None:
        """At least one."""
        start = time.perf_counter()
        self.send()
        while is_busy():
            self.send()
            assert time.perf_counter() - start < SLOW


def percentile(values: Sequence[float], percent: float) -> float:
    ranked = sorted(values)
    return ranked[min(int(len(ranked) * percent / 100), len(ranked) - 1)]


def milliseconds(values: Sequence[float]) -> Row:
    return {
        "median ms": 1e3 * statistics.median(values),
        "p99 ms": 1e3 * percentile(values, 99),
        "worst ms": 1e3 * max(values),
    }


# Parallel clients.


class Client:
    """Sends alerts one after another, each as soon as the connection of the one before has ended."""

    def __init__(self, selector: selectors.BaseSelector, alerts: int) -> None:
        self.seconds: list[float] = []
        self._selector = selector
        self._alerts = alerts
        self._connect()

    @property
    def is_done(self) -> bool:
        return len(self.seconds) == self._alerts

    def _connect(self) -> None:
        self._socket = socket.socket()
        self._socket.setblocking(False)
        self._start = time.perf_counter()
        self._socket.connect_ex((UNIT_ADDRESS, COMMAND_PORT))
        self._selector.register(self._socket, selectors.EVENT_WRITE, self)

    def go_on(self, events: int) -> None:
        if events & selectors.EVENT_WRITE:
            self._socket.sendall(ALERT)  # fails if the connection has
            self._selector.modify(self._socket, selectors.EVENT_READ, self)
            return
        gateway.wait_until_closed(self._socket)
        self.end()
        if not self.is_done:
            self._connect()

    def end(self) -> None:
        self.seconds.append(time.perf_counter() - self._start)
        self._selector.unregister(self._socket)
        self._socket.close()


def measure_clients(counts: Sequence[int], alerts: int) -> list[Row]:
    with running_service() as (station, _):
        return [serve_clients(station, count, alerts) for count in counts]


def serve_clients(station: Station, count: int, alerts: int) -> Row:
    """The time of an alert that is given up counts as well."""
    gateway.wait_until_taken(station)
    start = time.perf_counter()
    with selectors.DefaultSelector() as selector:
        clients = [Client(selector, alerts) for _ in range(count)]
        serve(selector, clients, start + PATIENCE)
        elapsed = time.perf_counter() - start
        waiting = [client for client in clients if not client.is_done]
        for client in waiting:
            client.end()
    times = [seconds for client in clients for seconds in client.seconds]
    return {
        "clients": count,
        "done": count - len(waiting),
        "alerts": len(times) - len(waiting),
        **milliseconds(times),
        "all took s": elapsed,
    }


def serve(selector: selectors.BaseSelector, clients: list[Client], end: float) -> None:
    while not all(client.is_done for client in clients) and time.perf_counter() < end:
        for key, events in selector.select(max(end - time.perf_counter(), 0)):
            key.data.go_on(events)


# Long messages, and a long log.


def processor_seconds(service: Process) -> float:
    """Of its first thread, with the kernel's work for it."""
    return int(Path(f"/proc/{service.pid}/schedstat").read_text().split()[0]) / 1e9


def time_alerts(
    station: Station, service: Process, loads: Sequence[Callable[[], bytes]], rounds: int
) -> list[Row]:
    """Each load prepares itself and names its message. They take turns: whatever else the machine
    does, they share it."""
    probes = [Probe(station) for _ in loads]
    spent: list[list[float]] = [[] for _ in loads]
    for _ in range(rounds):
        for load, probe, seconds in zip(loads, probes, spent):
            message = load()
            before = processor_seconds(service)
            for _ in range(ALERTS_IN_TURN):
                probe.send(message)
            seconds.append((processor_seconds(service) - before) / ALERTS_IN_TURN)
    return [
        {
            "median us": 1e6 * statistics.median(probe.seconds),
            "p99 us": 1e6 * percentile(probe.seconds, 99),
            "CPU us": 1e6 * statistics.median(seconds),
        }
        for probe, seconds in zip(probes, spent)
    ]


def measure_sizes(letters: Sequence[int], rounds: int) -> list[Row]:
    kinds = {"plain": "X", "quotes": '"'}
    messages = [gateway.display_alert(x * count) for count in letters for x in kinds.values()]
    with running_service() as (station, service):
        loads = [partial(bytes, message) for message in messages]
        times = iter(time_alerts(station, service, loads, rounds))
    rows = []
    for count in letters:
        row: Row = {"letters": count}
        for kind in kinds:
            row |= {f"{kind} {title}": value for title, value in next(times).items()}
        rows.append(row)
    return rows


def measure_log(megabytes: Sequence[int], rounds: int) -> list[Row]:
    """The log is sparse, so that it takes up no memory."""
    with running_service() as (station, service):

        def resize(size: int) -> bytes:
            os.truncate(station.path(ALERT_LOG), size * MEGABYTE)
            return ALERT

        loads = [partial(resize, size) for size in megabytes]
        times = time_alerts(station, service, loads, rounds)
    return [{"log MB": size, **row} for size, row in zip(megabytes, times)]


# Bursts.


def measure_bus(counts: Sequence[int], bursts: int) -> list[Row]:
    with Station() as station, Television(station) as television:
        station.write_config("{}")
        service = start_service(station)
        with station.on_gateway():
            return [send_bursts(station, service, television, x, bursts) for x in counts]


def send_bursts(
    station: Station, service: Process, television: Television, count: int, bursts: int
) -> Row:
    probe = Probe(station)
    taken = [send_burst(service, television, count, probe) for _ in range(bursts)]
    return {
        "notifications": count,
        "all taken ms": 1e3 * statistics.median(taken),
        "alerts": len(probe.seconds),
        **milliseconds(probe.seconds),
    }


def send_burst(service: Process, television: Television, count: int, probe: Probe) -> float:
    """The seconds until the service has taken all, while it is sent alerts."""
    # Another source, and a last one that can be told from it.
    lines = b"rx 0F:82:30:00\n" * (count - 1) + b"rx 4F:82:4A:00\n"
    last = b"active source now: 004A\n"
    sender = threading.Thread(target=television.say_bytes, args=[lines])
    with open(f"/proc/{service.pid}/fd/1", "rb") as output:
        place = output.seek(0, os.SEEK_END)

        def is_busy() -> bool:
            # At the end of the output, where the alerts' few lines may follow.
            output.seek(max(place, output.seek(0, os.SEEK_END) - 8192))
            return last not in output.read()

        start = time.perf_counter()
        sender.start()
        probe.send_while(is_busy)
        taken = time.perf_counter() - start
    sender.join(DEADLINE)
    return taken


def measure_roll_calls(counts: Sequence[int]) -> list[Row]:
    with running_service() as (station, service):
        return [call_roll(station, service, count) for count in counts]


def waiting_datagrams(station: Station) -> int:
    """Bytes in the unit's queue of datagrams."""
    for line in station.path("/proc/1/net/udp").read_text().splitlines()[1:]:
        fields = line.split()
        if fields[1].endswith(f":{COMMAND_PORT:04X}"):
            return int(fields[4].partition(":")[2], 16)
    raise LookupError("no socket for datagrams")


def call_roll(station: Station, service: Process, count: int) -> Row:
    """All of them have arrived before the unit reads the first."""
    place = (gateway.GATEWAY, RECORD_PORT)
    listener = RecordListener(socket.create_server(place, backlog=4096))
    probe = Probe(station)
    with contextlib.closing(listener):
        service.suspend()
        for _ in range(count):
            gateway.send_datagram(station, gateway.roll_call())
        service.resume()
        start = time.perf_counter()
        probe.send_while(lambda: waiting_datagrams(station) > 0)
        elapsed = time.perf_counter() - start
        gateway.deliver(station, b"\0")
        # Accepted after all the others.
        socket.create_connection(place, DEADLINE, source_address=(gateway.GATEWAY, 0)).close()
        wait_for(lambda: b"" in listener.records(), "the last record")
        replies = sum(record[:1] == b"\2" for record in listener.records())
    return {
        "roll calls": count,
        "answered": replies,
        "all answered ms": 1e3 * elapsed,
        "alerts": len(probe.seconds),
        **milliseconds(probe.seconds),
    }
