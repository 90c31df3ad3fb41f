"""Scenarios: those that come along, those of others, and what was recorded."""

import dataclasses
import os
import re
from pathlib import Path

import pytest
from command_support import run_command

from simulation import gateway, scenario
from simulation.gateway import Unit
from simulation.message_source import source_of
from simulation.places import top_directory

# The station does not depend on how the service is built.
pytestmark = pytest.mark.once

WORKBENCH = (top_directory() / "docs" / "workbench.md").read_text()


def play(tmp_path: Path, body: str, *arguments: str, setup: str = "Setup()") -> tuple[int, str]:
    """Runs a scenario with this body; returns its status, and what it has printed."""
    script = tmp_path / "mine.py"
    lines = "".join(f"    {line}\n" for line in body.splitlines())
    script.write_text(
        "import time\n"
        "from simulation import gateway\n"
        "from simulation.scenario import Scene, Setup\n"
        f"SETUP = {setup}\n"
        f"def play(scene: Scene) -> None:\n{lines}"
    )
    return run(str(script), *arguments)


def run(*arguments: str) -> tuple[int, str]:
    name = f"test-{os.getpid()}-scenario"
    result = run_command("--name", name, "run", *arguments, timeout=200)
    return result.returncode, result.stdout + result.stderr


@pytest.mark.waits
@pytest.mark.parametrize("name", scenario.names())
def test_scenario_that_comes_along_is_observed(name: str) -> None:
    status, output = run(name)
    assert status == 0, output
    title = "the incident" if name == "incident" else f"the scenario {name}"
    assert re.search(f"station   {title} was observed, all [0-9]+ steps of it\n", output)
    assert "problem" not in output


def test_six_scenarios_come_along_and_say_what_they_shorten() -> None:
    assert len(scenario.names()) == 6
    for name in scenario.names():
        speed = scenario.load(name).setup.speed
        text = (scenario.DIRECTORY / f"{name.replace('-', '_')}.py").read_text()
        (row,) = re.findall(rf"^\| `{name}` .*$", WORKBENCH, re.MULTILINE)
        assert (speed == 1) == ("Shortened:" not in text) == row.endswith("| nothing |"), name
        assert speed == 1 or f"time runs {speed:g} times as fast" in row


def test_scenario_in_the_guide_works_as_written(tmp_path: Path) -> None:
    (example,) = re.findall("```python\n(.*?)```", WORKBENCH, re.DOTALL)
    (tmp_path / "drill.py").write_text(example)
    status, output = run(str(tmp_path / "drill.py"))
    assert status == 0, output
    assert "the scenario drill was observed, all 6 steps of it" in output


def test_guide_names_each_member_of_the_setup() -> None:
    table = WORKBENCH.partition("| Member ")[2].partition("\n\n")[0]
    rows = re.findall(r"^\| `(\w+)` .* \| `?(.*?)`? *\|$", table, re.MULTILINE)
    members = {x.name: x.default for x in dataclasses.fields(scenario.Setup)}
    assert [name for name, _ in rows] == list(members)
    for name, default in rows:
        assert default in (repr(members[name]).replace("'", '"'), str(members[name])), name


@pytest.mark.parametrize(
    "body, problem",
    [
        (
            'scene.expect_document(alert_area="FIRE", deadline=0.1)',
            "not observed: the document has alert_area 'FIRE' (not within 0.1 s: the document has"
            " alert_area 'FIRE')",
        ),
        (
            'scene.send("a drill", gateway.display_alert("DRILL"))\n'
            'scene.expect_tv("on", "4.0.0.0", deadline=0.1)',
            "not observed: the television is on, input 4.0.0.0 (not within 0.1 s: the television is"
            " on, input 4.0.0.0)",
        ),
        ("scene.expect_records(39, deadline=0.1)", "not observed: the gateway has received 39"),
        ('scene.expect_call("reboot", deadline=0.1)', "not observed: the unit has started reboot"),
        (
            'scene.stays("no television", lambda: scene.tv.power == "off", seconds=1)',
            "not observed: no television: not for 1 s",
        ),
        (
            'scene.do("it dies", scene.view.service.kill, lambda: True)',
            "not observed: it dies (the service has ended with status -9)",
        ),
        (
            "scene.unit.lose_address()\n"
            'scene.send("into the void", gateway.display_alert("DRILL"), deadline=1)',
            "not observed: into the void (The unit has not taken the message",
        ),
        (
            "scene.unit.lose_address()\nscene.unit.lose_address()",
            "not observed: The unit has no address to lose.\n",
        ),
        (
            'scene.station.path("/tmp/none").read_text()',
            "not observed: [Errno 2] No such file or directory",
        ),
    ],
    ids=[
        "document",
        "television",
        "records",
        "call",
        "stays",
        "service",
        "message",
        "deed",
        "file",
    ],
)
def test_scenario_that_is_not_observed_ends_with_status_1(
    tmp_path: Path, body: str, problem: str
) -> None:
    status, output = play(tmp_path, body, setup='Setup(tv_power="on")')
    assert status == 1
    assert f"problem   {problem}" in output
    assert "was observed" not in output and "Traceback" not in output


def test_setup_that_cannot_be_is_one_sentence(tmp_path: Path) -> None:
    status, output = play(tmp_path, "pass", setup='Setup(tv_input="3")')
    assert (status, output) == (1, '"3" is not an input: write one like 3.0.0.0.\n')


def test_unit_that_is_never_reset_is_noticed(tmp_path: Path) -> None:
    body = "scene.expect_reset(longest_wait=0.5)"
    status, output = play(tmp_path, body, setup="Setup(speed=50)")
    assert status == 1
    assert "problem   not observed: the watchdog is kicked no more" in output


@pytest.mark.parametrize(
    "text, complaint",
    [
        (None, "There is no scenario {}. Those that come along: gateway-dies, incident,"),
        ("x = 1", "{} is no scenario: it has no function play(scene)."),
        ("def play(:", "{} is no scenario: invalid syntax"),
    ],
    ids=["missing", "nothing to play", "not Python"],
)
def test_what_is_no_scenario_starts_no_station(
    tmp_path: Path, text: str | None, complaint: str
) -> None:
    file = tmp_path / "none.py"
    if text is not None:
        file.write_text(text)
    status, output = run(str(file))
    assert status == 2
    assert complaint.format(file) in " ".join(output.split())


def test_mistake_in_a_scenario_is_shown_and_ends_the_station(tmp_path: Path) -> None:
    status, output = play(tmp_path, "scene.no_such_thing()")
    assert status == 1
    assert "mine.py" in output and "no_such_thing" in output


DRILL = """
scene.expect_records(2)
scene.tv.be_slow(0.1)
scene.send("a drill", gateway.detail_alert("DRILL", {0: gateway.Unit("E1", 2)}, turnout_end=60))
scene.expect_document(alert_area="DRILL")
scene.expect_tv("on", "1.0.0.0")
scene.send("a roll call", gateway.roll_call(), is_datagram=True)
scene.expect_records(2, 39, 47)
scene.unit.fail("date", status=2)
scene.send("a date", gateway.set_date("2026-03-05"), lambda: scene.calls("date"))
scene.send("its end", gateway.display_alert(""), source=gateway.OTHER_GATEWAY)
scene.expect_document(alert_area="")
"""


@pytest.mark.waits
def test_what_happened_is_recorded_and_can_be_run_again(tmp_path: Path) -> None:
    recorded, again = tmp_path / "recorded.py", tmp_path / "again.py"
    setup = 'Setup(tv_power="on", tv_input="3.0.0.0")'
    status, output = play(tmp_path, DRILL, "--record", str(recorded), setup=setup)
    assert status == 0, output
    text = recorded.read_text()
    for line in (
        "    scene.tv.be_slow(0.1)\n",
        "    scene.send('a roll call', gateway.roll_call(), is_datagram=True)\n",
        "    scene.expect_records(2, 39, 47, since=1)\n",
        "    scene.unit.fail('date', status=2)\n",
        "    scene.send('its end', gateway.display_alert(''), source='10.87.33.21')\n",
        "    scene.expect_call('date', '-s', '2026-03-05')\n",
        "    scene.expect_tv('on', '1.0.0.0')\n",
        "        alert_area='DRILL',\n",
        "    tv_input='3.0.0.0',\n",
    ):
        assert line in text
    assert max(map(len, text.splitlines())) <= 100
    status, output = run(str(recorded), "--record", str(again))
    assert status == 0, output

    def deeds(file: Path) -> list[str]:
        lines = file.read_text().partition("def play")[2].splitlines()
        return [line for line in lines if line.startswith("    scene.") and "expect" not in line]

    assert [x for x in deeds(again) if "pause" not in x] == [
        x for x in deeds(recorded) if "pause" not in x
    ]
    recorded.write_text(text.replace("alert_area='DRILL'", "alert_area='FIRE', deadline=0.1"))
    status, output = run(str(recorded))
    assert status == 1
    assert "not observed: the document has" in output


MESSAGES = [
    gateway.roll_call(),
    gateway.reboot(),
    gateway.stop_turnout(),
    gateway.display_alert("FIRE"),
    gateway.display_alert("FIRE", turnout=300),
    gateway.display_alert("\u00e9\n'\"", flag=0),
    gateway.display_alert(b"\xff\xfe"),
    gateway.hdtv_alert("", 90),
    gateway.set_date("2026-03-05 07:04:09"),
    gateway.set_page_address("http://10.87.33.20/"),
    gateway.hdtv_settings(3),
    gateway.set_map_address("http://10.87.33.20/map"),
    gateway.detail_alert(""),
    gateway.detail_alert("FIRE", {3: Unit("E1", 2), 15: Unit("x" * 31, 16)}, 0, 1, 2, 1),
]


@pytest.mark.parametrize("message", MESSAGES, ids=[gateway.message_name(x) for x in MESSAGES])
def test_message_is_written_as_what_builds_it(message: bytes) -> None:
    source = source_of(message)
    assert source.startswith("gateway.")
    assert eval(source, {"gateway": gateway, "Unit": Unit}) == message


@pytest.mark.parametrize(
    "message",
    [
        b"",
        b"\0",
        b"\x03\x01\0\0\xff\xffFIRE",
        b"\x33",
        gateway.detail_alert("FIRE", text_length=7),
        gateway.play_clip("http://10.87.33.20/clip.wav"),
    ],
)
def test_any_other_message_is_written_as_its_bytes(message: bytes) -> None:
    assert source_of(message) == repr(message)
