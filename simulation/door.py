"""A gateway of one's own outside the station, at its door: ports of this machine's loopback.

    a gateway on this machine             the door                      the unit
    TCP and UDP to 127.0.0.1:4000    →    from 10.87.33.20         →    10.87.33.50:4000
    127.0.0.1:5000                   ←    10.87.33.20:5000         ←    its records

Each connection on one side has its own on the other, and they share their fate: where one ends or is
reset, so is the other. Both are reset if the station ends before them. A gateway that sends from 127.0.0.21 is 10.87.33.21 to the unit; any other
one is 10.87.33.20. The unit's records go to where the gateway last sent from, and before that to
127.0.0.1.
"""

import asyncio
import contextlib
import socket
import struct
import threading
from collections.abc import Awaitable, Callable, Coroutine

from simulation.gateway import COMMAND_PORT, GATEWAY, OTHER_GATEWAY, RECORD_PORT
from simulation.station import Station
from simulation.waiting import DEADLINE

# Of the unit on this machine, in order of preference: several stations take one each. The port
# stays the same, because a gateway answers a record at port 4000 of the peer.
OUTSIDE_ADDRESSES = tuple(f"127.0.0.{number}" for number in range(1, 10))

_OUTSIDE_GATEWAY = "127.0.0.1"
_OTHER_OUTSIDE_GATEWAY = "127.0.0.21"
_INSIDE = (GATEWAY, OTHER_GATEWAY)
_LARGEST = 65536
_ON_ITS_WAY = 64  # chunks of a connection, before its sender has to wait
_MOMENT = 0.5  # seconds

# Closing a connection resets it, or its data and its end are still brought to its peer.
_RESETTING, _ORDERLY = struct.pack("ii", 1, 0), struct.pack("ii", 0, 0)


class DoorError(Exception):
    """The door cannot be opened; the text says why."""


def inside_of(peer: str) -> str:
    """The address inside of a gateway with this one outside."""
    return OTHER_GATEWAY if peer == _OTHER_OUTSIDE_GATEWAY else GATEWAY


class Door:
    """Open until it is closed. Use it in a with statement."""

    def __init__(
        self,
        station: Station,
        unit_address: Callable[[], str | None],
        record_port: int,
        on_message: Callable[[bytes, bool, str], None],
        on_record: Callable[[bytes], None],
        on_problem: Callable[[str], None],
    ) -> None:
        """unit_address tells the unit's address at the moment. The others hear, in the door's thread,
        what passes: a message, whether it is a datagram, and who sends it; a record; and, in a few
        words, what could not pass. Raises DoorError."""
        self._station = station
        self._on_problem = on_problem
        self._on_message = on_message
        self._on_record = on_record
        self._unit_address = unit_address
        self._record_port = record_port
        self._last_sender: dict[str, str] = {}  # outside, by its address inside
        self._commands, self._datagrams = _listen_outside()
        self.address: str = self._commands.getsockname()[0]
        with station.on_gateway():
            self._records = [_listen(address, RECORD_PORT) for address in _INSIDE]
            self._senders = {address: _bind_datagrams(address, 0) for address in _INSIDE}
        self._loop = asyncio.new_event_loop()
        self._tasks: set[asyncio.Task[None]] = set()
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    def __enter__(self) -> "Door":
        return self

    def __exit__(self, *_: object) -> None:
        self._loop.call_soon_threadsafe(self._loop.stop)
        self._thread.join(DEADLINE)
        for opened in (self._commands, self._datagrams, *self._records, *self._senders.values()):
            opened.close()

    def _serve(self) -> None:
        self._start(self._take_commands())
        self._loop.add_reader(self._datagrams, self._take_datagram)
        for listening in self._records:
            self._start(self._take_records(listening))
        self._loop.run_forever()
        ending = list(self._tasks)
        for task in ending:
            task.cancel()
        self._loop.run_until_complete(asyncio.gather(*ending, return_exceptions=True))
        self._loop.close()

    def _start(self, work: Coroutine[None, None, None]) -> None:
        task = self._loop.create_task(work)
        self._tasks.add(task)
        task.add_done_callback(self._tasks.discard)

    async def _accept(self, listening: socket.socket) -> tuple[socket.socket, tuple[str, int]]:
        while True:
            try:
                return await self._loop.sock_accept(listening)
            except OSError as error:
                self._on_problem(f"a connection cannot be accepted: {error}")
                await asyncio.sleep(_MOMENT)

    # What the gateway sends.

    async def _take_commands(self) -> None:
        while True:
            outer, (peer, _) = await self._accept(self._commands)
            self._start(self._join_command(outer, peer))

    async def _join_command(self, outer: socket.socket, peer: str) -> None:
        with self._station.on_gateway():
            inner = _connection()
        with outer, inner:
            connecting = self._connect_to_unit(inner, self._inside_of(peer))
            await _join(outer, inner, lambda x: self._on_message(x, False, peer), connecting)

    async def _connect_to_unit(self, inner: socket.socket, source: str) -> None:
        address = self._unit_address()
        try:
            if address is None:
                raise OSError("it has no address")
            inner.bind((source, 0))
            await self._loop.sock_connect(inner, (address, COMMAND_PORT))
        except OSError as error:
            self._on_problem(f"the unit cannot be reached: {error}")
            raise

    def _take_datagram(self) -> None:
        message, (peer, _) = self._datagrams.recvfrom(_LARGEST)
        sender = self._senders[self._inside_of(peer)]
        address = self._unit_address()
        self._on_message(message, True, peer)
        # One that cannot be sent is lost, as on any network.
        with contextlib.suppress(OSError):
            if address:
                sender.sendto(message, (address, COMMAND_PORT))

    def _inside_of(self, peer: str) -> str:
        inside = inside_of(peer)
        self._last_sender[inside] = peer
        return inside

    # What the unit sends.

    async def _take_records(self, listening: socket.socket) -> None:
        """They arrive outside in the order in which the unit has connected."""
        inside = listening.getsockname()[0]
        while True:
            inner, _ = await self._accept(listening)
            try:
                outer = await self._connect_outside(inside)
            except OSError:
                self._on_problem(f"nobody listens on port {self._record_port}: a record is lost")
                inner.close()
            else:
                self._start(self._join_record(inner, outer))

    async def _connect_outside(self, inside: str) -> socket.socket:
        outer = _connection()
        try:
            # A gateway tells units by their addresses, and answers there.
            outer.bind((self.address, 0))
            target = (self._last_sender.get(inside, _OUTSIDE_GATEWAY), self._record_port)
            await self._loop.sock_connect(outer, target)
        except OSError:
            outer.close()
            raise
        return outer

    async def _join_record(self, inner: socket.socket, outer: socket.socket) -> None:
        with inner, outer:
            await _join(inner, outer, self._on_record)


async def _join(
    near: socket.socket,
    far: socket.socket,
    tell: Callable[[bytes], None],
    connecting: Awaitable[None] | None = None,
) -> None:
    """Copies in both directions until both have ended, and tells the near one's first chunk. If they
    are closed before that, both are reset: a plain end would mean that the message has been read. The
    near one is read from the beginning: if it is reset while the far one is still connecting,
    nothing may reach the other side later."""
    there: asyncio.Queue[bytes] = asyncio.Queue(_ON_ITS_WAY)
    back: asyncio.Queue[bytes] = asyncio.Queue(_ON_ITS_WAY)
    try:
        async with asyncio.TaskGroup() as copying:
            copying.create_task(_read(near, there, tell))
            if connecting:
                await connecting
            copying.create_task(_write(there, far))
            copying.create_task(_read(far, back))
            copying.create_task(_write(back, near))
        for end in (near, far):
            end.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, _ORDERLY)
    except* OSError:
        pass  # whoever closes them resets them


async def _read(
    source: socket.socket, chunks: asyncio.Queue[bytes], tell: Callable[[bytes], None] | None = None
) -> None:
    """Chunk by chunk, as they were sent, and an empty one at the end."""
    loop = asyncio.get_running_loop()
    while chunk := await loop.sock_recv(source, _LARGEST):
        if tell:
            tell(chunk)
            tell = None
        await chunks.put(chunk)
    await chunks.put(b"")


async def _write(chunks: asyncio.Queue[bytes], target: socket.socket) -> None:
    loop = asyncio.get_running_loop()
    while chunk := await chunks.get():
        await loop.sock_sendall(target, chunk)
    target.shutdown(socket.SHUT_WR)


def _connection() -> socket.socket:
    opened = socket.socket()
    opened.setblocking(False)
    opened.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, _RESETTING)
    # What was sent in one piece leaves in one piece.
    opened.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return opened


def _listen_outside() -> tuple[socket.socket, socket.socket]:
    for address in OUTSIDE_ADDRESSES:
        with contextlib.suppress(OSError), contextlib.ExitStack() as stack:
            commands = stack.enter_context(_listen(address, COMMAND_PORT))
            datagrams = stack.enter_context(_bind_datagrams(address, COMMAND_PORT))
            stack.pop_all()
            return commands, datagrams
    raise DoorError(
        f"Port {COMMAND_PORT} of this machine's loopback is taken at {OUTSIDE_ADDRESSES[0]} to"
        f" {OUTSIDE_ADDRESSES[-1]}: the unit cannot be reached there."
    )


def _listen(address: str, port: int) -> socket.socket:
    listening = socket.create_server((address, port))
    listening.setblocking(False)
    # For the connections that it accepts, from their first moment on.
    listening.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, _RESETTING)
    return listening


def _bind_datagrams(address: str, port: int) -> socket.socket:
    bound = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    bound.setblocking(False)
    try:
        bound.bind((address, port))
    except OSError:
        bound.close()
        raise
    return bound
