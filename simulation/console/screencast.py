"""The kiosk browser's real screen as it changes, through the browser's debugging port."""

import asyncio
import base64
import contextlib
import itertools
from collections.abc import AsyncIterator, Callable
from pathlib import Path
from typing import Any

import aiohttp

from simulation import kiosk
from simulation.console.problems import Problems
from simulation.events import Event, EventLog
from simulation.forward import Forward
from simulation.screen import DRAWN, page_text
from simulation.station import Station

_QUALITY = 70  # of the JPEGs
_RETRY = 0.2  # seconds
_LOOK = 0.03
_PATIENCE = 10.0


class Screencast:
    """Runs in the console's event loop. The browser sends a picture whenever its screen changes."""

    def __init__(self, station: Station, events: EventLog, on_change: Callable[[], None]) -> None:
        """on_change is called in the loop after each new picture, and when there is none anymore."""
        self._station = station
        self._events = events
        self._problems = Problems(events)
        self._on_change = on_change
        self._documents: asyncio.Queue[None] = asyncio.Queue()
        self._answers: dict[int, asyncio.Future[Any]] = {}
        self._numbers = itertools.count(1)
        self._socket: aiohttp.ClientWebSocketResponse | None = None
        self.picture = b""  # a JPEG; empty if no browser runs
        self.number = 0  # of this picture

    async def run(self) -> None:
        """Until it is canceled."""
        loop = asyncio.get_running_loop()

        def take(event: Event) -> None:
            if event.source == "document":
                loop.call_soon_threadsafe(self._documents.put_nowait, None)

        self._events.listen(take)
        try:
            # Whoever reaches this port operates the browser: it is for the console alone.
            path = self._station.gateway_directory() / "browser"
            with Forward(self._station, kiosk.DEBUGGING_PORT, path=path):
                await asyncio.gather(self._follow(path), self._watch_documents())
        finally:
            self._events.stop_listening(take)

    async def _follow(self, path: Path) -> None:
        connector = aiohttp.UnixConnector(str(path))
        async with aiohttp.ClientSession(connector=connector) as session:
            while True:
                try:
                    if self._station.listen_queue(kiosk.DEBUGGING_PORT) is not None:
                        async with self._connect(session) as connected:
                            await self._receive(connected)
                except (aiohttp.ClientError, OSError, LookupError):
                    pass  # it is just coming or going
                except Exception as error:
                    self._problems.tell("the unit's screen", error)
                await asyncio.sleep(_RETRY)

    @contextlib.asynccontextmanager
    async def _connect(
        self, session: aiohttp.ClientSession
    ) -> AsyncIterator[aiohttp.ClientWebSocketResponse]:
        address = f"http://127.0.0.1:{kiosk.DEBUGGING_PORT}/json/list"  # as the browser knows it
        async with session.get(address) as answer:
            pages = [page for page in await answer.json() if page["type"] == "page"]
        address = pages[0]["webSocketDebuggerUrl"]
        async with session.ws_connect(address, max_msg_size=0) as connected:
            self._socket = connected
            try:
                yield connected
            finally:
                self._socket = None
                self._set_picture(b"")
                for waiting in self._answers.values():
                    if not waiting.done():
                        waiting.set_result({})
                self._answers.clear()

    async def _receive(self, connected: aiohttp.ClientWebSocketResponse) -> None:
        width, height = kiosk.SIZE
        await self._send(
            "Page.startScreencast",
            {"format": "jpeg", "quality": _QUALITY, "maxWidth": width, "maxHeight": height},
        )
        async for message in connected:
            if message.type != aiohttp.WSMsgType.TEXT:
                continue
            content = message.json()
            if content.get("method") == "Page.screencastFrame":
                self._set_picture(base64.b64decode(content["params"]["data"]))
                number = content["params"]["sessionId"]
                await self._send("Page.screencastFrameAck", {"sessionId": number})
            elif waiting := self._answers.pop(content.get("id", 0), None):
                if not waiting.done():
                    waiting.set_result(content.get("result", {}))

    def _set_picture(self, picture: bytes) -> None:
        self.picture = picture
        self.number += 1
        self._on_change()

    async def _send(self, method: str, params: dict[str, Any]) -> int:
        number = next(self._numbers)
        if self._socket:
            await self._socket.send_json({"id": number, "method": method, "params": params})
        return number

    # When a document is on the screen.

    async def _watch_documents(self) -> None:
        while True:
            await self._documents.get()
            try:
                async with asyncio.timeout(_PATIENCE):
                    await self._wait_until_drawn()
            except TimeoutError:
                pass
            except Exception as error:
                self._problems.tell("the picture of a document", error)

    async def _wait_until_drawn(self) -> None:
        document = self._station.document_text()
        while self._documents.empty():  # a newer one is more interesting
            if await self._drawn() == page_text(document):
                self._events.add("picture", "the page has drawn the document")
                return
            await asyncio.sleep(_LOOK)

    async def _drawn(self) -> Any:
        if self._socket is None:
            return None
        answer: asyncio.Future[Any] = asyncio.get_running_loop().create_future()
        with contextlib.suppress(ConnectionError):  # the browser is just going
            number = await self._send("Runtime.evaluate", {"expression": DRAWN})
            self._answers[number] = answer
            return (await answer).get("result", {}).get("value")
        return None
