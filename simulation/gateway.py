"""The alerting gateway's side: its messages, its connections, and the records sent to it."""

import contextlib
import http.server
import socket
import struct
import threading
import wave
from collections.abc import Iterator, Mapping
from dataclasses import dataclass
from pathlib import Path

from simulation.places import GATEWAY_ADDRESSES, UNIT_ADDRESS
from simulation.process import Process
from simulation.station import Station
from simulation.waiting import DEADLINE, wait_for

GATEWAY = GATEWAY_ADDRESSES[1]
OTHER_GATEWAY = GATEWAY_ADDRESSES[2]
PROXY = GATEWAY_ADDRESSES[0]
COMMAND_PORT = 4000
RECORD_PORT = 5000
PROXY_PORT = 3128

VERSION = 47  # of the service, as in hdtv/protocol.h


def _number(value: int) -> bytes:
    return value.to_bytes(2, "big")


def _bytes(text: str | bytes) -> bytes:
    return text.encode() if isinstance(text, str) else text


def display_alert(text: str | bytes, flag: int = 1, turnout: int | None = None) -> bytes:
    content = _bytes(text)
    trailer = b"" if turnout is None else _number(turnout)
    return bytes([3, flag, 0, 0]) + _number(len(content)) + content + trailer


def hdtv_alert(text: str | bytes, turnout: int) -> bytes:
    return bytes([38]) + _bytes(text) + _number(turnout) + bytes(3)


@dataclass(frozen=True)
class Unit:
    name: str | bytes
    color: int


def detail_alert(
    text: str | bytes,
    units: Mapping[int, Unit] | None = None,
    flag: int = 1,
    turnout_end: int = 0,
    turnout_zero: int = 0,
    turnout_reverse: int = 0,
    text_length: int | None = None,
) -> bytes:
    """The units are by slot, 0 to 15. text_length overrides the length field."""
    content = _bytes(text)
    colors, names = bytearray(16), bytearray(16 * 32)
    for slot, unit in (units or {}).items():
        name = _bytes(unit.name)
        assert len(name) <= 32
        colors[slot] = unit.color
        names[32 * slot : 32 * slot + len(name)] = name
    return (
        bytes([51, flag, 0, 0])
        + bytes(colors)
        + bytes(names)
        + _number(turnout_end)
        + _number(turnout_zero)
        + bytes([turnout_reverse])
        + _number(len(content) if text_length is None else text_length)
        + content
    )


def reboot() -> bytes:
    return bytes([32])


def set_date(text: str | bytes) -> bytes:
    return bytes([40]) + _bytes(text)


def stop_turnout() -> bytes:
    return bytes([46])


def set_page_address(address: str | bytes) -> bytes:
    return bytes([48]) + _bytes(address)


def hdtv_settings(quarter_turns: int) -> bytes:
    return bytes([49, quarter_turns])


def play_clip(address: str) -> bytes:
    return f'{{"play_audio":"{address}"}}'.encode()


def set_map_address(address: str | bytes) -> bytes:
    return bytes([52]) + _bytes(address)


def connect(
    station: Station,
    source: str = GATEWAY,
    destination: str = UNIT_ADDRESS,
    port: int = COMMAND_PORT,
    deadline: float = DEADLINE,
) -> socket.socket:
    """A connection, by default to the command channel, from one of the gateway's addresses. The
    deadline is for each operation on it."""
    with station.on_gateway():
        return socket.create_connection((destination, port), deadline, source_address=(source, 0))


def send(
    station: Station,
    message: bytes,
    source: str = GATEWAY,
    destination: str = UNIT_ADDRESS,
    deadline: float = DEADLINE,
) -> None:
    """One message over a connection of its own. Returns when the unit has closed it, that is when
    it has read the message."""
    with connect(station, source, destination, deadline=deadline) as connection:
        # The unit takes what it takes in one read, and may have reset the rest by now.
        with contextlib.suppress(OSError):
            connection.sendall(message)
            # Without a message the unit waits for one. With one it is the unit that closes first,
            # which keeps the ports of this side free.
            if not message:
                connection.shutdown(socket.SHUT_WR)
        wait_until_closed(connection)


def send_datagram(
    station: Station, message: bytes, source: str = GATEWAY, destination: str = UNIT_ADDRESS
) -> None:
    """One message over the UDP channel; the unit takes it some time later."""
    with station.on_gateway(), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.bind((source, 0))
        sender.sendto(message, (destination, COMMAND_PORT))


def roll_call() -> bytes:
    return bytes([1])


def deliver(
    station: Station, message: bytes, source: str = GATEWAY, destination: str = UNIT_ADDRESS
) -> None:
    """Sends one message and returns after the unit has acted on it: the unit serves one connection
    at a time, so it is done once it reads the next one, an unknown message."""
    send(station, message, source, destination)
    send(station, b"\0", source, destination)


def wait_until_taken(station: Station) -> None:
    """Until the unit's listen queue is empty. It has room for one connection and drops the next."""
    wait_for(lambda: station.listen_queue(COMMAND_PORT) == 0, "an empty listen queue")


def wait_until_closed(connection: socket.socket) -> None:
    """The unit never answers: it closes the connection, or resets it if it left bytes unread."""
    with contextlib.suppress(ConnectionResetError):
        answer = connection.recv(1)
        assert answer == b"", answer


def reset(connection: socket.socket) -> None:
    """Closes it so that nothing is left of it at the unit, either."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


_MESSAGE_NAMES = {
    **{1: "roll call", 3: "display alert", 32: "reboot", 38: "hdtv alert", 40: "set date"},
    **{46: "stop turnout", 48: "set page address", 49: "hdtv settings", 51: "detail alert"},
    **{52: "set map address", 123: "JSON control"},
}


def message_name(message: bytes) -> str:
    """What docs/protocol.md calls it."""
    if not message:
        return "an empty message"
    return _MESSAGE_NAMES.get(message[0], f"a message of the unknown type {message[0]}")


def describe_record(record: bytes) -> str:
    """A record that a unit has sent, in words."""
    if len(record) == 9 and record[0] == 2:
        return f"roll-call reply from {record[1:7].hex(':')}, version {record[8]}"
    if len(record) == 7 and record[0] in (39, 47):
        wanted = "date" if record[0] == 39 else "settings"
        return f"{wanted} request from {record[1:7].hex(':')}"
    return f"unknown record {record.hex(' ')}"


class RecordListener:
    """Receives what units send to port 5000, one record per connection."""

    is_hearing = True

    def __init__(self, listening: socket.socket) -> None:
        self._listening = listening
        self._records: list[bytes] = []
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    def _serve(self) -> None:
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self._listening.accept()
                with connection:
                    parts = []
                    while part := connection.recv(4096):
                        parts.append(part)
                self._records.append(b"".join(parts))

    def records(self) -> list[bytes]:
        return list(self._records)

    def wait_for_records(self, count: int) -> list[bytes]:
        wait_for(lambda: len(self._records) >= count, f"{count} record(s) from the unit")
        return self.records()

    def close(self) -> None:
        with contextlib.suppress(OSError):
            self._listening.shutdown(socket.SHUT_RDWR)
        self._listening.close()
        self._thread.join(DEADLINE)


class HeardRecords(RecordListener):
    """In place of a listener where somebody else is the gateway: what passed on its way there."""

    def __init__(self) -> None:
        self._records: list[bytes] = []

    def add(self, record: bytes) -> None:
        self._records.append(record)

    def close(self) -> None:
        pass


def _listen(address: str, port: int, backlog: int) -> socket.socket:
    listening = socket.socket()
    listening.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listening.bind((address, port))
    listening.listen(backlog)
    return listening


class NoRecords(HeardRecords):
    """Where another gateway receives them, and nobody tells."""

    is_hearing = False


@contextlib.contextmanager
def record_listener(station: Station, address: str = GATEWAY) -> Iterator[RecordListener]:
    with station.on_gateway():
        listener = RecordListener(_listen(address, RECORD_PORT, 16))
    try:
        yield listener
    finally:
        listener.close()


@contextlib.contextmanager
def record_listener_in_unit(station: Station) -> Iterator[RecordListener]:
    """In the unit itself, which is where a connection to 0.0.0.0 goes."""
    with station.in_unit():
        listener = RecordListener(_listen("127.0.0.1", RECORD_PORT, 16))
    try:
        yield listener
    finally:
        listener.close()


@contextlib.contextmanager
def accepting_proxy(station: Station) -> Iterator[None]:
    with station.on_gateway():
        listening = _listen(PROXY, PROXY_PORT, 16)
    with listening:
        yield


@contextlib.contextmanager
def silent_proxy(station: Station) -> Iterator[None]:
    """A proxy whose host drops SYNs: its listen queue is full and nobody accepts."""
    with station.on_gateway():
        listening = _listen(PROXY, PROXY_PORT, 0)
        filler = socket.create_connection((PROXY, PROXY_PORT), DEADLINE)
    with listening, filler:
        yield


@contextlib.contextmanager
def web_server(station: Station, directory: Path) -> Iterator[list[str]]:
    """Serves this directory on the gateway's side; yields the paths that are requested."""
    paths: list[str] = []

    class Handler(http.server.SimpleHTTPRequestHandler):
        def __init__(self, *arguments: object) -> None:
            super().__init__(*arguments, directory=str(directory))  # type: ignore[arg-type]

        def log_message(self, *_: object) -> None:
            paths.append(self.path)

    with station.on_gateway():
        server = http.server.ThreadingHTTPServer((GATEWAY, 80), Handler)
    with server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        try:
            yield paths
        finally:
            server.shutdown()


def start_dhcp_server(station: Station, interface: str = "gw0") -> Process:
    """It leases 10.87.33.77."""
    server = station.start_on_gateway(
        *"dnsmasq --no-daemon --conf-file=/dev/null --port=0 --bind-interfaces".split(),
        *f"--interface={interface} --pid-file= --leasefile-ro --user=root".split(),
        *"--dhcp-range=10.87.33.77,10.87.33.77,255.255.255.0,1h".split(),
        *"--dhcp-option=3,10.87.33.1 --no-ping".split(),
    )
    wait_for(lambda: "DHCP, IP range" in server.errors or not server.is_running(), "dnsmasq")
    assert server.is_running(), server.errors
    return server


def make_clip(path: Path) -> bytes:
    """A second of sound; returns its samples."""
    samples = b"".join(
        (n * 997 % 65536 - 32768).to_bytes(2, "little", signed=True) for n in range(8000)
    )
    with wave.open(str(path), "wb") as clip:
        clip.setnchannels(1)
        clip.setsampwidth(2)
        clip.setframerate(8000)
        clip.writeframes(samples)
    return samples
