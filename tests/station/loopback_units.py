"""Units on the gateway's own loopback network that do nothing but answer roll calls."""

import contextlib
import selectors
import socket
import threading

from simulation import linux
from simulation.gateway import COMMAND_PORT, VERSION
from simulation.station import Station
from simulation.waiting import DEADLINE

DATE, SETTINGS = 39, 47  # what units ask for


class LoopbackUnit:
    def __init__(self, station: Station, number: int) -> None:
        self.address = f"127.0.1.{number}"
        self.board = bytes([2, 0, 0, 0, 0, number])
        self.asks_for: list[int] = []
        self.is_deaf = False
        with station.on_gateway():
            self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind((self.address, COMMAND_PORT))

    @property
    def hardware_address(self) -> str:
        return self.board.hex(":")

    def answer(self) -> None:
        _, caller = self.socket.recvfrom(4096)
        if self.is_deaf:
            return
        reply = bytes([2]) + self.board + bytes([12, VERSION])
        with contextlib.suppress(ConnectionError):  # the gateway may just have ended
            for record in (reply, *(bytes([code]) + self.board for code in self.asks_for)):
                self.send_to(caller[0], record)

    def send_to(self, gateway: str, record: bytes) -> None:
        """In the calling thread's network."""
        source = (self.address, 0)
        with socket.create_connection((gateway, 5000), DEADLINE, source_address=source) as sending:
            sending.sendall(record)


class LoopbackUnits:
    """As many as are asked for; use it in a with statement."""

    def __init__(self, station: Station, count: int) -> None:
        self.units = [LoopbackUnit(station, 1 + number) for number in range(count)]
        self._station = station
        self._stopping, self._stop = socket.socketpair()
        self._thread = threading.Thread(target=self._serve)

    def __enter__(self) -> list[LoopbackUnit]:
        self._thread.start()
        return self.units

    def __exit__(self, *_: object) -> None:
        self._stop.close()
        self._thread.join(DEADLINE)
        self._stopping.close()
        for unit in self.units:
            unit.socket.close()

    def _serve(self) -> None:
        self._station.enter_gateway_network()
        with selectors.DefaultSelector() as waiting:
            waiting.register(self._stopping, selectors.EVENT_READ)
            for unit in self.units:
                waiting.register(unit.socket, selectors.EVENT_READ, unit)
            while True:
                for key, _ in waiting.select():
                    if key.data is None:
                        return
                    key.data.answer()
