"""A port of this machine's loopback, or a socket in a directory, that leads into the unit."""

import contextlib
import socket
import threading
from pathlib import Path

from simulation.station import Station
from simulation.waiting import DEADLINE


class Forward:
    """Connections to 127.0.0.1:port on this machine, or to the socket of this path, go to
    127.0.0.1:unit_port in the unit. Use it in a with statement."""

    def __init__(
        self, station: Station, unit_port: int, port: int = 0, path: Path | None = None
    ) -> None:
        """With a path, only those who may use its directory can connect."""
        self._station = station
        self._unit_port = unit_port
        if path:
            self._listening = _listen_at(path)
        else:
            self._listening = socket.create_server(("127.0.0.1", port))
        self.port: int = 0 if path else self._listening.getsockname()[1]
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    def __enter__(self) -> "Forward":
        return self

    def __exit__(self, *_: object) -> None:
        self._listening.shutdown(socket.SHUT_RDWR)  # wakes the accept
        self._thread.join(DEADLINE)
        self._listening.close()

    def _serve(self) -> None:
        # For this thread only: it accepts on this machine and connects in the unit.
        self._station.enter_unit_network()
        while True:
            try:
                outer, _ = self._listening.accept()
            except OSError:
                return
            self._join(outer)

    def _join(self, outer: socket.socket) -> None:
        try:
            inner = socket.create_connection(("127.0.0.1", self._unit_port), DEADLINE)
        except OSError:
            outer.close()
            return
        inner.settimeout(None)
        for source, target in ((outer, inner), (inner, outer)):
            threading.Thread(target=_copy, args=(source, target), daemon=True).start()


def _listen_at(path: Path) -> socket.socket:
    listening = socket.socket(socket.AF_UNIX)
    listening.bind(str(path))
    listening.listen()
    return listening


def _copy(source: socket.socket, target: socket.socket) -> None:
    with contextlib.suppress(OSError):
        while content := source.recv(65536):
            target.sendall(content)
    with contextlib.suppress(OSError):
        target.shutdown(socket.SHUT_WR)
