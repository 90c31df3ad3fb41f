"""The gateway's other commands: reboot, date, page, rotation and the configuration."""

import pytest
from support import busy_service, is_zombie, start

from simulation import gateway
from simulation.gateway import deliver
from simulation.places import CONFIG
from simulation.process import Process
from simulation.station import Station
from simulation.waiting import wait_for


def config(station: Station) -> str:
    return station.path(CONFIG).read_text()


def mounts(station: Station) -> list[list[str]]:
    return [call.argv for call in station.calls("mount")]


REMOUNTS = [["mount", "-o", "rw,remount"], ["mount", "-o", "ro,remount"]]


def test_reboot_starts_the_program_without_waiting(station: Station, service: Process) -> None:
    station.behave("reboot", "stay")
    deliver(station, gateway.reboot())
    (call,) = station.wait_for_calls("reboot")
    assert (call.path, call.argv) in [
        ("/sbin/reboot", ["reboot"]),
        ("/usr/sbin/reboot", ["reboot"]),
    ]
    deliver(station, gateway.display_alert("STILL HERE"))
    assert station.document()["alert_area"] == "STILL HERE"


def test_date_is_handed_over_as_it_is(station: Station, service: Process) -> None:
    deliver(station, gateway.set_date("2024-03-05 07:04:09; $(reboot)\xe9"))
    (call,) = station.wait_for_calls("date")
    text = "2024-03-05 07:04:09; $(reboot)\xe9".encode().decode("latin-1")
    assert call.argv == ["date", "-s", text]
    assert call.path in ("/bin/date", "/usr/bin/date")


def test_date_blocks_the_service_until_its_program_ends(station: Station, service: Process) -> None:
    with busy_service(station):
        with gateway.connect(station) as connection:
            connection.sendall(gateway.display_alert("LATER"))
            assert station.document()["alert_area"] == "10.87.33.50"
    assert station.document()["alert_area"] == "LATER"


def test_dates_wait_takes_a_child_that_had_ended_before(station: Station, service: Process) -> None:
    deliver(station, gateway.reboot())
    (reboot,) = station.wait_for_calls("reboot")
    wait_for(lambda: is_zombie(station, reboot.pid), "the reboot program's end")
    station.behave("date", "stay")
    deliver(station, gateway.set_date("now"))  # would never return if it waited for the date
    assert not station.path(f"/proc/{reboot.pid}").exists()


def test_page_address_restarts_the_browser_on_it(station: Station, service: Process) -> None:
    (first,) = station.calls("qt-webkit-kiosk")
    deliver(station, gateway.set_page_address("http://example/page?x=1"))
    second = station.wait_for_calls("qt-webkit-kiosk", 2)[1]
    assert second.argv == ["qt-webkit-kiosk", "-u", "http://example/page?x=1"]
    assert not station.path(f"/proc/{first.pid}").exists()


def test_empty_page_address_stops_the_browser(station: Station, service: Process) -> None:
    (first,) = station.calls("qt-webkit-kiosk")
    deliver(station, gateway.set_page_address(""))
    assert not station.path(f"/proc/{first.pid}").exists()
    deliver(station, gateway.hdtv_settings(1))  # no page, so nothing to turn
    assert len(station.calls("qt-webkit-kiosk")) == 1
    deliver(station, gateway.display_alert("FIRE"))  # but an alert brings back the station page
    second = station.wait_for_calls("qt-webkit-kiosk", 2)[1]
    assert second.argv[-1] == "http://127.0.0.1/station_web/?rotation=90"


@pytest.mark.parametrize(
    ("quarter_turns", "stored", "suffix"),
    [
        (1, "90", "?rotation=90"),
        (2, "180", "?rotation=180"),
        (3, "270", "?rotation=270"),
        (4, "0", "?rotation=360"),
        (255, "0", "?rotation=22950"),
    ],
)
def test_rotation_is_stored_and_turns_the_page(
    station: Station, quarter_turns: int, stored: str, suffix: str
) -> None:
    station.write_config('{"a":"1"}')
    service = start(station)
    deliver(station, gateway.hdtv_settings(quarter_turns))
    assert config(station) == f'{{"a":"1","rotation":"{stored}"}}'
    assert mounts(station) == REMOUNTS
    assert f'Writing CFG:\n{{"a":"1","rotation":"{stored}"}}\n' in service.output
    second = station.wait_for_calls("qt-webkit-kiosk", 2)[1]
    assert second.argv[-1] == "http://127.0.0.1/station_web/" + suffix


def test_rotation_back_to_0_gives_the_bare_address(station: Station) -> None:
    station.write_config('{"rotation":"90"}')
    start(station)
    deliver(station, gateway.hdtv_settings(0))
    second = station.wait_for_calls("qt-webkit-kiosk", 2)[1]
    assert second.argv[-1] == "http://127.0.0.1/station_web/"


def test_rotation_as_before_neither_writes_nor_restarts(station: Station) -> None:
    station.write_config('{"rotation":"90"}')
    start(station)
    deliver(station, gateway.hdtv_settings(1))
    assert mounts(station) == []
    assert len(station.calls("qt-webkit-kiosk")) == 1


def test_rotation_unchanged_but_stored_otherwise_is_written(station: Station) -> None:
    station.write_config('{"rotation":"none"}')
    start(station)
    deliver(station, gateway.hdtv_settings(0))
    assert config(station).startswith('{"rotation":"0"}')
    assert mounts(station) == REMOUNTS
    assert len(station.calls("qt-webkit-kiosk")) == 1


def test_shorter_value_leaves_a_stale_byte_behind_the_brace(station: Station) -> None:
    station.write_config('{"rotation":"180"}')
    start(station)
    deliver(station, gateway.hdtv_settings(1))
    assert config(station) == '{"rotation":"90"}}'


def test_setting_lands_in_an_empty_object_with_its_comma(station: Station) -> None:
    start(station)
    deliver(station, gateway.hdtv_settings(2))
    assert config(station) == '{,"rotation":"180"}'


def test_every_closing_brace_but_one_at_the_start_receives_the_setting(station: Station) -> None:
    station.write_config("}{}}")
    start(station)
    deliver(station, gateway.hdtv_settings(3))
    assert config(station) == '}{,"rotation":"270"},"rotation":"270"}'


def test_only_the_first_4095_bytes_of_the_configuration_are_looked_at(station: Station) -> None:
    text = '{"rotation":"180"' + " " * 5000 + "}"
    station.write_config(text)
    service = start(station)
    deliver(station, gateway.hdtv_settings(3))
    written = text[:4095].replace("180", "270")
    assert f"Writing CFG:\n{written}\n" in service.output
    assert config(station) == text.replace("180", "270")  # the tail was already there


@pytest.mark.parametrize("exists", [True, False])
def test_missing_or_empty_configuration_stays_as_it_is(station: Station, exists: bool) -> None:
    station.path(CONFIG).unlink()
    if exists:
        station.path(CONFIG).touch()
    service = start(station)
    deliver(station, gateway.hdtv_settings(1))
    assert "Writing CFG:\n\n" in service.output
    assert mounts(station) == REMOUNTS
    assert station.path(CONFIG).exists() == exists
    assert not exists or config(station) == ""


def test_configuration_is_written_between_the_two_remounts(station: Station) -> None:
    station.write_config('{"rotation":"0"}')
    start(station)
    station.behave("mount", "await /tmp/release")
    gateway.send(station, gateway.hdtv_settings(1))
    station.wait_for_calls("mount", 1)
    assert config(station) == '{"rotation":"0"}'
    station.path("/tmp/release").touch()
    deliver(station, b"\0")
    assert config(station) == '{"rotation":"90"}'


@pytest.mark.parametrize("message", [b"\1", b"\0", b"\xff", b""])
def test_unknown_types_and_the_udp_only_one_do_nothing(
    station: Station, service: Process, message: bytes
) -> None:
    before = station.document_text(), len(station.calls())
    deliver(station, message + b"x" * 100 if message else message)
    assert (station.document_text(), len(station.calls())) == before
