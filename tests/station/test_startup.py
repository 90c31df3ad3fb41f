"""Startup, as seen from outside."""

import json
import os
import shlex
import socket

import pytest
from support import StationMaker, open_descriptors, start

from simulation import gateway
from simulation.gateway import VERSION
from simulation.places import ALERT_LOG, DOCUMENT
from simulation.process import Process
from simulation.station import Station
from simulation.waiting import wait_for

STATION_PAGE = "http://127.0.0.1/station_web/"


def ended(station: Station, *arguments: str) -> tuple[int, str]:
    service = station.start_service(*arguments)
    return service.wait(), service.output


@pytest.mark.parametrize("arguments", [["-v"], ["-v", "--nonsense"]])
def test_version_option_prints_the_version(station: Station, arguments: list[str]) -> None:
    assert ended(station, *arguments) == (0, f"PERIPHERAL_VERSION: {VERSION}\n")
    assert station.calls() == []


@pytest.mark.parametrize("option", ["-h", "--version", "", "-v "])
def test_any_other_option_is_an_error(station: Station, option: str) -> None:
    assert ended(station, option, "-v") == (1, f'Error: Unrecognized Option "{option}"\n')
    assert not station.path(DOCUMENT).exists()


def test_without_a_console_it_ends_before_anything_else(station: Station) -> None:
    station.path("/dev/tty0").unlink()
    assert ended(station) == (1, "Can't open console")
    assert station.calls() == []
    assert not station.path(DOCUMENT).exists()


def test_idle_page_shows_the_units_own_address(station: Station, service: Process) -> None:
    assert station.document_text() == (
        '[{"alert_type":"display_alert", "show_turnout_timer":"0", "alert_time":"0", '
        '"turnout_end":"0", "turnout_zero":"0", "turnout_reverse":"0", "alert_expiration":"120", '
        '"alert_area":"10.87.33.50", "map_url":"", "units":[]}]'
    )
    assert station.calls("udhcpc", "killall") == []


def test_its_lines_appear_at_once_and_in_order(station: Station, service: Process) -> None:
    lines = service.output.splitlines()
    assert lines == [
        "failed to open vchiq instance",
        "Unable to connect to proxy at 10.87.33.1:3128.  Disabling proxy support",
        "Writing JSON: " + station.document_text(),
        "Starting qt-webkit-kiosk without proxy",
    ]


def test_both_channels_are_bound_on_all_addresses(station: Station, service: Process) -> None:
    def sockets(table: str) -> list[str]:
        lines = station.path(f"/proc/{1}/net/{table}").read_text().splitlines()[1:]
        return [line.split()[1] for line in lines]

    assert "00000000:0FA0" in sockets("tcp")
    assert "00000000:0FA0" in sockets("udp")


@pytest.mark.parametrize(
    ("kind", "fault"),
    [
        (socket.SOCK_STREAM, "hdtv: cannot bind TCP port 4000: Address already in use\n"),
        (socket.SOCK_DGRAM, "hdtv: cannot bind UDP port 4000: Address already in use\n"),
    ],
)
def test_channel_that_is_taken_is_said_and_the_other_is_served(
    station: Station, kind: int, fault: str
) -> None:
    with station.in_unit():
        holder = socket.socket(socket.AF_INET, kind)
        holder.bind(("0.0.0.0", gateway.COMMAND_PORT))
    with holder:
        service = start(station)
        assert service.errors == fault
        if kind == socket.SOCK_STREAM:
            gateway.send_datagram(station, gateway.display_alert("FIRE"))
        else:
            gateway.send(station, gateway.display_alert("FIRE"))
        wait_for(lambda: "FIRE" in station.document_text(), "the alert over the other channel")


@pytest.mark.parametrize("config", [None, "", "{}", "no json"])
def test_without_usable_settings_the_defaults_hold(station: Station, config: str | None) -> None:
    if config is None:
        station.path("/var/www/config.json").unlink()
    else:
        station.write_config(config)
    service = start(station)
    assert "Extracted comm_gw" not in service.output
    assert station.calls("qt-webkit-kiosk")[0].argv == ["qt-webkit-kiosk", "-u", STATION_PAGE]
    assert station.path(ALERT_LOG).read_text().endswith(station.document_text() + "\n")


def test_log_alerts_false_leaves_logging_on(station: Station) -> None:
    station.write_config('{"log_alerts":"false"}')
    start(station)
    assert station.path(ALERT_LOG).read_text().endswith(station.document_text() + "\n")


@pytest.mark.parametrize(
    ("value", "suffix"),
    [("90", "?rotation=90"), ("180", "?rotation=180"), ("270", "?rotation=270")]
    + [(value, "") for value in ("0", "90 ", "090", "360")],
)
def test_rotation_setting_turns_the_page(station: Station, value: str, suffix: str) -> None:
    station.write_config(json.dumps({"rotation": value}, separators=(",", ":")))
    start(station)
    assert station.calls("qt-webkit-kiosk")[0].argv[-1] == STATION_PAGE + suffix


def test_comm_gw_receives_the_gratuitous_rollcall_reply(station: Station) -> None:
    station.write_config('{"comm_gw":"10.87.33.21"}')
    with gateway.record_listener(station, "10.87.33.21") as listener:
        service = start(station)
        assert listener.wait_for_records(1) == [bytes.fromhex("02 02000a572132 0c 2f")]
    line = "Extracted comm_gw: 10.87.33.21, sending gratuitous rollcall reply\n"
    # After the idle document, before the browser.
    output = service.output
    assert output.index("Writing JSON") < output.index(line) < output.index("Starting qt-webkit")


def test_comm_gw_that_refuses_does_not_stop_it(station: Station) -> None:
    station.write_config('{"comm_gw":"10.87.33.21"}')
    start(station)
    gateway.deliver(station, gateway.display_alert("FIRE"))
    assert station.document()["alert_area"] == "FIRE"


@pytest.mark.parametrize("value", ["gateway", "10.87.33.256", ""])
def test_comm_gw_that_is_no_address_reaches_the_unit_itself(station: Station, value: str) -> None:
    station.write_config(f'{{"comm_gw":"{value}"}}')
    with gateway.record_listener_in_unit(station) as listener:
        service = start(station)
        assert listener.wait_for_records(1)[0][0] == 2
    assert f"Extracted comm_gw: {value}, sending" in service.output


def test_comm_gw_that_resets_does_not_end_it(station: Station) -> None:
    station.write_config('{"comm_gw":"10.87.33.21"}')
    with station.on_gateway(), socket.create_server(("10.87.33.21", 5000)) as listening:
        service = station.start_service()
        connection, _ = listening.accept()
        linger_0 = b"\1\0\0\0\0\0\0\0"
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, linger_0)
        connection.close()
    station.wait_for_calls("qt-webkit-kiosk")
    assert service.is_running()


def test_reader_of_its_output_that_goes_away_does_not_end_it(station: Station) -> None:
    # head exits after one line; every later line hits a broken pipe.
    command = shlex.join(station.service_command)
    service = station.start("/bin/sh", "-c", f"{command} | head -n 1")
    service.wait_for_output("failed to open vchiq instance")
    station.wait_for_calls("qt-webkit-kiosk")
    for text in ("ONE", "TWO", "THREE"):
        gateway.deliver(station, gateway.display_alert(text))
        assert station.document()["alert_area"] == text


def test_only_watchdog_event_loop_and_two_sockets_stay_open(
    station: Station, service: Process
) -> None:
    kinds = [os.readlink(f"/proc/{service.pid}/fd/{fd}") for fd in open_descriptors(service)[3:]]
    assert len(kinds) == 6
    assert sum(kind.endswith("/dev/watchdog") for kind in kinds) == 1
    assert sum(kind.startswith("socket:") for kind in kinds) == 2
    assert sum(kind == "anon_inode:[eventpoll]" for kind in kinds) == 1
    assert sum(kind.startswith("pipe:") for kind in kinds) == 2  # the event loop's own


def test_unit_behind_an_answering_proxy_says_so(station: Station) -> None:
    with gateway.accepting_proxy(station):
        service = start(station)
    assert "Proxy listening on 10.87.33.1:3128\n" in service.output
    assert "Starting qt-webkit-kiosk using proxy\n" in service.output
    assert station.calls("qt-webkit-kiosk")[0].argv == [
        "qt-webkit-kiosk",
        "-c",
        "/usr/etc/xdg/QtWebkitKiosk/proxy.ini",
        "-u",
        STATION_PAGE,
    ]


@pytest.mark.slow
def test_proxy_whose_host_is_silent_is_given_up_after_two_retries(station: Station) -> None:
    with gateway.silent_proxy(station):
        service = start(station)
    assert "Unable to connect to proxy at 10.87.33.1:3128.  Disabling" in service.output


def test_address_outside_the_gateway_network_is_not_probed(make_station: StationMaker) -> None:
    station = make_station(address="110.87.33.4")
    with gateway.accepting_proxy(station):
        service = start(station)
    assert "roxy listening" not in service.output
    assert station.document()["alert_area"] == "110.87.33.4"
    assert len(station.calls("qt-webkit-kiosk")[0].argv) == 3
