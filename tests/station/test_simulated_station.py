"""The simulated station itself: what it promises to the tests that use it."""

import io
import os
import threading
import time
from pathlib import Path

import pytest
from support import StationMaker, start

from simulation import gateway
from simulation.events import EventLog
from simulation.station import Station
from simulation.television import Television
from simulation.demo.timeline import Timeline
from simulation.waiting import wait_for

# The station does not depend on how the service is built.
pytestmark = pytest.mark.once


def test_stand_in_journals_a_call_completely(station: Station) -> None:
    pipe = os.pipe()
    os.set_inheritable(pipe[1], True)
    process = station.start("/bin/sh", "-c", 'exec 7</dev/null; exec /bin/date "a b" "\xe9\n" ""')
    process.wait()
    for fd in pipe:
        os.close(fd)
    (call,) = station.calls("date")
    assert call.argv == ["/bin/date", "a b", "\xc3\xa9\n", ""]
    assert call.descriptors == {"7": "/dev/null"}
    assert call.pid > 1
    assert abs(call.time - time.time()) < 60


def test_stand_in_keeps_the_name_that_it_was_called_by(station: Station) -> None:
    script = "import os; os.execv('/sbin/reboot', ['another name', '-f'])"
    station.start("/usr/bin/python3", "-c", script).wait()
    (call,) = station.calls("reboot")
    assert call.argv == ["another name", "-f"]


def test_stand_in_behaves_as_it_is_told(station: Station) -> None:
    station.behave("tvservice", "print state 0x12", "sleep 0.01", "exit 3")
    process = station.start("/usr/bin/tvservice", "-s")
    assert process.wait() == 3
    assert process.output == "state 0x12\n"


def test_many_stations_run_at_once(make_station: StationMaker) -> None:
    stations = [make_station() for _ in range(5)]
    for station in stations:
        station.start_service()
    for number, station in enumerate(stations):
        station.wait_for_calls("qt-webkit-kiosk")
        gateway.deliver(station, gateway.display_alert(f"STATION {number}"))
    for number, station in enumerate(stations):
        assert station.document()["alert_area"] == f"STATION {number}"


def test_real_downloader_fetches_from_a_real_server_on_the_gateway(
    station: Station, tmp_path: Path
) -> None:
    (tmp_path / "clip.wav").write_bytes(b"RIFF clip")

    with gateway.web_server(station, tmp_path):
        command = "wget -q -O /tmp/play.wav -T 1 http://10.87.33.20/clip.wav"
        assert station.start("/usr/bin/wget", *command.split()[1:]).wait() == 0
    assert station.path("/tmp/play.wav").read_bytes() == b"RIFF clip"
    assert len(station.calls("wget")) == 1


@pytest.mark.parametrize(
    "map_address, shown",
    [
        (b"\x1b]0;x\x07\x9b31m\xc2\x9b31m\xe2\x80\xae\xff\xe2\x80\xa8", "map ·]0;x··31m·31m···"),
        (b'","alert_type":5,"x":"\x1b', '(not an alert document): [{"alert_type'),
        (b'","alert_time":"\x1b', '(not an alert document): [{"alert_type'),
        (b'","x\x1b":' + b"[" * 3000, '(not valid JSON): [{"alert_type'),
    ],
    ids=["escapes", "no type", "no time", "too deep"],
)
def test_timeline_shows_nothing_raw_whatever_is_sent(
    station: Station, map_address: bytes, shown: str
) -> None:
    out = io.StringIO()
    with gateway.record_listener(station) as records, Television(station) as television:
        service = start(station)
        with Timeline(station, service, records, television, out):
            gateway.deliver(station, gateway.detail_alert("FIRE"))
            gateway.deliver(station, b"\x28" + map_address[:100])
            gateway.deliver(station, b"\x34" + map_address)
            wait_for(lambda: shown in out.getvalue(), shown)
    assert "/date -s " in out.getvalue()
    assert out.getvalue().replace("\n", "").isprintable()


def test_timeline_that_nobody_reads_holds_up_nothing(station: Station) -> None:
    reader, writer = os.pipe()
    service = station.start("/bin/sleep", "100")
    events = EventLog()
    with open(reader, encoding="utf-8") as screen:
        looking = threading.Thread(target=screen.readlines, daemon=True)
        with (
            open(writer, "w", encoding="utf-8") as out,
            gateway.record_listener(station) as records,
            Television(station) as television,
            Timeline(station, service, records, television, out, events),
        ):
            for _ in range(2000):  # more than a pipe holds
                events.add("station", "x" * 80)
            assert len(events.since()) >= 2000
            looking.start()
        looking.join()
