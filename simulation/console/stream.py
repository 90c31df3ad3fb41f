"""GET /events: what happens, as server-sent events, to any number of readers.

An event of the station is a message with its number as id. Three kinds have a name: "station" (first;
which station this is), "state" (all that GET /state says, whenever it has changed) and "screen" (there
is a new GET /screen.jpg, or none).
"""

import asyncio
import contextlib
import json
import secrets
from collections.abc import Awaitable, Callable
from typing import Any

from aiohttp import web

from simulation.console.errors import BadRequest
from simulation.console.problems import Problems
from simulation.events import Event
from simulation.handles import Handles

_PERIOD = 0.5  # seconds between looks at the state
_SHORTEST = 0.05  # also when much happens
_BATCH = 500  # events in one write


def event_values(event: Event) -> dict[str, Any]:
    return {
        "number": event.number,
        "time": round(event.time, 6),
        "source": event.source,
        "text": event.text,
    }


class Stream:
    """Runs in the console's event loop."""

    def __init__(
        self, read_state: Callable[[], Awaitable[dict[str, Any]]], handles: Handles
    ) -> None:
        self._loop = asyncio.get_running_loop()
        self._read_state = read_state
        self._events = handles.events
        self._problems = Problems(handles.events)
        self._state: dict[str, Any] = {}
        self._state_number = 0
        self._screen = (0, False)
        self._readers: set[asyncio.Event] = set()
        self._look_now = asyncio.Event()
        self._is_closing = False
        self.station = secrets.token_hex(8)  # changes with each start

    def close(self) -> None:
        """Every reader's answer ends."""
        self._is_closing = True
        self._wake()

    def look(self) -> None:
        """The state may have changed."""
        self._look_now.set()

    def show_screen(self, number: int, is_live: bool) -> None:
        self._screen = (number, is_live)
        self._wake()

    async def run(self) -> None:
        """Until it is canceled."""
        self._events.listen(self._take)
        try:
            while True:
                self._look_now.clear()
                if self._readers:
                    await self._look()
                await asyncio.sleep(_SHORTEST)
                with contextlib.suppress(TimeoutError):
                    async with asyncio.timeout(_PERIOD):
                        await self._look_now.wait()
        finally:
            self._events.stop_listening(self._take)

    async def _look(self) -> None:
        try:
            state = await self._read_state()
        except (
            Exception
        ) as error:  # anything can be in the unit, and the next look may find it mended
            self._problems.tell("the state", error)
            return
        if state != self._state:
            self._state = state
            self._state_number += 1
            self._wake()

    def _take(self, _: Event) -> None:
        self._loop.call_soon_threadsafe(self._notice)

    def _notice(self) -> None:
        self._look_now.set()
        self._wake()

    def _wake(self) -> None:
        for reader in self._readers:
            reader.set()

    async def answer(self, request: web.Request) -> web.StreamResponse:
        last = _number(request)
        response = web.StreamResponse(headers={"Content-Type": "text/event-stream"})
        await response.prepare(request)
        news = asyncio.Event()
        self._readers.add(news)
        self._look_now.set()
        try:
            await self._tell(response, news, last)
        except ConnectionError:
            pass  # the reader has gone
        finally:
            self._readers.remove(news)
        return response

    async def _tell(self, response: web.StreamResponse, news: asyncio.Event, last: int) -> None:
        state, screen = 0, (0, False)
        await response.write(_named_message("station", {"id": self.station}))
        while not self._is_closing:
            news.clear()
            events = self._events.since(last)[:_BATCH]
            if events:
                last = events[-1].number
                news.set()  # there may be more
                await response.write(b"".join(map(_event_message, events)))
            if state != self._state_number:
                state = self._state_number
                await response.write(_named_message("state", self._state))
            if screen != self._screen:
                screen = self._screen
                values = {"number": screen[0], "live": screen[1]}
                await response.write(_named_message("screen", values))
            await news.wait()


def _number(request: web.Request) -> int:
    """Of the last event that the reader has."""
    text = request.query.get("since") or request.headers.get("Last-Event-ID") or "0"
    if not text.isascii() or not text.isdigit():
        raise BadRequest("since is the number of an event.")
    return int(text)


def _event_message(event: Event) -> bytes:
    return f"id: {event.number}\ndata: {json.dumps(event_values(event))}\n\n".encode()


def _named_message(name: str, values: dict[str, Any]) -> bytes:
    return f"event: {name}\ndata: {json.dumps(values)}\n\n".encode()
