"""Everything that a person may do to a running station, and everything that they may look at in it.

    handles = Handles(station, television, records)
    handles.unit.start_service()
    handles.tv.turn_off()
    handles.gateway.send(gateway.display_alert("FIRE"))
    handles.unit.kill_browser()
    handles.unit.restore_browser()
    handles.view.document()

What is done is also said in handles.events. Any thread may use the handles; each call returns when
it is done. A call that cannot do what it says raises HandleError, with a sentence for people.
"""

import contextlib
import socket
import struct
import threading
import time
from collections.abc import Iterator

from simulation import gateway
from simulation.events import EventLog
from simulation.gateway import RecordListener
from simulation.handle_error import HandleError
from simulation.places import GATEWAY_ADDRESSES, UNIT_ADDRESS
from simulation.station import Station
from simulation.television import IN_STANDBY, ON, POWER_WORDS, WAKING, Television, dotted
from simulation.television import UNIT_ADDRESS as UNIT_INPUT
from simulation.unit_handles import UnitHandles
from simulation.unit_view import UnitView

# What a gateway should wait for the unit to take a message (docs/protocol.md).
SEND_DEADLINE = 10.0


class Handles:
    """The handles of one station."""

    def __init__(
        self,
        station: Station,
        television: Television,
        records: RecordListener,
        events: EventLog | None = None,
    ) -> None:
        self.events = EventLog() if events is None else events
        self.view = UnitView(station)
        self.tv = TelevisionHandles(television, self.events)
        self.gateway = GatewayHandles(station, records, self.view, self.events)
        self.unit = UnitHandles(station, self.view, self.gateway.send, self.events)

    def undo_all(self) -> None:
        """Television and unit behave again. What an alert has changed stays."""
        self.tv.undo_all()
        self.unit.undo_all()


class TelevisionHandles:
    """The remote control, and bad habits. Each habit ends with its own call, with False or 0."""

    def __init__(self, television: Television, events: EventLog) -> None:
        self._television = television
        self._events = events
        self._wake_delay = television.wake_delay

    def turn_on(self) -> None:
        self._television.switch_on()

    def turn_off(self) -> None:
        self._television.switch_off()

    def press_power(self) -> None:
        """The remote control's one button for both."""
        if self._television.power == ON:
            self.turn_off()
        else:
            self.turn_on()

    def choose_input(self, address: str) -> None:
        """A physical address as people write it: "3.0.0.0". The unit is at "1.0.0.0", the
        television's own program at "0.0.0.0"."""
        self._television.switch_input(parse_input(address))

    def be_deaf(self, is_deaf: bool = True) -> None:
        """Ignores everything on the bus."""
        self._television.is_deaf = is_deaf
        self._say("ignores the bus" if is_deaf else "listens to the bus again")

    def be_slow(self, answer_delay: float = 3.0, wake_delay: float | None = None) -> None:
        """Seconds until it answers a question, and until it is awake (default: as long as before).
        An answer_delay of 0 undoes both."""
        if not 0 <= answer_delay <= 600 or not 0 <= (wake_delay or 0) <= 600:
            raise HandleError("A delay is 0 to 600 seconds.")
        self._television.answer_delay = answer_delay
        self._television.wake_delay = self._wake_delay if wake_delay is None else wake_delay
        self._say(f"answers after {answer_delay:g} s" if answer_delay else "answers at once again")

    def be_stubborn(self, is_stubborn: bool = True) -> None:
        """Stays in standby, whatever the unit sends. The remote control still works."""
        self._television.is_stubborn = is_stubborn
        self._say("does not wake up" if is_stubborn else "wakes up again when told to")

    def pull_cable(self) -> None:
        self._television.is_unplugged = True
        self._say("the cable is out")

    def plug_cable(self) -> None:
        self._television.is_unplugged = False
        self._say("the cable is in")

    def undo_all(self) -> None:
        """Not what the remote control did: power and input stay."""
        if self._television.is_deaf:
            self.be_deaf(False)
        if self._television.answer_delay or self._television.wake_delay != self._wake_delay:
            self.be_slow(0)
        if self._television.is_stubborn:
            self.be_stubborn(False)
        if self._television.is_unplugged:
            self.plug_cable()

    @property
    def power(self) -> str:
        """ "on", "in standby", "waking" or "going off"."""
        return POWER_WORDS[self._television.power]

    @property
    def input(self) -> str:
        return dotted(self._television.input)

    @property
    def picture(self) -> str:
        """What a viewer sees: "nothing" in standby, "unit", "no signal", or "input 3.0.0.0"."""
        if self._television.power in (IN_STANDBY, WAKING):
            return "nothing"
        if self._television.input != UNIT_INPUT:
            return f"input {self.input}"
        return "no signal" if self._television.is_unplugged else "unit"

    def state(self) -> dict[str, object]:
        """All of it, as plain values."""
        return {
            "power": self.power,
            "input": self.input,
            "picture": self.picture,
            "deaf": self._television.is_deaf,
            "slow": self._television.answer_delay,
            "stubborn": self._television.is_stubborn,
            "cable": "out" if self._television.is_unplugged else "in",
        }

    def _say(self, text: str) -> None:
        self._events.add("TV", text)


def parse_input(address: str) -> int:
    digits = address.split(".")
    if len(digits) != 4 or not all(len(x) == 1 and x in "0123456789abcdefABCDEF" for x in digits):
        raise HandleError(f'"{address}" is not an input: write one like 3.0.0.0.')
    return int("".join(digits), 16)


class GatewayHandles:
    """The alerting gateway. Messages are built by simulation.gateway's functions, or raw bytes."""

    def __init__(
        self, station: Station, records: RecordListener, view: UnitView, events: EventLog
    ) -> None:
        self._station = station
        self._records = records
        self._view = view
        self._events = events
        self._sending = threading.Lock()  # a gateway has one connection to a unit at a time

    def send(
        self,
        message: bytes,
        words: str = "",
        is_datagram: bool = False,
        source: str = gateway.GATEWAY,
        deadline: float = SEND_DEADLINE,
    ) -> None:
        """Returns when the unit has read the message; a datagram is on its way then. The deadline is
        for all of it, other messages before it included."""
        if source not in GATEWAY_ADDRESSES:
            raise HandleError(f"The gateway has the addresses {', '.join(GATEWAY_ADDRESSES)}.")
        destination = self._view.address() or UNIT_ADDRESS
        end = time.monotonic() + deadline
        try:
            with self._turn(end):
                self._events.add("gateway", "sends: " + (words or gateway.message_name(message)))
                if is_datagram:
                    gateway.send_datagram(self._station, message, source, destination)
                else:
                    self._send_over_connection(message, source, destination, end)
        except OSError as error:  # includes TimeoutError
            self._events.add("problem", f"the unit has not taken the message: {error}")
            raise HandleError(f"The unit has not taken the message: {error}.") from error

    @contextlib.contextmanager
    def _turn(self, end: float) -> Iterator[None]:
        if not self._sending.acquire(timeout=_left(end)):
            raise TimeoutError("it has not taken an earlier one")
        try:
            yield
        finally:
            self._sending.release()

    def _send_over_connection(
        self, message: bytes, source: str, destination: str, end: float
    ) -> None:
        connection = gateway.connect(self._station, source, destination, deadline=_left(end))
        with connection:
            try:
                connection.settimeout(_left(end))
                connection.sendall(message)
                if not message:
                    connection.shutdown(socket.SHUT_WR)
                connection.settimeout(_left(end))
                gateway.wait_until_closed(connection)
            except TimeoutError:
                # Or it could arrive after a newer one.
                linger = struct.pack("ii", 1, 0)
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, linger)
                raise

    @property
    def is_hearing(self) -> bool:
        """Whether it receives the records at all, and not another gateway."""
        return self._records.is_hearing

    def received(self) -> list[bytes]:
        """The records from the unit, oldest first; gateway.describe_record explains one."""
        return self._records.records()


def _left(end: float) -> float:
    """Seconds until then. Raises TimeoutError."""
    left = end - time.monotonic()
    if left <= 0:
        raise TimeoutError("timed out")
    return left
