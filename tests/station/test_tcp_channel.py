"""The TCP command channel."""

import contextlib
import socket

from support import IDLE_DESCRIPTORS, busy_service, start, wait_for_descriptors

from simulation import gateway
from simulation.gateway import OTHER_GATEWAY, connect, deliver, display_alert, send
from simulation.places import GATEWAY_FILE
from simulation.process import Process
from simulation.station import Station

LINGER_0 = b"\1\0\0\0\0\0\0\0"


def test_first_connection_names_the_gateway_and_a_second_changes_nothing(
    station: Station, service: Process
) -> None:
    send(station, b"\0", source="10.87.33.20")
    deliver(station, b"\0", source="10.87.33.21")
    assert service.output.count("Setting Gateway Address") == 1
    assert "Setting Gateway Address: 10.87.33.20\n" in service.output
    assert station.path(GATEWAY_FILE).read_text() == (
        '{"gateway_addr": "10.87.33.20", "mac_addr": "02000A572132"}'
    )


def test_gateway_is_known_before_its_message_is_acted_upon(
    station: Station, service: Process
) -> None:
    deliver(station, display_alert("FIRE"))
    output = service.output
    assert output.index("Setting Gateway Address") < output.index('"alert_area":"FIRE"')


def test_unit_behind_the_proxy_takes_no_gateway_from_a_connection(station: Station) -> None:
    with gateway.accepting_proxy(station):
        service = start(station)
    deliver(station, display_alert("FIRE"))
    assert station.document()["alert_area"] == "FIRE"
    assert not station.path(GATEWAY_FILE).exists()
    assert "Setting Gateway Address" not in service.output


def test_gateway_file_is_replaced_whole(station: Station, service: Process) -> None:
    station.path(GATEWAY_FILE).write_text("x" * 500)
    deliver(station, b"\0")
    assert station.path(GATEWAY_FILE).read_text().endswith('"mac_addr": "02000A572132"}')


def test_peer_that_closes_without_sending_is_still_learnt(
    station: Station, service: Process
) -> None:
    connect(station, OTHER_GATEWAY).close()
    service.wait_for_output(f"Setting Gateway Address: {OTHER_GATEWAY}\n")
    deliver(station, display_alert("FIRE"))
    assert station.document()["alert_area"] == "FIRE"


def test_message_in_two_segments_is_only_its_first_part(station: Station, service: Process) -> None:
    with connect(station) as connection:
        connection.sendall(display_alert("FI"))
        gateway.wait_until_closed(connection)
        with contextlib.suppress(OSError):
            connection.sendall(b"RE")
    deliver(station, b"\0")
    assert station.document()["alert_area"] == "FI"


def test_message_of_4095_bytes_counts_whole_and_a_longer_one_is_cut(
    station: Station, service: Process
) -> None:
    for size in (4095, 4096, 9000):
        with busy_service(station), connect(station) as connection:
            # All of it has arrived before the service reads.
            connection.sendall((b"\x03\x01\0\0\0\0" + b"x" * 9000)[:size])
        assert station.document()["alert_area"] == "x" * 4089


def test_peer_that_resets_leaves_its_descriptor_behind_and_nothing_else(
    station: Station, service: Process
) -> None:
    deliver(station, b"\0")
    before = wait_for_descriptors(service, IDLE_DESCRIPTORS)
    for count in (1, 2):
        with busy_service(station):
            connection = connect(station)
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, LINGER_0)
            connection.close()
        wait_for_descriptors(service, before + count)
    deliver(station, display_alert("FIRE"))
    assert station.document()["alert_area"] == "FIRE"
    # No child inherits what was left open, either: every test checks that at its end.
    deliver(station, gateway.set_page_address("http://example/"))
    station.wait_for_calls("qt-webkit-kiosk", 2)


def test_reset_before_any_other_connection_teaches_no_gateway(
    station: Station, service: Process
) -> None:
    service.suspend()
    connection = connect(station, OTHER_GATEWAY)
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, LINGER_0)
    connection.close()
    service.resume()
    deliver(station, b"\0")
    assert OTHER_GATEWAY not in service.output


def test_connections_leave_nothing_open(station: Station, service: Process) -> None:
    for _ in range(50):
        send(station, display_alert("FIRE"))
    deliver(station, b"\0")
    wait_for_descriptors(service, IDLE_DESCRIPTORS)


def test_nothing_is_ever_answered(station: Station, service: Process) -> None:
    for message in (display_alert("FIRE"), gateway.stop_turnout(), b"\1", b"{}"):
        send(station, message)  # which asserts it
