"""The console over HTTP: every action and its effect in the unit."""

import asyncio
import http.client
import json
import socket
import threading
import time
from collections.abc import AsyncIterator
from typing import Any

import aiohttp
import pytest
from console_support import Bench, bench, shared, wait_for_document

from simulation import gateway
from simulation.console.actions import ACTIONS
from simulation.console.messages import FORMS
from simulation.console.screencast import Screencast
from simulation.events import EventLog
from simulation.handle_error import HandleError
from simulation.places import ALERT_LOG, CONFIG
from simulation.waiting import wait_for

__all__ = ["bench", "shared"]  # fixtures

# The station does not depend on how the service is built.
pytestmark = pytest.mark.once


SHOWING: dict[str, Any] = {
    **{"power": "on", "input": "1.0.0.0", "picture": "unit"},
    **{"deaf": False, "slow": 0, "stubborn": False, "cable": "in"},
}


def output(bench: Bench) -> str:
    """Of the service."""
    assert bench.handles.view.service
    return bench.handles.view.service.output


def test_television_is_operated(bench: Bench) -> None:
    tv = bench.handles.tv
    bench.do("/tv/power", power="off")
    assert (tv.power, tv.picture) == ("in standby", "nothing")
    bench.do("/tv/power", power="toggle")
    assert tv.power == "on"
    bench.do("/tv/input", input="3.0.0.0")
    assert (tv.input, tv.picture) == ("3.0.0.0", "input 3.0.0.0")
    wait_for(lambda: "active source now: 3000" in output(bench), "the unit's knowledge")
    bench.do("/tv/input", input="1.0.0.0")
    assert tv.picture == "unit"
    bench.do("/tv/cable", state="out")
    assert tv.picture == "no signal"
    bench.do("/tv/deaf")
    bench.do("/tv/slow", seconds=2)
    bench.do("/tv/stubborn")
    habits: dict[str, Any] = {"deaf": True, "slow": 2, "stubborn": True, "cable": "out"}
    assert bench.state()["tv"] == {**SHOWING, **habits, "picture": "no signal"}
    undoing: list[tuple[str, dict[str, Any]]] = [
        ("/tv/cable", {"state": "in"}),
        ("/tv/deaf", {"on": False}),
        ("/tv/slow", {"seconds": 0}),
        ("/tv/stubborn", {"on": False}),
    ]
    for path, undone in undoing:
        bench.do(path, **undone)
    assert bench.state()["tv"] == SHOWING


@pytest.mark.slow
def test_stubborn_television_stays_in_standby_until_it_may_wake(bench: Bench) -> None:
    tv = bench.handles.tv
    bench.do("/tv/power", power="off")
    wait_for(lambda: "TV is in standby mode." in output(bench), "the unit's knowledge")
    bench.do("/tv/stubborn")
    bench.do("/gateway/send", message="display-alert", text="FIRE")
    wait_for(lambda: "sending ImageViewOn" in output(bench), "the attempt to wake it")
    assert tv.power == "in standby"
    assert bench.handles.view.document()["alert_area"] != "FIRE"
    bench.do("/tv/power", power="on")
    wait_for_document(bench, alert_area="FIRE")
    bench.do("/gateway/incident", name="end")


def test_pulled_cable_lets_nothing_through(bench: Bench) -> None:
    bench.do("/tv/power", power="on")
    bench.do("/tv/input", input="2.0.0.0")
    wait_for(lambda: "active source now: 2000" in output(bench), "the unit's knowledge")
    bench.do("/tv/cable", state="out")
    heard = len(bench.television.frames)
    bench.do("/gateway/send", message="display-alert", text="FIRE")
    wait_for(lambda: "Switching TV to 1000" in output(bench), "the attempt to switch it")
    wait_for_document(bench, alert_area="FIRE")
    wait_for(lambda: len(bench.television.frames) > heard, "what is lost on the way")
    assert bench.handles.tv.input == "2.0.0.0"
    bench.do("/gateway/incident", name="end")
    bench.do("/tv/input", input="5.0.0.0")
    bench.do("/tv/cable", state="in")
    bench.do("/tv/input", input="1.0.0.0")
    wait_for(lambda: output(bench).endswith("active source now: 1000\n"), "the unit's knowledge")
    assert "active source now: 5000" not in output(bench)


@pytest.mark.parametrize("form", FORMS, ids=[form.name for form in FORMS])
def test_every_message_is_explained_before_it_is_sent(bench: Bench, form: Any) -> None:
    example: dict[str, Any] = {"text": "A", "number": 1, "units": [{"name": "E1", "color": 2}]}
    values: dict[str, Any] = {field.name: example[field.kind] for field in form.fields}
    values.update({"hex": "03 01"} if form.name == "raw" else {})
    before = sent(bench)
    answer = json.loads(bench.post("/gateway/decode", message=form.name, **values).text)
    assert "What a unit does with it:" in answer["explanation"]
    assert "What is wrong with it:\n  - over" not in answer["explanation"]
    assert bytes.fromhex(answer["hex"])
    assert sent(bench) == before


def sent(bench: Bench) -> tuple[list[str], str, str]:
    """What has been sent, and what it has led to."""
    messages = [line for line in bench.events() if line.startswith("gateway: sends")]
    log = bench.station.path(ALERT_LOG)
    return messages, bench.station.document_text(), log.read_text() if log.exists() else ""


def test_gateway_sends_what_the_form_holds(bench: Bench) -> None:
    bench.do("/unit/mark")
    bench.do(
        "/gateway/send",
        message="detail-alert",
        text="FIRE ÄÖ",
        units=[{"name": "E1", "color": 2}, {"name": "L3", "color": 5}],
        turnout_end=90,
        turnout_zero=30,
        turnout_reverse=1,
    )
    wait_for(lambda: bool(bench.handles.view.document()["units"]), "the alert")
    bench.do("/gateway/send", message="set-map-address", address="http://10.87.33.20/map.svg")
    wait_for(lambda: bool(bench.handles.view.document()["map_url"]), "the map")
    unit = bench.state()["unit"]
    assert unit["document"]["units"] == [{"unit": "E1", "color": "2"}, {"unit": "L3", "color": "5"}]
    assert unit["document"]["alert_area"] == "FIRE ÄÖ"
    changed = {change["member"]: change["after"] for change in unit["changes"]}
    assert changed["turnout_end"] == "90" and changed["turnout_zero"] == "30"
    assert changed["turnout_reverse"] == "1"
    bench.do("/unit/mark")
    assert bench.state()["unit"]["changes"] == []
    bench.do("/gateway/incident", name="end")
    wait_for(lambda: not bench.handles.view.document()["units"], "the end")
    received = len(bench.state()["gateway"]["received"])
    bench.do("/gateway/send", message="roll-call")
    wait_for(lambda: len(bench.handles.gateway.received()) > received, "the answer")
    assert bench.state()["gateway"]["received"][received]["words"].startswith("roll-call reply")


@pytest.mark.parametrize(
    "name", ['x","y":NaN,"z":"', 'x","y":-Infinity,"z":"', 'x","y":1e999,"z":"']
)
def test_state_stays_json_whatever_the_document_is(bench: Bench, name: str) -> None:
    units = [{"name": name, "color": 2}]
    bench.do("/gateway/send", message="detail-alert", text="FIRE", units=units)
    wait_for(lambda: name in bench.handles.view.document_text(), "the document")
    check_state_without_document(bench)


def test_state_stays_json_however_deep_the_document_is(bench: Bench) -> None:
    bench.do("/gateway/send", message="detail-alert", text="FIRE")
    address = 'x","y":' + 300 * "[" + 300 * "]" + ',"z":"'
    bench.do("/gateway/send", message="set-map-address", address=address)
    wait_for(lambda: address in bench.handles.view.document_text(), "the document")
    check_state_without_document(bench)


def check_state_without_document(bench: Bench) -> None:
    def refuse(constant: str) -> None:
        raise AssertionError(constant)

    state = json.loads(bench.ask("/state").text, parse_constant=refuse)
    assert state["unit"]["document"] == {}
    assert "FIRE" in state["unit"]["document_text"]
    bench.do("/unit/mark")
    bench.do("/gateway/incident", name="end")
    wait_for_document(bench, alert_area="")
    assert "units" in [change["member"] for change in bench.state()["unit"]["changes"]]


def test_events_come_as_they_happen_and_again_from_any_number(bench: Bench) -> None:
    connection = http.client.HTTPConnection("127.0.0.1", bench.console.port, timeout=30)
    last = bench.handles.events.add("station", "a mark").number
    connection.request("GET", f"/events?since={last - 1}")
    answer = connection.getresponse()
    assert answer.getheader("Content-Type") == "text/event-stream"
    names: set[str] = set()
    texts: list[str] = []
    bench.do("/tv/deaf")
    while "ignores the bus" not in texts or "state" not in names:
        line = answer.fp.readline().decode()
        if line.startswith("event: "):
            names.add(line.split()[1])
        elif line.startswith("data: ") and '"text"' in line and "number" in json.loads(line[6:]):
            texts.append(json.loads(line[6:])["text"])
    assert texts[0] == "a mark"
    connection.close()
    lines = bench.ask("/events.jsonl").text.splitlines()
    numbers = [json.loads(line)["number"] for line in lines]
    assert numbers == list(range(1, len(numbers) + 1)) and numbers[-1] >= last
    assert bench.ask("/events?since=x").status == 400


def test_events_go_on_after_a_state_that_cannot_be_read(bench: Bench) -> None:
    config = bench.station.path(CONFIG)
    content = config.read_bytes()
    connection = http.client.HTTPConnection("127.0.0.1", bench.console.port, timeout=30)
    connection.request("GET", "/events")
    answer = connection.getresponse()

    def read_until(words: str) -> None:
        while words not in (line := answer.fp.readline().decode()):
            assert line

    read_until("event: state")
    config.unlink()
    config.mkdir()
    bench.do("/tv/deaf")
    read_until("console: the state: IsADirectoryError")
    assert bench.ask("/state").status == 500
    bench.do("/tv/deaf", on=False)
    read_until("listens to the bus again")
    config.rmdir()
    config.write_bytes(content)
    bench.do("/tv/stubborn")
    read_until('"stubborn": true')
    connection.close()
    told = [line for line in bench.events() if "console: the state: IsADirectory" in line]
    assert len(told) == 1


def test_screen_is_looked_for_whatever_goes_wrong(
    bench: Bench, monkeypatch: pytest.MonkeyPatch
) -> None:
    looks: list[int] = []

    def fail(port: int) -> None:
        looks.append(port)
        raise RuntimeError("odd")

    with monkeypatch.context() as context:
        context.setattr(bench.station, "listen_queue", fail)
        wait_for(lambda: len(looks) > 2, "looks for the screen")
    told = "problem: console: the unit's screen: RuntimeError('odd')"
    assert bench.events().count(told) == 1


def test_screen_is_told_in_text(bench: Bench) -> None:
    async def messages() -> AsyncIterator[aiohttp.WSMessage]:
        yield aiohttp.WSMessage(aiohttp.WSMsgType.BINARY, b"{", None)
        frame = {"data": "QQ==", "sessionId": 1}
        text = json.dumps({"method": "Page.screencastFrame", "params": frame})
        yield aiohttp.WSMessage(aiohttp.WSMsgType.TEXT, text, None)

    async def receive() -> bytes:
        screencast = Screencast(bench.station, EventLog(), lambda: None)
        connected: Any = messages()
        await screencast._receive(connected)
        return screencast.picture

    assert asyncio.run(receive()) == b"A"


def test_all_that_can_be_done_is_described(bench: Bench) -> None:
    described = json.loads(bench.ask("/actions").text)
    assert [action["path"] for action in described["actions"]] == [x.path for x in ACTIONS]
    assert len(described["messages"]) == len(FORMS)
    assert "wget" in described["tools"]


def test_message_that_the_unit_does_not_take_is_reported(bench: Bench) -> None:
    service = bench.handles.view.service
    assert service is not None
    bench.do("/unit/address", state="lost")
    with pytest.raises(Exception, match="has not taken the message"):
        bench.handles.gateway.send(b"\0", deadline=0.1)
    bench.do("/unit/address", state="back")


def test_message_that_waits_for_an_earlier_one_is_given_up_too(bench: Bench) -> None:
    gateway_handles = bench.handles.gateway
    with gateway_handles._sending, pytest.raises(HandleError, match="not taken an earlier one"):
        gateway_handles.send(b"\0", deadline=0.01)
    bench.do("/gateway/send", message="raw", hex="00")


class SlowConnection:
    """Each step takes some of the time."""

    def __init__(self) -> None:
        self.timeouts: list[float] = []

    def __enter__(self) -> "SlowConnection":
        return self

    def __exit__(self, *_: object) -> None:
        pass

    def settimeout(self, seconds: float) -> None:
        self.timeouts.append(seconds)

    def sendall(self, _: bytes) -> None:
        take_time()

    def recv(self, _: int) -> bytes:
        return b""


STEP = 0.01


def take_time() -> None:
    end = time.monotonic() + STEP
    wait_for(lambda: time.monotonic() >= end, "a step's time")


def test_deadline_of_a_message_is_for_all_of_it(
    bench: Bench, monkeypatch: pytest.MonkeyPatch
) -> None:
    connection = SlowConnection()

    def connect(*_: object, deadline: float) -> SlowConnection:
        connection.settimeout(deadline)
        take_time()
        return connection

    monkeypatch.setattr(gateway, "connect", connect)
    bench.handles.gateway.send(b"\0", deadline=5.0)
    connecting, sending, waiting = connection.timeouts
    assert 5.0 >= connecting >= sending + STEP >= waiting + 2 * STEP


def test_state_says_whether_the_records_are_heard(
    bench: Bench, monkeypatch: pytest.MonkeyPatch
) -> None:
    assert bench.state()["gateway"]["heard"]
    monkeypatch.setattr(bench.handles.gateway, "_records", gateway.NoRecords())
    assert not bench.state()["gateway"]["heard"]


def test_console_takes_another_port_if_its_own_is_taken(bench: Bench) -> None:
    from simulation.console.server import _listen

    with socket.create_server(("127.0.0.1", 0)) as other:
        taken = other.getsockname()[1]
        with _listen(taken) as found:
            assert found.getsockname()[1] != taken


def test_many_may_look_at_once(bench: Bench) -> None:
    """More than a browser opens, and each is told of all."""
    seen: list[str] = []

    def look() -> None:
        connection = http.client.HTTPConnection("127.0.0.1", bench.console.port, timeout=30)
        connection.request("GET", "/events")
        answer = connection.getresponse()
        while '"many"' not in (line := answer.fp.readline().decode()):
            assert line
        seen.append(line)
        connection.close()

    threads = [threading.Thread(target=look) for _ in range(12)]
    for thread in threads:
        thread.start()
    bench.handles.events.add("station", "many")
    for thread in threads:
        thread.join(30)
    assert len(seen) == 12
