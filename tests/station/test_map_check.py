"""The web server's check of a map's address: only what a browser can show as a page passes it."""

import contextlib
import http.client
import http.server
import threading
import time
from collections.abc import Iterator
from dataclasses import dataclass, field

import pytest

from simulation.forward import Forward
from simulation.gateway import GATEWAY, PROXY, PROXY_PORT
from simulation.places import STATION_WEB, WEB_PORT
from simulation.station import Station

pytestmark = pytest.mark.once

LIMIT = 15  # seconds, for an answer
PAGE = {"Content-Type": "text/html; charset=utf-8"}
ASKING = {"Host": "127.0.0.1", "X-Station-Page": "map"}


@dataclass
class Answer:
    status: int = 200
    headers: dict[str, str] = field(default_factory=lambda: dict(PAGE))
    is_endless: bool = False


def moved(address: str) -> Answer:
    return Answer(302, {"Location": address})


SELF = "http://127.0.0.1/station_web/"

ANSWERS = {
    "/page": Answer(),
    "/capitals": Answer(headers={"CONTENT-TYPE": "Text/HTML;charset=utf-8"}),
    "/framed": Answer(headers={**PAGE, "Content-Security-Policy": "frame-ancestors *"}),
    "/endless": Answer(is_endless=True),
    "/moved": moved("/page"),
    "/picture": Answer(headers={"Content-Type": "image/png"}),
    "/untyped": Answer(headers={}),
    "/missing": Answer(404),
    "/broken": Answer(500),
    "/empty": Answer(204),
    "/deny": Answer(headers={**PAGE, "X-Frame-Options": "DENY"}),
    "/own-only": Answer(headers={**PAGE, "Content-Security-Policy": "frame-ancestors 'self'"}),
    "/moved-away": moved("/missing"),
    "/moved-to-picture": moved("/picture"),
    "/moved-here": moved(SELF),
    "/moved-nearby": moved("//localhost/"),
    "/moved-around": moved("/moved-around"),
}


class MapServer:
    """The answers above, and a page elsewhere; what was asked for, and how many bytes an endless answer came to."""

    def __init__(self, station: Station, address: str, port: int) -> None:
        self.targets: list[str] = []
        self.agents: list[str] = []
        self.sent = 0
        self.release = threading.Event()
        outer = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self) -> None:
                outer.targets.append(self.path)
                outer.agents.append(self.headers["User-Agent"])
                with contextlib.suppress(OSError):
                    outer.answer(self)

            def log_message(self, *_: object) -> None:
                pass

        with station.on_gateway():
            self.server = http.server.ThreadingHTTPServer((address, port), Handler)
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def answer(self, handler: http.server.BaseHTTPRequestHandler) -> None:
        path = handler.path.removeprefix("http://10.99.0.1").partition("?")[0]
        if path == "/silent":
            self.release.wait(2 * LIMIT)
            return
        answer = ANSWERS.get(path, ANSWERS["/page"])
        handler.send_response(answer.status)
        for name, value in answer.headers.items():
            handler.send_header(name, value)
        handler.end_headers()
        while answer.is_endless:
            self.sent += handler.wfile.write(b"<p>" * 10000)
        handler.wfile.write(b"<p>a map")

    def close(self) -> None:
        self.release.set()
        self.server.shutdown()
        self.server.server_close()


@dataclass
class Desk:
    """A station whose web server is asked, and the server of the maps."""

    station: Station
    port: int
    maps: MapServer

    def ask(
        self, address: str, method: str = "GET", headers: dict[str, str] | None = None
    ) -> tuple[int, str]:
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=2 * LIMIT)
        with contextlib.closing(connection):
            connection.putrequest(method, f"/station_web/map.cgi?{address}", skip_host=True)
            for name, value in (ASKING if headers is None else headers).items():
                connection.putheader(name, value)
            connection.endheaders()
            answer = connection.getresponse()
            return answer.status, answer.read().decode()


@pytest.fixture(scope="module")
def desk() -> Iterator[Desk]:
    with Station() as station:
        station.start_web_server()
        maps = MapServer(station, GATEWAY, 80)
        with contextlib.closing(maps), Forward(station, WEB_PORT) as forward:
            yield Desk(station, forward.port, maps)


@pytest.fixture(autouse=True)
def forget(desk: Desk) -> None:
    desk.maps.targets.clear()


@pytest.mark.parametrize("path", ["/page", "/capitals", "/framed", "/moved"])
def test_page_that_can_be_had_is_one(desk: Desk, path: str) -> None:
    assert desk.ask(f"http://{GATEWAY}{path}") == (204, "")


@pytest.mark.parametrize(
    "path, reason",
    [
        ("/picture", "its content type is image/png"),
        ("/untyped", "its content type is none"),
        ("/missing", "it answers 404"),
        ("/broken", "it answers 500"),
        ("/empty", "it answers 204"),
        ("/deny", "it forbids being framed"),
        ("/own-only", "it forbids being framed"),
        ("/moved-away", "it answers 404"),
        ("/moved-to-picture", "its content type is image/png"),
        ("/moved-here", "it is an address of this unit"),
        ("/moved-nearby", "it is an address of this unit"),
        ("/moved-around", "it answers 302"),
    ],
)
def test_anything_else_is_none_and_the_answer_says_why(desk: Desk, path: str, reason: str) -> None:
    assert desk.ask(f"http://{GATEWAY}{path}") == (404, reason + "\n")


@pytest.mark.parametrize(
    "address",
    [
        "/page?a=1&b=2",
        "/page?where=%22here%22",
        "/page?again=http://x/?y=z&u=1",
        "/page?$(id);id'id'*",
        "/page?--post-file=/etc/passwd",
        "/page?plus+and%20blank",
        "/page?%C3%A4",
        "/page%2Fof%22maps%22/%C3%A4",
        "//page//../page",
    ],
)
def test_address_arrives_as_it_was_asked_for(desk: Desk, address: str) -> None:
    check_arrival(desk, address, address)


def test_address_may_arrive_in_another_spelling(desk: Desk) -> None:
    check_arrival(desk, "/page?a%2fb%7ec`id`|id", "/page?a%2Fb~c%60id%60%7Cid")


def check_arrival(desk: Desk, asked: str, fetched: str) -> None:
    assert desk.ask(f"http://{GATEWAY}{asked}") == (204, "")
    assert desk.station.calls("wget")[-1].argv[-2:] == ["--", f"http://{GATEWAY}{fetched}"]


@pytest.mark.parametrize(
    "address",
    [
        "",
        "--config=/tmp/play.wav",
        "-O/tmp/x",
        "file:///etc/passwd",
        "ftp://10.87.33.20/page",
        "javascript:alert(1)",
        "http://",
        "http://127.0.0.1/station_web/",
        "http://127.0.0.1:4000/",
        "http://127.9.9.9/",
        "https://localhost/",
        "http://LocalHost./",
        "http://page.localhost/",
        "http://[::1]/",
        "http://[::ffff:127.0.0.1]/",
        "http://0/",
        "http://0.0.0.0/",
        "http://2130706433/",
        "http://0x7f.1/",
        "http://0x7f000001/",
        "http://0177.0.0.1/",
        "http://10.0127.0.1/",
        "http://127.1/",
        "http://x@127.0.0.1/",
        f"http://{GATEWAY}\\@127.0.0.1/",
        f"http://{GATEWAY}%40127.0.0.1/",
        f"http://{GATEWAY}/%0d%0aX:y",
    ],
)
def test_nothing_but_another_machines_address_is_fetched(desk: Desk, address: str) -> None:
    before = len(desk.station.calls("wget"))
    status, _ = desk.ask(address)
    assert status in (400, 404)
    assert len(desk.station.calls("wget")) == before


@pytest.mark.parametrize("end", ["\\@127.0.0.1/", "/\n-O/tmp/x", "/ /etc", "/\x7f", "/ä"])
def test_check_does_not_count_on_the_web_server(desk: Desk, end: str) -> None:
    """Which lets no such address through."""
    before = len(desk.station.calls("wget"))
    request = ("REQUEST_METHOD=GET", "HTTP_X_STATION_PAGE=map", "HTTP_HOST=127.0.0.1")
    address = f"QUERY_STRING=http://{GATEWAY}{end}"
    answer = desk.station.run("env", *request, address, f"{STATION_WEB}/map.cgi")
    assert answer.endswith("it has characters that no address has\n")
    assert len(desk.station.calls("wget")) == before


@pytest.mark.parametrize(
    "settings",
    [
        {"headers": {"Host": "127.0.0.1"}},
        {"headers": {"Host": "127.0.0.1", "X-Station-Page": "alive"}},
        {"headers": {**ASKING, "Host": "127.0.0.1:8080"}},
        {"headers": {**ASKING, "Host": "unit.example"}},
        {"method": "POST", "headers": {**ASKING, "Content-Length": "0"}},
    ],
    ids=["another page", "another purpose", "a copy elsewhere", "another name", "no question"],
)
def test_only_the_televisions_own_page_may_ask(desk: Desk, settings: dict[str, object]) -> None:
    status, _ = desk.ask(f"http://{GATEWAY}/page", **settings)  # type: ignore[arg-type]
    assert status == 403
    assert desk.maps.targets == []


def test_answer_without_end_is_not_read_to_its_end(desk: Desk) -> None:
    assert desk.ask(f"http://{GATEWAY}/endless") == (204, "")
    assert desk.maps.sent < 10_000_000


@pytest.mark.slow
def test_server_that_does_not_answer_is_given_up(desk: Desk) -> None:
    begin = time.monotonic()
    assert desk.ask(f"http://{GATEWAY}/silent") == (404, "it does not answer\n")
    assert time.monotonic() - begin < LIMIT


def test_map_is_asked_for_in_the_browsers_name(desk: Desk) -> None:
    """Some servers answer others differently."""
    headers = {**ASKING, "User-Agent": "A browser; its version"}
    assert desk.ask(f"http://{GATEWAY}/page", headers=headers) == (204, "")
    assert desk.maps.agents[-1] == "A browser; its version"


def test_map_behind_the_stations_proxy_is_found_there(desk: Desk) -> None:
    proxy = MapServer(desk.station, PROXY, PROXY_PORT)
    with contextlib.closing(proxy):
        assert desk.ask("http://10.99.0.1/page") == (204, "")
        assert desk.ask("http://10.99.0.1/missing") == (404, "it answers 404\n")
    assert proxy.targets == ["http://10.99.0.1/page", "http://10.99.0.1/missing"]
