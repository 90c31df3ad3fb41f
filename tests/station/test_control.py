"""JSON control messages: audio clips and the gateway's address."""

from pathlib import Path

import pytest

from simulation.gateway import deliver, make_clip, send_datagram, web_server
from simulation.places import GATEWAY_FILE, LOUDSPEAKER
from simulation.process import Process
from simulation.station import Station
from simulation.waiting import wait_for

pytestmark = pytest.mark.usefixtures("service")


def test_clip_is_fetched_by_the_real_downloader_and_played_by_the_real_player(
    station: Station, tmp_path: Path
) -> None:
    samples = make_clip(tmp_path / "clip.wav")
    # The player waits for the whole clip. The service does not ensure that.
    real = "/run/station/real/usr/bin"
    station.behave("wget", f"exec {real}/wget")
    station.behave("aplay", "await /tmp/fetched", f"exec {real}/aplay")
    with web_server(station, tmp_path):
        deliver(station, b'{"play_audio":"http://10.87.33.20/clip.wav","volume":"75"}')
        clip = (tmp_path / "clip.wav").read_bytes()
        fetched = station.path("/tmp/play.wav")
        wait_for(lambda: fetched.exists() and fetched.read_bytes() == clip, "the whole clip")
    station.path("/tmp/fetched").touch()
    (player,) = station.wait_for_calls("aplay")
    assert player.argv == ["aplay", "/tmp/play.wav"]
    loudspeaker = station.path(LOUDSPEAKER)
    header = 44
    wait_for(
        lambda: loudspeaker.exists() and len(loudspeaker.read_bytes()) >= header + len(samples),
        "the clip on the loudspeaker",
    )
    assert loudspeaker.read_bytes()[header : header + len(samples)] == samples
    (download,) = station.calls("wget")
    assert download.argv == [
        *["wget", "-O", "/tmp/play.wav", "-T", "1", "http://10.87.33.20/clip.wav"]
    ]
    mixers = sorted(call.argv for call in station.wait_for_calls("amixer", 2))
    assert mixers == [["amixer", "cset", "numid=3", "0"], ["amixer", "set", "PCM", "75%"]]


def test_raw_clip_is_played_as_the_message_says_by_udp(station: Station) -> None:
    station.behave("wget", "exit 1")  # the player starts anyway
    message = (
        b'{"play_audio":"http://10.87.33.20/c.raw","channels":"2","rate":"8000",'
        b'"sample_format":"U8","device":"headphones"}'
    )
    send_datagram(station, message)
    (player,) = station.wait_for_calls("aplay")
    assert player.argv == [*["aplay", "-c", "2", "-r", "8000", "-f", "U8", "/tmp/play.raw"]]
    mixers = sorted(call.argv for call in station.wait_for_calls("amixer", 2))
    assert mixers == [["amixer", "cset", "numid=3", "1"], ["amixer", "set", "PCM", "90%"]]


def test_player_starts_as_soon_as_any_child_has_ended(station: Station) -> None:
    station.behave("wget", "stay")
    station.behave("amixer", "exit 0")
    station.behave("aplay", "exit 0")
    send_datagram(station, b'{"play_audio":"c.wav"}')
    (download,) = station.wait_for_calls("wget")
    station.wait_for_calls("aplay")
    assert station.path(f"/proc/{download.pid}").exists()


def test_old_clip_is_removed_before_the_next_download(station: Station) -> None:
    station.path("/tmp/play.wav").write_text("old")
    station.behave("wget", "stay")
    station.behave("amixer", "exit 0")
    send_datagram(station, b'{"play_audio":"c.wav"}')
    station.wait_for_calls("wget")
    assert not station.path("/tmp/play.wav").exists()


def test_first_connection_may_name_another_gateway_than_itself(
    station: Station, service: Process
) -> None:
    deliver(station, b'{"comm_gw":"10.87.33.7"}')
    lines = [line for line in service.output.splitlines() if line.startswith("Setting Gateway")]
    assert lines == [
        "Setting Gateway Address: 10.87.33.20",
        "Setting Gateway Address: 10.87.33.7",
    ]
    assert station.path(GATEWAY_FILE).read_text() == (
        '{"gateway_addr": "10.87.33.7", "mac_addr": "02000A572132"}'
    )
