"""When a gateway has taken the units' records: seen on its network interface, without a hand in it."""

import ctypes
import socket
import struct
from types import TracebackType

from simulation.fleet import Fleet
from simulation.gateway import RECORD_PORT

# Of Linux; the library has no names for them.
_ETH_P_ALL = 3  # what is sent is seen only with this
_SO_ATTACH_FILTER = 26
_SO_RCVBUFFORCE = 33
_SO_TIMESTAMPNS = 35

# What the filter lets through: TCP from the record port with FIN. A gateway that closes its end has
# read the whole record. Each step: operation, jumps if true and if false, value.
_LOAD_HALF, _LOAD_BYTE, _LOAD_HALF_AT_X, _LOAD_BYTE_AT_X, _X_IS_HEADER = (
    0x28,
    0x30,
    0x48,
    0x50,
    0xB1,
)
_IS_EQUAL, _HAS_BITS, _RETURN = 0x15, 0x45, 0x06
_PROTOCOL, _IPV4 = 0xFFFFF000, 0x0800
_FILTER = [
    (_LOAD_HALF, 0, 0, _PROTOCOL),
    (_IS_EQUAL, 0, 8, _IPV4),
    (_LOAD_BYTE, 0, 0, 9),
    (_IS_EQUAL, 0, 6, socket.IPPROTO_TCP),
    (_X_IS_HEADER, 0, 0, 0),
    (_LOAD_HALF_AT_X, 0, 0, 0),
    (_IS_EQUAL, 0, 3, RECORD_PORT),
    (_LOAD_BYTE_AT_X, 0, 0, 13),
    (_HAS_BITS, 0, 1, 1),
    (_RETURN, 0, 0, 64),
    (_RETURN, 0, 0, 0),
]


class TakenRecords:
    """Those of the block of a with statement, with the times of the kernel."""

    def __init__(self, fleet: Fleet) -> None:
        with fleet.on_gateway():
            self._socket = socket.socket(
                socket.AF_PACKET, socket.SOCK_DGRAM, socket.htons(_ETH_P_ALL)
            )
        self._attach_filter()
        self._socket.setsockopt(socket.SOL_SOCKET, _SO_RCVBUFFORCE, 16 << 20)
        self._socket.setsockopt(socket.SOL_SOCKET, _SO_TIMESTAMPNS, 1)
        self._socket.bind(("gw0", _ETH_P_ALL))

    def _attach_filter(self) -> None:
        steps = ctypes.create_string_buffer(b"".join(struct.pack("HBBI", *x) for x in _FILTER))
        program = struct.pack("HP", len(_FILTER), ctypes.addressof(steps))
        self._socket.setsockopt(socket.SOL_SOCKET, _SO_ATTACH_FILTER, program)

    def __enter__(self) -> "TakenRecords":
        return self

    def __exit__(
        self, kind: type[BaseException] | None, value: object, trace: TracebackType | None
    ) -> None:
        self._socket.close()

    def times(self) -> list[float]:
        """In seconds since the epoch, of those since the last call."""
        times: list[float] = []
        while True:
            try:
                _, [(_, _, stamp)], *_ = self._socket.recvmsg(64, 64, socket.MSG_DONTWAIT)
            except BlockingIOError:
                return times
            seconds, nanoseconds = struct.unpack("ll", stamp)
            times.append(seconds + nanoseconds / 1e9)
