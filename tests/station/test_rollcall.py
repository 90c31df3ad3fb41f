"""The UDP channel and the roll call."""

import socket

import pytest
from support import IDLE_DESCRIPTORS, wait_for_descriptors

from simulation import gateway
from simulation.gateway import OTHER_GATEWAY, VERSION, deliver, send_datagram
from simulation.places import GATEWAY_FILE
from simulation.process import Process
from simulation.station import Station
from simulation.waiting import wait_for

pytestmark = pytest.mark.usefixtures("service")

MAC = bytes.fromhex("02000a572132")
REPLY = b"\x02" + MAC + bytes([12, VERSION])
DATE_REQUEST = b"\x27" + MAC
SETTINGS_REQUEST = b"\x2f" + MAC


def test_roll_call_is_answered_with_three_records_until_date_and_settings_have_come(
    station: Station,
) -> None:
    with gateway.record_listener(station) as listener:
        send_datagram(station, gateway.roll_call())
        assert listener.wait_for_records(3) == [REPLY, DATE_REQUEST, SETTINGS_REQUEST]
        deliver(station, gateway.set_date("now"))
        send_datagram(station, gateway.roll_call())
        assert listener.wait_for_records(5)[3:] == [REPLY, SETTINGS_REQUEST]
        deliver(station, gateway.hdtv_settings(0))
        send_datagram(station, gateway.roll_call())
        send_datagram(station, gateway.roll_call())
        assert listener.wait_for_records(7)[5:] == [REPLY, REPLY]


def test_answer_goes_to_the_senders_address_and_not_to_the_gateway(station: Station) -> None:
    deliver(station, b"\0", source=gateway.GATEWAY)  # makes it the known gateway
    with (
        gateway.record_listener(station, gateway.GATEWAY) as known,
        gateway.record_listener(station, OTHER_GATEWAY) as other,
    ):
        send_datagram(station, gateway.roll_call(), source=OTHER_GATEWAY)
        other.wait_for_records(3)
        assert known.records() == []


def test_sender_of_a_datagram_is_not_learnt(station: Station, service: Process) -> None:
    with gateway.record_listener(station) as listener:
        send_datagram(station, gateway.roll_call())
        listener.wait_for_records(3)
    assert not station.path(GATEWAY_FILE).exists()
    assert "Setting Gateway Address" not in service.output


def test_closed_port_ends_the_roll_call_and_leaves_one_socket_each_time(
    station: Station, service: Process
) -> None:
    for count in (1, 2, 3):
        send_datagram(station, gateway.roll_call())
        wait_for_descriptors(service, IDLE_DESCRIPTORS + count)
    with gateway.record_listener(station) as listener:
        send_datagram(station, gateway.roll_call())
        assert listener.wait_for_records(3)[0] == REPLY
    # No child inherits what was left open: every test checks that at its end.
    deliver(station, gateway.set_page_address("http://example/"))
    station.wait_for_calls("qt-webkit-kiosk", 2)


def test_gateway_that_resets_each_record_does_not_end_the_service(
    station: Station, service: Process
) -> None:
    with station.on_gateway(), socket.create_server((gateway.GATEWAY, 5000)) as listening:
        send_datagram(station, gateway.roll_call())
        for _ in range(3):
            connection, _ = listening.accept()
            linger_0 = b"\1\0\0\0\0\0\0\0"
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, linger_0)
            connection.close()
    deliver(station, gateway.display_alert("FIRE"))
    assert station.document()["alert_area"] == "FIRE"
    assert service.is_running()


def test_commands_work_by_udp_but_for_two(station: Station) -> None:
    send_datagram(station, gateway.display_alert("FIRE", turnout=90))
    wait_for(lambda: station.document().get("alert_area") == "FIRE", "the alert")
    send_datagram(station, gateway.stop_turnout())
    send_datagram(station, gateway.set_map_address("http://map/"))
    send_datagram(station, gateway.display_alert("MORE"))
    wait_for(lambda: station.document().get("alert_area") == "MORE", "the update")
    log = station.path("/tmp/alerts.log").read_text()
    assert "stop_turnout" not in log
    assert "http:" not in log


def test_text_of_a_full_datagram_ends_with_it(station: Station) -> None:
    for size in (4095, 4096, 9000):
        send_datagram(station, gateway.set_page_address(b"x" * (size - 1)))
        expected = "x" * min(size - 1, 4095)
        wait_for(
            lambda: any(call.argv[-1] == expected for call in station.calls("qt-webkit-kiosk")),
            f"a page address of {len(expected)} bytes",
        )
