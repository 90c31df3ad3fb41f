"""Who may do what at the console: requests that it refuses, and what else is open to this machine."""

import os
import stat
from pathlib import Path
from typing import Any

import pytest
from console_support import Bench, bench, shared

__all__ = ["bench", "shared"]  # fixtures

# The station does not depend on how the service is built.
pytestmark = pytest.mark.once


def refused(bench: Bench, status: int, words: str, **request: Any) -> None:
    """A request to switch the television off that is answered with an error, and changes nothing."""
    power = bench.handles.tv.power
    headers = {"X_Station_Token": bench.token, "Content_Type": "application/json"}
    headers.update(request.pop("headers", {}))
    body = request.pop("body", b'{"power":"toggle"}')
    path = request.pop("path", "/tv/power")
    given = {name: value for name, value in headers.items() if value}
    answer = bench.ask(path, body, **request, **given)
    assert (answer.status, bench.handles.tv.power) == (status, power)
    assert words in answer.error
    assert "Access-Control-Allow-Origin" not in answer.headers


def test_requests_without_the_token_change_nothing(bench: Bench) -> None:
    for token in ("", "x", bench.token[:-1], bench.token + "x"):
        refused(bench, 403, "token", headers={"X_Station_Token": token})


def test_requests_of_other_origins_change_nothing(bench: Bench) -> None:
    here = f"http://127.0.0.1:{bench.console.port}"
    for origin in (
        "http://evil.example",
        "null",
        "http://127.0.0.1:1",
        here.replace("http", "https"),
    ):
        refused(bench, 403, "origin", headers={"Origin": origin})
    refused(bench, 403, "origin", headers={"Sec_Fetch_Site": "cross-site"})
    refused(bench, 403, "origin", headers={"Sec_Fetch_Site": "same-site"})
    # A name of another site that leads to this machine.
    refused(bench, 421, "This is 127.0.0.1", headers={"Host": f"evil.example:{bench.console.port}"})
    assert bench.ask("/state", Host="evil.example").status == 421
    assert bench.ask("/", Host="evil.example").status == 421
    headers = {"X_Station_Token": bench.token, "Content_Type": "application/json"}
    answer = bench.ask("/tv/power", b'{"power":"on"}', **headers, Origin=here)
    assert answer.status == 200


def test_malformed_requests_change_nothing(bench: Bench) -> None:
    refused(bench, 415, "application/json", headers={"Content_Type": "text/plain"})
    refused(bench, 400, "not JSON", body=b"{")
    refused(bench, 400, "not JSON", body=b"\xff")
    refused(bench, 400, "not JSON", body=b"[" * 50_000)
    refused(bench, 400, "JSON object", body=b"[]")
    refused(bench, 400, 'The field "power" is missing', body=b"{}")
    refused(bench, 400, 'one of "on", "off", "toggle"', body=b'{"power":1}')
    refused(bench, 400, 'There is no field "x". There are power.', body=b'{"power":"off","x":1}')
    refused(bench, 413, "Too Large", body=b'{"power":"off"}' + b" " * 70_000)
    refused(bench, 404, "There is no /tv/frob", path="/tv/frob")
    refused(bench, 405, "Method Not Allowed", method="PUT")
    refused(bench, 405, "Method Not Allowed", method="DELETE")
    assert bench.ask("/tv/power").status == 405
    assert bench.ask("/nothing").status == 405


@pytest.mark.parametrize(
    "path, values, words",
    [
        ("/tv/input", {"input": "3.0.0"}, "is not an input"),
        ("/tv/slow", {"seconds": -1}, "from 0 to 600"),
        ("/tv/slow", {"seconds": True}, "from 0 to 600"),
        ("/tv/slow", {"seconds": float("nan")}, "from 0 to 600"),
        ("/tv/deaf", {"on": "yes"}, "true or false"),
        ("/unit/tool", {"tool": "sh", "state": "fails"}, '"wget"'),
        ("/unit/tool", {"tool": "../x", "state": "fails"}, '"wget"'),
        ("/unit/tool", {"tool": "wget", "state": "fails", "status": 256}, "from 0 to 255"),
        ("/unit/tool", {"tool": "wget", "state": "slow", "seconds": 0}, "up to 600"),
        ("/unit/clock", {"offset": 1e12}, "from -"),
        ("/gateway/send", {"message": "frob"}, "detail-alert"),
        ("/gateway/send", {"message": "reboot", "channel": "x"}, '"tcp" or "udp"'),
        ("/gateway/send", {"message": "raw", "hex": "0"}, "hexadecimal"),
        ("/gateway/send", {"message": "raw", "hex": "00" * 4096}, "4095"),
        ("/gateway/send", {"message": "display-alert", "text": "\ud800"}, "half a character"),
        ("/gateway/send", {"message": "json-control", "comm_gw": '"'}, "quotation mark"),
        (
            "/gateway/send",
            {"message": "detail-alert", "text": "", "units": [{}]},
            "a list of units",
        ),
        (
            "/gateway/send",
            {"message": "detail-alert", "text": "", "units": [{"name": "x" * 32, "color": 1}]},
            "31 bytes",
        ),
        (
            "/gateway/send",
            {"message": "detail-alert", "text": "", "units": [{"name": "x", "color": 1}] * 17},
            "16 units",
        ),
        ("/gateway/incident", {"name": "x"}, '"fire"'),
    ],
)
def test_values_that_do_not_fit_change_nothing(
    bench: Bench, path: str, values: dict[str, Any], words: str
) -> None:
    before = bench.events()
    answer = bench.post(path, **values)
    assert answer.status in (400, 409)
    assert words in answer.error
    acted = [line for line in bench.events()[len(before) :] if line.startswith(("hand", "gateway"))]
    assert acted == []


def test_only_this_machine_can_ask(bench: Bench) -> None:
    assert bench.console.address == f"http://127.0.0.1:{bench.console.port}/"
    with open("/proc/net/tcp", encoding="ascii") as table:
        port = f":{bench.console.port:04X} 00000000:0000 0A"
        places = [line.split()[1] for line in table if port in line]
    assert places == [f"0100007F:{bench.console.port:04X}"]
    # Only root can read the token's file.
    assert stat.S_IMODE(os.stat(bench.console.key).st_mode) == 0o600


def test_nothing_else_is_open_to_this_machine(bench: Bench) -> None:
    """Whoever reaches the debugging port of the unit's browser needs no token."""
    fds = [os.path.join("/proc/self/fd", fd) for fd in os.listdir("/proc/self/fd")]
    own = {os.readlink(fd) for fd in fds if os.path.islink(fd)}
    with open("/proc/self/net/tcp", encoding="ascii") as table:
        lines = [line.split() for line in table]
    listening = [x[1] for x in lines if x[3] == "0A" and f"socket:[{x[9]}]" in own]
    assert listening == [f"0100007F:{bench.console.port:04X}"]
    run = Path(f"/proc/{bench.station.gateway_pid}/root/run")
    (directory,) = [path.parent for path in run.glob("*/browser") if path.is_socket()]
    assert stat.S_IMODE(directory.stat().st_mode) == 0o700


def test_page_is_nobody_elses(bench: Bench) -> None:
    answer = bench.ask("/")
    assert bench.token in answer.text
    assert "frame-ancestors 'none'" in answer.headers["Content-Security-Policy"]
    assert answer.headers["Cross-Origin-Resource-Policy"] == "same-origin"
    assert answer.headers["Cache-Control"] == "no-store"
