"""Serves the console on this machine's loopback, from a thread of its own."""

import asyncio
import contextlib
import errno
import json
import logging
import os
import socket
import threading
from collections.abc import Awaitable, Callable
from pathlib import Path
from typing import Any, TypeVar

from aiohttp import web

from simulation.console import actions, explain
from simulation.console.errors import BadRequest
from simulation.console.forms import describe_all
from simulation.console.guard import LARGEST_BODY, TOKEN_HEADER, Guard, protect
from simulation.console.messages import read_message
from simulation.console.screencast import Screencast
from simulation.console.state import read_state
from simulation.console.stream import Stream, event_values
from simulation.handle_error import HandleError
from simulation.handles import Handles
from simulation.station import Station
from simulation.waiting import DEADLINE

PAGE = Path(__file__).with_name("page")
KEY = "/run/station/console"  # on the gateway's side, so that it disappears with the station

_TYPES = {
    ".html": "text/html",
    ".css": "text/css",
    ".js": "text/javascript",
    ".svg": "image/svg+xml",
}
_CLOSING = 0.5  # seconds for requests that are being answered

T = TypeVar("T")


class Console:
    """Use it in a with statement."""

    def __init__(self, station: Station, handles: Handles, port: int = 0) -> None:
        """If the port is taken, another one is used."""
        self._station = station
        self._handles = handles
        self._listening = _listen(port)
        self._guard = Guard()
        self._guard.port = self.port = int(self._listening.getsockname()[1])
        self.address = f"http://127.0.0.1:{self.port}/"
        self.key = Path(f"/proc/{station.gateway_pid}/root{KEY}")
        self._acting = threading.Lock()
        self._is_ready = threading.Event()
        self._failure: BaseException | None = None
        self._thread = threading.Thread(target=self._run_loop, daemon=True)
        # A request that no browser can read is nobody's business here.
        logging.getLogger("aiohttp").addHandler(logging.NullHandler())
        logging.getLogger("aiohttp").propagate = False

    def __enter__(self) -> "Console":
        self._write_key()
        self._thread.start()
        self._is_ready.wait(DEADLINE)
        if self._failure:
            raise self._failure
        return self

    def __exit__(self, *_: object) -> None:
        with contextlib.suppress(RuntimeError):  # the loop has ended by itself
            self._loop.call_soon_threadsafe(self._ending.set)
        self._thread.join(DEADLINE)
        self.key.unlink(missing_ok=True)

    def _run_loop(self) -> None:
        try:
            asyncio.run(self._serve())
        except Exception as error:
            self._failure = error
            self._is_ready.set()

    def _write_key(self) -> None:
        """For curl --config, and for the commands."""
        fd = os.open(self.key, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600)
        with open(fd, "w", encoding="ascii") as file:
            file.write(f"# {self.address}\n")
            file.write(f'header = "{TOKEN_HEADER}: {self._guard.token}"\n')

    async def _serve(self) -> None:
        self._loop = asyncio.get_running_loop()
        self._ending = asyncio.Event()
        self._stream = Stream(lambda: self._in_thread(read_state, self._handles), self._handles)
        self._screencast = Screencast(self._station, self._handles.events, self._show_screen)
        runner = web.AppRunner(self._application(), access_log=None)
        await runner.setup()
        await web.SockSite(runner, self._listening, shutdown_timeout=_CLOSING).start()
        tasks = [
            asyncio.create_task(self._stream.run()),
            asyncio.create_task(self._screencast.run()),
        ]
        self._is_ready.set()
        await self._ending.wait()
        self._stream.close()
        for task in tasks:
            task.cancel()
        await asyncio.gather(*tasks, return_exceptions=True)
        await runner.cleanup()

    def _show_screen(self) -> None:
        self._stream.show_screen(self._screencast.number, bool(self._screencast.picture))

    def _application(self) -> web.Application:
        application = web.Application(middlewares=[self._answer], client_max_size=LARGEST_BODY)
        application.add_routes(
            [
                web.get("/", self._index),
                web.get("/actions", self._actions),
                web.get("/state", self._state),
                web.get("/events", self._stream.answer),
                web.get("/events.jsonl", self._events),
                web.get("/screen.jpg", self._screen),
                web.post("/gateway/decode", self._decode),
                web.post("/{path:.*}", self._act),
                *(web.get(f"/{file.name}", self._file) for file in sorted(PAGE.glob("*.*"))),
            ]
        )
        application.on_response_prepare.append(_protect)
        return application

    @web.middleware
    async def _answer(
        self,
        request: web.Request,
        handler: Callable[[web.Request], Awaitable[web.StreamResponse]],
    ) -> web.StreamResponse:
        """Errors as JSON, with a sentence for people."""
        try:
            self._guard.check(request)
            return await handler(request)
        except BadRequest as error:
            return _refuse(str(error), error.status)
        except HandleError as error:
            return _refuse(str(error), 409)
        except web.HTTPException as error:
            return _refuse(f"{request.method} {request.path}: {error.reason}.", error.status)
        except Exception as error:  # the station may be ending
            self._handles.events.add("problem", f"console: {request.path}: {error!r}")
            return _refuse(f"That did not work: {error!r}.", 500)

    # What a browser shows.

    async def _index(self, _: web.Request) -> web.Response:
        text = (PAGE / "index.html").read_text(encoding="utf-8")
        text = text.replace("@TOKEN@", self._guard.token).replace("@STATION@", self._stream.station)
        return web.Response(text=text, content_type="text/html")

    async def _file(self, request: web.Request) -> web.Response:
        file = PAGE / request.path.lstrip("/")
        content_type = _TYPES[file.suffix]
        return web.Response(body=file.read_bytes(), content_type=content_type, charset="utf-8")

    async def _screen(self, _: web.Request) -> web.Response:
        if not self._screencast.picture:
            raise BadRequest("The unit's browser shows nothing.", 404)
        return web.Response(body=self._screencast.picture, content_type="image/jpeg")

    # What can be known.

    async def _actions(self, _: web.Request) -> web.Response:
        return web.json_response(describe_all())

    async def _state(self, _: web.Request) -> web.Response:
        return web.json_response(await self._in_thread(read_state, self._handles))

    async def _events(self, _: web.Request) -> web.Response:
        lines = [json.dumps(event_values(event)) for event in self._handles.events.since()]
        text = "".join(line + "\n" for line in lines)
        return web.Response(text=text, content_type="application/jsonl")

    # What can be done.

    async def _decode(self, request: web.Request) -> web.Response:
        message = read_message(await _read_body(request))
        explanation = await self._in_thread(explain.explain, message)
        answer = {"hex": message.content.hex(" "), "channel": message.channel}
        return web.json_response({**answer, "explanation": explanation})

    async def _act(self, request: web.Request) -> web.Response:
        action = actions.find_action(request.path)
        body = await _read_body(request)
        await self._in_thread(self._run, action, body)
        self._stream.look()
        return web.json_response({"done": request.path})

    def _run(self, action: actions.Action, body: dict[str, Any]) -> None:
        """A message may take its time; what people do otherwise happens one after the other."""
        if action.path.startswith("/gateway/"):
            action.run(self._handles, body)
            return
        with self._acting:
            action.run(self._handles, body)

    async def _in_thread(self, function: Callable[..., T], *arguments: Any) -> T:
        """In one that does not keep the station from ending."""
        result: asyncio.Future[T] = self._loop.create_future()

        def settle(value: T | None, error: BaseException | None) -> None:
            if result.cancelled():
                return
            if error:
                result.set_exception(error)
            else:
                result.set_result(value)  # type: ignore[arg-type]

        def run() -> None:
            value, failure = None, None
            try:
                value = function(*arguments)
            except Exception as error:
                failure = error
            with contextlib.suppress(RuntimeError):  # the console has ended
                self._loop.call_soon_threadsafe(settle, value, failure)

        threading.Thread(target=run, daemon=True).start()
        return await result


def _listen(port: int) -> socket.socket:
    try:
        return socket.create_server(("127.0.0.1", port))
    except OSError as error:
        if error.errno != errno.EADDRINUSE:
            raise
        return socket.create_server(("127.0.0.1", 0))


async def _protect(_: web.Request, response: web.StreamResponse) -> None:
    protect(response)


async def _read_body(request: web.Request) -> dict[str, Any]:
    try:
        body = json.loads(await request.read() or b"{}")
    except (ValueError, RecursionError):
        raise BadRequest("The body is not JSON.") from None
    if not isinstance(body, dict):
        raise BadRequest("The body has to be a JSON object.")
    return body


def _refuse(text: str, status: int) -> web.Response:
    return web.json_response({"error": text}, status=status)
