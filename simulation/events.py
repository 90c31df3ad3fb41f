"""What happens in a station, in order: the log that the timeline prints and the console shows."""

import threading
import time
from collections.abc import Callable
from dataclasses import dataclass


@dataclass(frozen=True)
class Event:
    number: int  # counts from 1
    time: float  # seconds since the epoch
    source: str  # one of SOURCES
    text: str  # for people; one printable line


# Who can have an event.
SOURCES = (
    *("station", "gateway", "service", "document", "picture", "TV", "tool", "watchdog"),
    *("hand", "problem", "stderr"),
)

Listener = Callable[[Event], None]


class EventLog:
    """All events of a station since its start, up to a limit. Any thread may use it."""

    def __init__(self, limit: int = 100_000) -> None:
        """At most this many are kept; the oldest go first."""
        self._limit = limit
        self._events: list[Event] = []
        self._count = 0
        self._listeners: list[Listener] = []
        self._lock = threading.RLock()

    def add(self, source: str, text: str) -> Event:
        """What cannot be printed is replaced: an event may hold bytes from the network."""
        assert source in SOURCES, source
        clean = "".join(c if c.isprintable() else "\N{MIDDLE DOT}" for c in text)
        with self._lock:
            self._count += 1
            event = Event(self._count, time.time(), source, clean)
            self._events.append(event)
            if len(self._events) > 2 * self._limit:
                del self._events[: self._limit]
            for listener in list(self._listeners):
                listener(event)
        return event

    def since(self, number: int = 0) -> list[Event]:
        """Those after the one with this number that are still kept."""
        with self._lock:
            kept = self._events[-self._limit :]
            first = self._count - len(kept) + 1
            return kept[max(number + 1 - first, 0) :]

    def listen(self, listener: Listener) -> None:
        """Calls it for each event from now on, in the thread that adds the event."""
        with self._lock:
            self._listeners.append(listener)

    def stop_listening(self, listener: Listener) -> None:
        with self._lock:
            self._listeners.remove(listener)
