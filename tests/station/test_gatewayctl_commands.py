"""gatewayctl against the real service: every message type, with its effect."""

from pathlib import Path

import pytest
from gatewayctl_support import Tool

from simulation import gateway
from simulation.places import GATEWAY_FILE, LOUDSPEAKER
from simulation.station import Station
from simulation.waiting import wait_for

pytestmark = pytest.mark.tool


def test_display_alert(station: Station, tool: Tool) -> None:
    result = tool("display-alert", "--text", "FIRE\\nMAIN ST", "--turnout", "90")
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout == (
        "20 bytes taken by 10.87.33.50:4000; TCP does not prove that it is a unit\n"
    )
    document = station.document()
    assert (document["alert_type"], document["alert_area"]) == ("display_alert", "FIRE\nMAIN ST")
    assert int(document["alert_expiration"]) == int(document["alert_time"]) + 90


def test_detail_alert_map_and_end(station: Station, tool: Tool) -> None:
    tool(
        *("detail-alert", "--text", "FIRE", "--unit", "E1:2", "--unit", "L3:5"),
        *("--turnout", "120", "--zero", "60", "--reverse"),
    )
    document = station.document()
    assert document["alert_type"] == "hdtv_alert"
    assert document["units"] == [{"unit": "E1", "color": "2"}, {"unit": "L3", "color": "5"}]
    assert [document[f"turnout_{x}"] for x in ("end", "zero", "reverse")] == ["120", "60", "1"]
    tool("map", "http://10.87.33.20/map.png")
    assert station.document()["map_url"] == "http://10.87.33.20/map.png"
    tool("end-alert")
    assert station.document()["alert_time"] == "0"


def test_sixteen_units(station: Station, tool: Tool) -> None:
    units = [word for slot in range(16) for word in ("--unit", f"U{slot}:{slot + 1}")]
    tool("detail-alert", "--text", "FIRE", *units)
    assert [unit["unit"] for unit in station.document()["units"]] == [f"U{n}" for n in range(16)]


def test_alert_flag(station: Station, tool: Tool) -> None:
    tool("display-alert", "--text", "DRILL", "--flag", "0")
    assert station.document()["show_turnout_timer"] == "0"


def test_turnout_timer(station: Station, tool: Tool) -> None:
    tool("turnout-timer", "77")
    tool("display-alert", "--text", "FIRE")
    document = station.document()
    assert int(document["alert_expiration"]) == int(document["alert_time"]) + 77


def test_stop_turnout(station: Station, tool: Tool) -> None:
    tool("stop-turnout")
    assert station.document()["alert_type"] == "stop_turnout"


def test_set_date(station: Station, tool: Tool) -> None:
    tool("set-date", "2026-03-05 07:04:09")
    tool("set-date")
    first, second = (call.argv[-1] for call in station.wait_for_calls("date", 2))
    assert first == "2026-03-05 07:04:09"
    assert abs(int(second.removeprefix("@")) - station.calls("date")[1].time) < 60


PAGE = "http://127.0.0.1/station_web/"


@pytest.mark.parametrize(
    "arguments, address",
    [
        (["http://10.87.33.20/news"], "http://10.87.33.20/news"),
        (["--framed", "http://x/"], PAGE + "guest.html?u=http%3A%2F%2Fx%2F"),
        (
            ["--framed", "https://x/a?b=1&c=%22 é+?rotation=90#d~-._"],
            PAGE
            + "guest.html?u=https%3A%2F%2Fx%2Fa%3Fb%3D1%26c%3D%2522%20%C3%A9%2B"
            + "%3Frotation%3D90%23d~-._",
        ),
        (["--card"], PAGE + "card.html"),
        (["--status"], PAGE + "status.html"),
    ],
)
def test_page(station: Station, tool: Tool, arguments: list[str], address: str) -> None:
    result = tool("page", *arguments)
    call = station.wait_for_calls("qt-webkit-kiosk", 2)[-1]
    assert call.argv[-1] == address
    is_warning = "resets itself after about 20 minutes" in result.stderr
    assert is_warning == (not address.startswith(PAGE))


def test_longest_framed_address(station: Station, tool: Tool) -> None:
    assert tool("page", "--framed", "http://x/" + 2983 * "a").returncode == 0
    assert len(station.wait_for_calls("qt-webkit-kiosk", 2)[-1].argv[-1]) > 3000


def test_blank_page(station: Station, tool: Tool) -> None:
    browser = station.calls("qt-webkit-kiosk")[0]
    result = tool("page", "--blank")
    wait_for(lambda: not station.path(f"/proc/{browser.pid}").exists(), "the browser's end")
    assert result.stderr == (
        "gatewayctl: warning: the unit takes its page for dead and resets itself after about 20"
        " minutes unless an alert comes first\n"
    )


def test_rotation(station: Station, tool: Tool) -> None:
    tool("rotation", "270")
    assert station.wait_for_calls("qt-webkit-kiosk", 2)[-1].argv[-1].endswith("?rotation=270")


def test_play_audio(station: Station, tool: Tool, tmp_path: Path) -> None:
    station.behave("amixer", "sleep 1")
    clip = "http://10.87.33.20/clip.wav"
    directory = tmp_path
    gateway.make_clip(directory / "clip.wav")
    with gateway.web_server(station, directory):
        tool("play-audio", clip, "--volume", "40", "--device", "headphones")
        loudspeaker = station.path(LOUDSPEAKER)
        wait_for(lambda: loudspeaker.exists() and loudspeaker.stat().st_size > 16000, "the sound")
    assert any(call.argv == ["amixer", "set", "PCM", "40%"] for call in station.calls("amixer"))


def test_set_gateway(station: Station, tool: Tool) -> None:
    tool("set-gateway", "10.87.33.21")
    assert '"gateway_addr": "10.87.33.21"' in station.path(GATEWAY_FILE).read_text()


def test_raw(station: Station, tool: Tool, tmp_path: Path) -> None:
    tool("raw", "03:01:00:00:00:04", "46495245")
    assert station.document()["alert_area"] == "FIRE"
    file = tmp_path / "message"
    file.write_bytes(gateway.display_alert("SMOKE"))
    tool("raw", "--file", str(file))
    assert station.document()["alert_area"] == "SMOKE"
    tool("raw", "--file", "-", answer="\x03\x01\0\0\0\3OUT")
    assert station.document()["alert_area"] == "OUT"


def test_over_udp(station: Station, tool: Tool) -> None:
    result = tool("--udp", "display-alert", "--text", "FIRE")
    assert result.stdout == ("10 bytes sent to 10.87.33.50:4000; UDP does not confirm delivery\n")
    wait_for(lambda: station.document().get("alert_area") == "FIRE", "the document")


def test_longest_text_arrives_whole(station: Station, tool: Tool) -> None:
    text = "x" * 4089
    assert tool("display-alert", "--text", text).returncode == 0
    assert station.document()["alert_area"] == text
    result = tool("display-alert", "--text", "y" + text)
    assert result.returncode == 2
    assert result.stderr == (
        "gatewayctl: the text has 4090 bytes; over TCP it may have at most 4089\n"
    )
    assert station.document()["alert_area"] == text


# The reboot.


@pytest.mark.parametrize("arguments, answer", [(["--yes"], ""), ([], "y\n"), ([], "yes\n")])
def test_reboot(station: Station, tool: Tool, arguments: list[str], answer: str) -> None:
    assert tool("reboot", *arguments, answer=answer).returncode == 0
    assert len(station.wait_for_calls("reboot")) == 1


@pytest.mark.parametrize("answer", ["", "\n", "n\n", "perhaps\n"])
def test_reboot_that_is_not_confirmed_is_not_sent(
    station: Station, tool: Tool, answer: str
) -> None:
    result = tool("reboot", answer=answer)
    assert result.returncode == 1
    assert result.stdout == ""  # which may be lines of JSON
    assert result.stderr == "Reboot 10.87.33.50? [y/N] gatewayctl: nothing was sent\n"
    assert station.calls("reboot") == []
