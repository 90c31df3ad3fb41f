"""A simulated television, and the CEC bus between it and the unit (docs/cec-bus.md).

It has a power state and an input, and acts on the bus like a real one. Tests and the demo operate
it like a viewer (inputs, power) or make it misbehave.
"""

import contextlib
import heapq
import selectors
import socket
import threading
import time
from collections.abc import Callable
from dataclasses import dataclass, field

from simulation.station import Station
from simulation.waiting import DEADLINE, wait_for

BUS = "/run/cec-bus.sock"
UNIT = 4  # logical address
UNIT_ADDRESS = 0x1000  # physical address
TV = 0
OTHER_PLAYER = 8
BROADCAST = 0xF

IMAGE_VIEW_ON, TEXT_VIEW_ON, STANDBY = 0x04, 0x0D, 0x36
ROUTING_CHANGE, ACTIVE_SOURCE, INACTIVE_SOURCE = 0x80, 0x82, 0x9D
GIVE_POWER_STATUS, REPORT_POWER_STATUS = 0x8F, 0x90

# Power status operands.
ON, IN_STANDBY, WAKING, FALLING_ASLEEP = 0, 1, 2, 3
POWER_WORDS = {ON: "on", IN_STANDBY: "in standby", WAKING: "waking", FALLING_ASLEEP: "going off"}


def dotted(address: int) -> str:
    """A physical address as people write it: 1.0.0.0."""
    return ".".join(f"{address:04x}")


def frame_text(frame: bytes) -> str:
    return frame.hex(":").upper()


@dataclass(order=True)
class _Appointment:
    when: float
    number: int
    action: Callable[[], None] = field(compare=False)


class Television:
    """Provides the bus in the unit until it is closed. Use it in a with statement."""

    def __init__(
        self,
        station: Station,
        power: int = ON,
        tv_input: int = 0x0000,
        wake_delay: float = 0.0,
        sleep_delay: float = 0.0,
        hello: str = f"hello {UNIT:X} {UNIT_ADDRESS:04X}",
    ) -> None:
        self.lines: list[str] = []  # everything the unit has said
        self.all_frames: list[str] = []  # the CEC messages among them
        self.frames: list[str] = []  # without power status queries, which also come
        # every five seconds
        self.story: list[str] = []  # what a viewer sees
        self.osd_names: dict[int, str] = {}
        self.vendors: dict[int, str] = {}
        self.power = power
        self.input = tv_input
        self.wake_delay = wake_delay
        self.sleep_delay = sleep_delay
        self.is_deaf = False  # ignores everything
        self.is_stubborn = False  # stays in standby, whatever the unit says
        self.is_unplugged = False  # nothing gets through in either direction
        self.answer_delay = 0.0
        self.standby_reports = 0  # how many more times it falsely reports standby
        self._hello = hello
        self._forwarded: set[int] = set()
        self._lock = threading.RLock()
        self._appointments: list[_Appointment] = []
        self._appointment_count = 0
        self._unit: socket.socket | None = None
        self._is_reading = True
        self._is_closing = False
        self._selector = selectors.DefaultSelector()
        self._wake_up, self._woken = socket.socketpair()
        self._selector.register(self._woken, selectors.EVENT_READ)
        self._listening = socket.socket(socket.AF_UNIX)
        self._listening.bind(str(station.path(BUS)))
        self._listening.listen(1)
        self._selector.register(self._listening, selectors.EVENT_READ)
        self._rest = b""
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    def __enter__(self) -> "Television":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """The bus goes away."""
        self._is_closing = True
        self._wake_up.send(b".")
        self._thread.join(DEADLINE)
        for end in (self._listening, self._wake_up, self._woken):
            end.close()

    # What a viewer does.

    def switch_input(self, address: int) -> None:
        with self._lock:
            old = self.input
            self._show(address)
            operands = old.to_bytes(2, "big") + address.to_bytes(2, "big")
            self.send(TV, BROADCAST, ROUTING_CHANGE, operands)

    def switch_off(self) -> None:
        with self._lock:
            self._set_power(IN_STANDBY)
            self.send(TV, BROADCAST, REPORT_POWER_STATUS, bytes([IN_STANDBY]))

    def switch_on(self) -> None:
        with self._lock:
            self._set_power(ON)
            self.send(TV, BROADCAST, REPORT_POWER_STATUS, bytes([ON]))

    # What goes over the bus.

    def send(self, initiator: int, destination: int, opcode: int, operands: bytes = b"") -> None:
        """A message, forwarded to the unit if it registered for the opcode."""
        frame = bytes([initiator << 4 | destination, opcode]) + operands
        if opcode in self._forwarded and not self.is_unplugged:
            self.say(f"rx {frame_text(frame)}")

    def say(self, line: str) -> None:
        """Sends the unit a line as is."""
        self.say_bytes(line.encode() + b"\n")

    def say_bytes(self, text: bytes) -> None:
        with self._lock, contextlib.suppress(OSError):
            if self._unit:
                self._unit.sendall(text)

    def stop_reading(self) -> None:
        """From now on, what the unit says piles up unread."""
        self._is_reading = False
        self._wake_up.send(b".")

    def wait_for_frames(self, expected: list[str], since: int = 0) -> None:
        """Until the unit has sent exactly these messages, starting at index since. Power status
        queries do not count."""
        wait_for(lambda: len(self.frames) >= since + len(expected), f"{expected} on the bus")
        assert self.frames[since:] == expected

    # The bus process.

    def _serve(self) -> None:
        while not self._is_closing:
            for key, _ in self._selector.select(self._time_to_next_appointment()):
                if key.fileobj is self._listening:
                    self._accept()
                elif key.fileobj is self._woken:
                    self._woken.recv(4096)
                elif self._is_reading:
                    self._read_unit()
                else:
                    self._selector.unregister(key.fileobj)
            self._keep_appointments()
        if self._unit:
            self._unit.close()

    def _accept(self) -> None:
        self._unit, _ = self._listening.accept()
        self._selector.register(self._unit, selectors.EVENT_READ)
        self._rest = b""
        self.say(self._hello)

    def _read_unit(self) -> None:
        assert self._unit is not None
        try:
            text = self._unit.recv(4096)
        except ConnectionResetError:
            text = b""
        if not text:
            self._selector.unregister(self._unit)
            return
        *lines, self._rest = (self._rest + text).split(b"\n")
        with self._lock:
            for line in lines:
                self._take(line.decode())

    def _take(self, line: str) -> None:
        self.lines.append(line)
        word, _, rest = line.partition(" ")
        if word == "deregister":
            self._forwarded.clear()
        elif word == "register":
            self._forwarded.add(int(rest, 16))
        elif word == "vendor":
            self.vendors[UNIT] = rest
        elif word == "osd":
            self.osd_names[UNIT] = rest
        elif word == "send":
            if not self.is_unplugged:
                self.say(f"tx {rest}")
                self._hear(bytes.fromhex(rest.replace(":", "")))
            # Last, so that whoever sees the message also sees its effect.
            self.all_frames.append(rest)
            if not rest.endswith(f":{GIVE_POWER_STATUS:02X}"):
                self.frames.append(rest)

    def _time_to_next_appointment(self) -> float | None:
        with self._lock:
            if not self._appointments:
                return None
            return max(self._appointments[0].when - time.monotonic(), 0)

    def _keep_appointments(self) -> None:
        with self._lock:
            while self._appointments and self._appointments[0].when <= time.monotonic():
                heapq.heappop(self._appointments).action()

    def _after(self, delay: float, action: Callable[[], None]) -> None:
        if delay <= 0:
            action()
            return
        self._appointment_count += 1
        appointment = _Appointment(time.monotonic() + delay, self._appointment_count, action)
        heapq.heappush(self._appointments, appointment)

    # The television.

    def _hear(self, frame: bytes) -> None:
        destination, operands = frame[0] & 0x0F, frame[2:]
        if self.is_deaf or len(frame) < 2 or destination not in (TV, BROADCAST):
            return
        opcode = frame[1]
        if opcode == GIVE_POWER_STATUS:
            self._after(self.answer_delay, lambda: self._report_power(frame[0] >> 4))
        elif opcode in (IMAGE_VIEW_ON, TEXT_VIEW_ON):
            self._wake()
        elif opcode == STANDBY:
            self._fall_asleep()
        elif self.power in (ON, WAKING):
            self._follow_source(opcode, operands)

    def _follow_source(self, opcode: int, operands: bytes) -> None:
        if opcode == ACTIVE_SOURCE and len(operands) == 2:
            self._show(int.from_bytes(operands, "big"))
        elif opcode == ROUTING_CHANGE and len(operands) == 4:
            self._show(int.from_bytes(operands[2:], "big"))
        elif opcode == INACTIVE_SOURCE and self.input == UNIT_ADDRESS:
            self._show(0x0000)

    def _report_power(self, destination: int) -> None:
        status = self.power
        if self.standby_reports > 0:
            self.standby_reports -= 1
            status = IN_STANDBY
        self.send(TV, destination, REPORT_POWER_STATUS, bytes([status]))

    def _wake(self) -> None:
        if self.power == IN_STANDBY and not self.is_stubborn:
            self._set_power(WAKING)
            self._after(self.wake_delay, lambda: self._set_power(ON))

    def _fall_asleep(self) -> None:
        if self.power in (ON, WAKING):
            self._set_power(FALLING_ASLEEP)
            self._after(self.sleep_delay, lambda: self._set_power(IN_STANDBY))

    def _set_power(self, power: int) -> None:
        if power != self.power:
            self.power = power
            self.story.append(POWER_WORDS[power])

    def _show(self, address: int) -> None:
        if address != self.input:
            arrow = "\N{RIGHTWARDS ARROW}"
            self.story.append(f"input {dotted(self.input)} {arrow} {dotted(address)}")
            self.input = address
