"""The unit's web server: the page, its document and its signs of life."""

import base64
import contextlib
import hashlib
import re
import socket
import urllib.request
from typing import Any

import pytest
from page_support import request

from simulation import gateway
from simulation.forward import Forward
from simulation.places import DOCUMENT, LIVENESS_FILE, WEB_PORT
from simulation.station import Station
from simulation.waiting import DEADLINE

pytestmark = pytest.mark.once


@pytest.mark.parametrize(
    "settings",
    [
        {"method": "POST", "headers": {"Host": "127.0.0.1"}},
        {"method": "GET", "headers": {"Host": "127.0.0.1", "X-Station-Page": "alive"}},
        {"method": "POST", "headers": {"X-Station-Page": "alive"}},
    ],
    ids=["another page", "a link", "a copy of the page elsewhere"],
)
def test_only_the_televisions_own_page_is_taken_for_alive(
    station: Station, settings: dict[str, Any]
) -> None:
    station.start_web_server()
    with Forward(station, WEB_PORT) as forward:
        assert request(forward.port, "alive.cgi", **settings) == 403
        assert not station.path(LIVENESS_FILE).exists()
        headers = {"Host": "127.0.0.1", "X-Station-Page": "alive"}
        assert request(forward.port, "alive.cgi", method="POST", headers=headers) == 204
        assert station.path(LIVENESS_FILE).exists()


def answer_to(station: Station, *parts: bytes) -> bytes:
    """What the web server answers before it closes the connection. All parts but the first are sent
    only as long as it listens."""
    with station.in_unit():
        connection = socket.create_connection(("127.0.0.1", WEB_PORT), timeout=DEADLINE)
    with connection:
        answer = b""
        with contextlib.suppress(ConnectionResetError, BrokenPipeError):
            for part in parts:
                connection.sendall(part)
        with contextlib.suppress(ConnectionResetError):
            while piece := connection.recv(4096):
                answer += piece
    return answer


@pytest.mark.parametrize("name", ["", "card.html", "guest.html", "preview.html", "status.html"])
def test_only_script_within_a_page_is_the_one_that_the_web_server_allows(
    station: Station, name: str
) -> None:
    station.start_web_server()
    with Forward(station, WEB_PORT) as forward:
        address = f"http://127.0.0.1:{forward.port}/station_web/{name}"
        with urllib.request.urlopen(address) as answer:
            page, policy = answer.read().decode(), answer.headers["Content-Security-Policy"]
    scripts = re.findall("<script>(.*?)</script>", page, re.DOTALL)
    digests = [hashlib.sha256(script.encode()).digest() for script in scripts]
    allowed = [f"'sha256-{base64.b64encode(digest).decode()}'" for digest in digests]
    assert len(allowed) == 1
    assert f"script-src 'self' {allowed[0]};" in policy


SIGN = b"POST /station_web/alive.cgi HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Station-Page: alive\r\n"


@pytest.mark.parametrize(
    "parts, status",
    [
        ((SIGN + b"Content-Length: 1000000000\r\n\r\n", b"x" * 4096), b"413"),
        ((SIGN + b"Transfer-Encoding: chunked\r\n\r\n", *[b"1000\r\n" + b"x" * 4096] * 9), b""),
        pytest.param(
            (SIGN + b"Content-Length: 100\r\n\r\n", b"x" * 50), b"", marks=pytest.mark.slow
        ),
        ((SIGN + b"X: " + b"x" * 5000 + b"\r\n\r\n",), b"431"),
        pytest.param((SIGN,), b"", marks=pytest.mark.slow),
    ],
    ids=["large", "endless", "never complete", "large header", "endless header"],
)
def test_sign_of_life_that_is_no_small_request_is_none(
    station: Station, parts: tuple[bytes, ...], status: bytes
) -> None:
    station.start_web_server()
    answer = answer_to(station, *parts)
    assert b" 204 " not in answer
    assert status in answer[:20]
    assert not station.path(LIVENESS_FILE).exists()
    assert b" 204 " in answer_to(station, SIGN + b"Content-Length: 0\r\nConnection: close\r\n\r\n")


def test_document_is_never_kept_by_a_browser(station: Station) -> None:
    station.start_web_server()
    station.path(DOCUMENT).write_text("[]")
    with Forward(station, WEB_PORT) as forward:
        address = f"http://127.0.0.1:{forward.port}/station_web/alerts.json"
        with urllib.request.urlopen(address) as answer:
            assert answer.headers["Cache-Control"] == "no-store"
            assert answer.headers["ETag"] is None
            assert answer.read() == b"[]"
        # Rewritten within the same second, with the same length.
        station.path(DOCUMENT).write_text("{}")
        with urllib.request.urlopen(address) as answer:
            assert answer.read() == b"{}"


def test_web_server_offers_nothing_but_the_page(station: Station) -> None:
    station.start_web_server()
    with Forward(station, WEB_PORT) as forward:
        assert request(forward.port, "") == 200
        assert request(forward.port, "current_gateway") == 404
        station.path("/dev/shm/current_gateway").write_text("{}")
        assert request(forward.port, "current_gateway") == 200
        for path in (
            "lighttpd.conf",
            "../config.json",
            "..%2fconfig.json",
            "../dev/shm/alerts.json",
        ):
            assert request(forward.port, path) in (400, 403, 404), path


def test_web_server_is_not_to_be_reached_from_outside(station: Station) -> None:
    station.start_web_server()
    with pytest.raises(ConnectionRefusedError):
        gateway.connect(station, port=WEB_PORT)
