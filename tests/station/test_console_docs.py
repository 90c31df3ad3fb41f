"""What docs/workbench.md says of the console works as written."""

import argparse
import contextlib
import os
import re
import shlex
import subprocess
import sys
from collections.abc import Iterator
from typing import Any

import pytest
from console_support import Bench, open_bench

from simulation.console import client
from simulation.console.actions import ACTIONS
from simulation.demo import __main__ as command
from simulation.places import top_directory
from simulation.waiting import wait_for

pytestmark = pytest.mark.once

TEXT = (top_directory() / "docs" / "workbench.md").read_text()


@pytest.fixture(scope="module")
def bench() -> Iterator[Bench]:
    with open_bench() as opened:
        yield opened


def section(title: str) -> str:
    return TEXT.partition(f"### {title}\n")[2].partition("\n## ")[0].partition("\n### ")[0]


def run_client(bench: Bench, *words: str) -> int:
    parser = argparse.ArgumentParser()
    client.add_commands(parser.add_subparsers(dest="command"))
    return client.run(parser.parse_args(words), bench.station.gateway_pid)


def test_commands_do_what_they_say(bench: Bench, capsys: pytest.CaptureFixture[str]) -> None:
    lines = re.findall(r"^    \./scripts/station (.*)$", section("Commands"), re.M)
    assert len(lines) > 8
    for line in lines:
        assert run_client(bench, *shlex.split(line)) == 0, line
        assert capsys.readouterr().err == ""
    said = bench.events()
    for words in (
        "TV: in standby",
        "TV: input 1.0.0.0 \N{RIGHTWARDS ARROW} 3.0.0.0",
        "TV: ignores the bus",
        "TV: listens to the bus again",
        "hand: the network leases addresses",
        "hand: wget fails with status 1",
        "hand: wget works again",
        "gateway: sends: detail alert",
        "gateway: sends: the alert ends (539 bytes)",
    ):
        wait_for(lambda: words in bench.events(), f"{words} in {said}")
    assert bench.handles.unit.broken() == {} and not bench.handles.unit.is_dhcp_on


def test_every_command_asks_for_something_that_can_be_done(bench: Bench) -> None:
    for line in (
        "tv on; tv power; tv power; tv input 1.0.0.0; tv slow; tv slow 2.5; tv slow off; tv stubborn;"
        " tv stubborn off; tv cable out; tv cable in; dhcp off; address lost; address back;"
        " browser hung; browser back; web-server killed; web-server back; memory full; memory free;"
        " clock 60; clock 0; fail date 2; slow date 0.5; mend date; send raw hex=00; mark; events"
    ).split("; "):
        assert run_client(bench, *line.split()) == 0, line


def test_commands_that_cannot_be_done_say_why(
    bench: Bench, capsys: pytest.CaptureFixture[str]
) -> None:
    for line, words in (
        ("tv input", "which one?"),
        ("tv cable", "out or in?"),
        ("tv deaf x", "on or off?"),
        ("tv slow x", "how many seconds?"),
        ("tv on x", 'what is "x"?'),
        ("tv input x", "is not an input"),
        ("fail x", '"wget"'),
        ("send x", "detail-alert"),
        ("send raw x", "FIELD=VALUE"),
        ("send detail-alert text= units=E1", "NAME:COLOR"),
        ("incident x", '"fire"'),
    ):
        assert run_client(bench, *line.split()) == 1, line
        assert words in capsys.readouterr().err


@pytest.mark.parametrize("line", ["events", "state"])
def test_reader_of_a_command_may_go_away(
    bench: Bench, monkeypatch: pytest.MonkeyPatch, line: str
) -> None:
    reading, writing = os.pipe()
    os.close(reading)
    with open(writing, "w", encoding="utf-8") as out, monkeypatch.context() as context:
        context.setattr(sys, "stdout", out)
        assert run_client(bench, line) == 0


def test_curl_operates_it(bench: Bench) -> None:
    lines = re.findall(r"^    curl (.*)$", section("Over HTTP"), re.M)
    posts = [line for line in lines if "--json" in line]
    assert len(posts) == 2
    before = len(bench.events())
    for line in posts:
        words = line.replace("$K", str(bench.console.key))
        words = words.replace("http://127.0.0.1:8081/", bench.console.address)
        result = subprocess.run(["curl", "-sS", "--fail", *shlex.split(words)], capture_output=True)
        assert result.returncode == 0, result
    wait_for(lambda: "TV: in standby" in bench.events()[before:], "the television")
    wait_for(lambda: bench.handles.view.document().get("alert_area") == "DRILL", "the drill")
    assert run_client(bench, "incident", "end") == 0


def test_everything_that_can_be_done_is_in_the_table() -> None:
    table = section("Over HTTP")
    assert [action.path for action in ACTIONS if f"`{action.path}`" not in table] == []


def test_page_of_the_unit_gets_another_port_too(
    bench: Bench, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(command, "OWN_PORT", bench.console.port)  # one that is taken
    said: list[str] = []

    class Timeline:
        def say(self, _: str, text: str) -> None:
            said.append(text)

    timeline: Any = Timeline()
    with contextlib.ExitStack() as stack:
        command.forward_page(bench.station, timeline, stack)
        (address,) = re.findall(r"http://127\.0\.0\.1:(\d+)/station_web/", said[0])
        assert int(address) != bench.console.port
        own = subprocess.run(
            ["curl", "-sS", f"http://127.0.0.1:{address}/station_web/"], capture_output=True
        )
    assert b"<html" in own.stdout
