"""The path of an alert: a gateway's bytes over TCP become the document."""

import shlex
import time

import pytest
from support import start

from simulation import gateway
from simulation.gateway import Unit, deliver, detail_alert, display_alert
from simulation.places import ALERT_LOG, DOCUMENT
from simulation.process import Process
from simulation.station import Station

pytestmark = pytest.mark.usefixtures("service")

TWO_UNITS = {0: Unit("E1", 2), 2: Unit("L3", 5)}


def test_detail_alert_becomes_the_document(station: Station) -> None:
    before = int(time.time())
    deliver(
        station, detail_alert("FIRE", TWO_UNITS, turnout_end=60, turnout_zero=30, turnout_reverse=1)
    )
    document = station.document()
    start_time = int(document.pop("alert_time"))
    assert before <= start_time <= int(time.time())
    assert document == {
        "alert_type": "hdtv_alert",
        "show_turnout_timer": "1",
        "turnout_end": "60",
        "turnout_zero": "30",
        "turnout_reverse": "1",
        "alert_expiration": str(start_time + 60),
        "alert_area": "FIRE",
        "map_url": "",
        "units": [{"unit": "E1", "color": "2"}, {"unit": "L3", "color": "5"}],
    }


def test_display_alert_becomes_the_document(station: Station, service: Process) -> None:
    deliver(station, display_alert("FIRE", turnout=90))
    document = station.document()
    assert document["alert_type"] == "display_alert"
    assert document["alert_area"] == "FIRE"
    assert int(document["alert_expiration"]) == int(document["alert_time"]) + 90
    lines = service.output.splitlines()
    assert lines[-3:] == ["4", "standby_after_alert 0", "Writing JSON: " + station.document_text()]


def test_display_alert_without_an_exact_length_keeps_its_trailer_and_the_timer(
    station: Station,
) -> None:
    deliver(station, display_alert("FIRE", turnout=0x4142) + b"!")
    document = station.document()
    assert document["alert_area"] == "FIREAB!"
    assert int(document["alert_expiration"]) == int(document["alert_time"]) + 120


def test_document_is_rewritten_in_place(station: Station) -> None:
    inode = station.path(DOCUMENT).stat().st_ino
    deliver(station, display_alert("A MUCH LONGER TEXT THAN THE NEXT ONE"))
    deliver(station, display_alert("FIRE"))
    assert station.path(DOCUMENT).stat().st_ino == inode
    assert station.document_text().endswith('"units":[]}]')


@pytest.mark.parametrize("umask", ["022", "000", "077"])
def test_files_have_mode_0777_under_the_umask(station: Station, umask: str) -> None:
    station.processes[0].kill()
    for name in (DOCUMENT, ALERT_LOG):
        station.path(name).unlink()
    command = shlex.join(station.service_command)
    station.start("/bin/sh", "-c", f"umask {umask}; exec {command}")
    station.wait_for_calls("qt-webkit-kiosk", 2)
    deliver(station, b"\0")
    for name in (DOCUMENT, ALERT_LOG, "/dev/shm/current_gateway"):
        mode = station.path(name).stat().st_mode & 0o777
        assert mode == 0o777 & ~int(umask, 8), name


def test_every_document_is_logged_with_the_local_time(station: Station) -> None:
    deliver(station, display_alert("ONE"))
    deliver(station, display_alert("TWO"))
    lines = station.path(ALERT_LOG).read_text().splitlines()
    assert len(lines) == 3
    stamp, text = lines[-1][:19], lines[-1][19:]
    assert text == station.document_text()
    time.strptime(stamp, "%y-%m-%d %H:%M:%S: ")


def test_text_is_escaped_for_the_page(station: Station) -> None:
    deliver(station, display_alert('A&B <i> "q" \\ /\b\f\n\r\t\x01\xe9'))
    text = station.document_text()
    expected = "A&amp;B &lt;i&gt; &quot;q&quot; \\\\ \\/\\b\\f\\n\\r\\t\x01\xe9"
    assert f'"alert_area":"{expected}", ' in text


def test_map_address_and_unit_names_are_not_escaped(station: Station) -> None:
    deliver(station, detail_alert("FIRE", {0: Unit('E"1', 2)}))
    deliver(station, gateway.set_map_address('http://map/?a&b="c"'))
    text = station.document_text()
    assert '"map_url":"http://map/?a&b="c"", "units":[{"unit":"E"1","color":"2"}]}]' in text
    assert station.document() == {}  # invalid JSON, on purpose


def test_alert_keeps_its_start_and_turnout_values_through_updates(station: Station) -> None:
    deliver(station, detail_alert("FIRE", turnout_end=60, turnout_zero=30))
    first = station.document()
    deliver(station, detail_alert("MORE", TWO_UNITS, turnout_end=99))
    second = station.document()
    for name in ("alert_time", "turnout_end", "turnout_zero"):
        assert second[name] == first[name]
    # The expiration follows the latest message, so the two may differ.
    assert int(second["alert_expiration"]) == int(second["alert_time"]) + 99
    assert second["alert_area"] == "MORE"


def test_flag_other_than_1_during_an_alert_is_ignored(station: Station) -> None:
    deliver(station, display_alert("FIRE"))
    before = station.document_text(), station.path(ALERT_LOG).read_text()
    deliver(station, display_alert("OTHER", flag=0))
    deliver(station, detail_alert("OTHER", flag=2))
    assert (station.document_text(), station.path(ALERT_LOG).read_text()) == before


def test_ignored_detail_alert_shows_up_with_a_later_map_address(station: Station) -> None:
    deliver(station, detail_alert("FIRE", TWO_UNITS))
    deliver(station, detail_alert("IGNORED", {15: Unit("T7", 7)}, flag=0))
    assert station.document()["alert_area"] == "FIRE"
    deliver(station, gateway.set_map_address("http://map/"))
    document = station.document()
    assert document["alert_area"] == "IGNORED"
    assert document["show_turnout_timer"] == "0"
    assert document["units"] == [{"unit": "T7", "color": "7"}]
    assert document["map_url"] == "http://map/"


def test_map_address_while_idle_changes_nothing(station: Station) -> None:
    before = station.document_text()
    deliver(station, gateway.set_map_address("http://map/"))
    assert station.document_text() == before


def test_flag_byte_255_is_written_unsigned(station: Station) -> None:
    deliver(station, display_alert("NOTICE", flag=255))
    assert station.document()["show_turnout_timer"] == "255"


def test_length_field_0_ends_the_alert_whatever_text_follows(station: Station) -> None:
    deliver(station, detail_alert("FIRE", TWO_UNITS))
    deliver(station, detail_alert("STILL HERE", text_length=0))
    document = station.document()
    assert document["alert_time"] == "0"
    assert document["alert_area"] == ""
    assert document["units"] == []
    deliver(station, gateway.set_map_address("http://map/"))
    assert station.document() == document


@pytest.mark.parametrize("length", [3557, 3558, 65535])
def test_length_field_beyond_the_message_starts_an_alert(station: Station, length: int) -> None:
    deliver(station, detail_alert("x" * 3556, text_length=length))
    document = station.document()
    assert document["alert_area"] == "x" * 3556
    assert document["alert_time"] != "0"


def test_sixteen_names_without_a_zero_are_cut_to_31_bytes(station: Station) -> None:
    units = {slot: Unit(chr(ord("A") + slot) * 32, 255) for slot in range(16)}
    deliver(station, detail_alert("FIRE", units))
    assert station.document()["units"] == [
        {"unit": chr(ord("A") + slot) * 31, "color": "255"} for slot in range(16)
    ]


def test_stop_turnout_leaves_the_alert_active(station: Station) -> None:
    deliver(station, display_alert("FIRE"))
    alert_time = station.document()["alert_time"]
    deliver(station, gateway.stop_turnout())
    assert station.document()["alert_type"] == "stop_turnout"
    deliver(station, display_alert("FIRE"))
    assert station.document()["alert_time"] == alert_time


def test_hdtv_alert_only_sets_the_timer(station: Station) -> None:
    before = station.document_text()
    deliver(station, gateway.hdtv_alert("any text", turnout=300))
    assert station.document_text() == before
    deliver(station, display_alert("FIRE"))
    document = station.document()
    assert int(document["alert_expiration"]) == int(document["alert_time"]) + 300


@pytest.mark.parametrize("size", range(1, 5))
def test_hdtv_alert_too_short_for_a_timer_is_harmless(station: Station, size: int) -> None:
    deliver(station, bytes([38, 1, 2, 3])[:size])
    deliver(station, display_alert("FIRE"))
    document = station.document()
    assert int(document["alert_expiration"]) == int(document["alert_time"]) + 120


def test_alert_brings_the_browser_back_from_another_page(station: Station) -> None:
    deliver(station, gateway.set_page_address("http://example/"))
    station.wait_for_calls("qt-webkit-kiosk", 2)
    deliver(station, display_alert("FIRE"))
    calls = station.wait_for_calls("qt-webkit-kiosk", 3)
    assert calls[1].argv[-1] == "http://example/"
    assert calls[2].argv[-1] == "http://127.0.0.1/station_web/"
    deliver(station, display_alert("FIRE"))
    assert len(station.calls("qt-webkit-kiosk")) == 3


def test_start_up_after_an_alert_shows_the_idle_page_again(
    station: Station, service: Process
) -> None:
    deliver(station, display_alert("FIRE"))
    service.kill()
    start(station)
    station.wait_for_calls("qt-webkit-kiosk", 2)
    assert station.document()["alert_area"] == "10.87.33.50"
