"""Who the unit is, and how it gets an address, with the real tools."""

import re
import socket

from support import StationMaker, start

from simulation import gateway
from simulation.places import GATEWAY_FILE
from simulation.station import Station
from simulation.waiting import wait_for


def idle_text(station: Station) -> str:
    return str(station.document()["alert_area"])


def send_from_inside(station: Station, message: bytes) -> None:
    """A message over the loopback interface, for a unit without an address."""
    with station.in_unit(), socket.create_connection(("127.0.0.1", 4000)) as connection:
        connection.sendall(message)
        gateway.wait_until_closed(connection)


def add_interface(station: Station, name: str, address: str) -> None:
    station.run("ip", "link", "add", name, "type", "veth", "peer", "name", f"{name}-peer")
    station.run("ip", "address", "add", f"{address}/24", "dev", name)


def unit_address(station: Station) -> str:
    match = re.search(r"inet ([\d.]+)", station.run("ip", "-4", "address", "show", "eth0"))
    return match.group(1) if match else ""


def test_without_an_address_the_page_says_so_and_the_dhcp_client_runs(
    make_station: StationMaker,
) -> None:
    station = make_station(address=None)
    start(station)
    assert idle_text(station) == "No Network Connection"
    (killall,) = station.calls("killall")
    (client,) = station.wait_for_calls("udhcpc")
    assert killall.argv == ["killall", "-9", "udhcpc"]
    assert client.argv == ["udhcpc", "-t", "30", "-A", "30", "-q"]
    assert station.path(f"/proc/{client.pid}").exists()


def test_dhcp_client_gets_an_address_from_a_real_server(make_station: StationMaker) -> None:
    station = make_station(address=None)
    gateway.start_dhcp_server(station)
    start(station)
    wait_for(lambda: unit_address(station) == "10.87.33.77", "the address")
    gateway.deliver(station, gateway.display_alert("FIRE"), destination="10.87.33.77")
    assert station.document()["alert_area"] == "FIRE"


def test_second_start_kills_the_first_dhcp_client(make_station: StationMaker) -> None:
    station = make_station(address=None)
    service = start(station)
    (first,) = station.wait_for_calls("udhcpc")
    service.kill()
    assert station.path(f"/proc/{first.pid}").exists()
    start(station)
    second = station.wait_for_calls("udhcpc", 2)[1]
    wait_for(lambda: not station.path(f"/proc/{first.pid}").exists(), "the first client's end")
    assert station.path(f"/proc/{second.pid}").exists()


def test_start_up_waits_for_killall_but_not_for_the_client(make_station: StationMaker) -> None:
    station = make_station(address=None)
    station.behave("killall", "await /tmp/release")
    service = station.start_service()
    station.wait_for_calls("killall")
    assert station.calls("udhcpc", "qt-webkit-kiosk") == []
    station.path("/tmp/release").touch()
    station.wait_for_calls("udhcpc")
    station.wait_for_calls("qt-webkit-kiosk")
    assert service.is_running()


def test_without_eth0_the_hardware_address_is_zero(make_station: StationMaker) -> None:
    station = make_station(interface="eth1")
    start(station)
    assert idle_text(station) == "No Network Connection"
    gateway.deliver(station, b"\0")
    assert station.path(GATEWAY_FILE).read_text() == (
        '{"gateway_addr": "10.87.33.20", "mac_addr": "000000000000"}'
    )


def test_alias_of_eth0_does_not_count(make_station: StationMaker) -> None:
    station = make_station(address=None)
    station.run(*"ip address add 10.87.33.60/24 dev eth0 label eth0:1".split())
    start(station)
    assert idle_text(station) == "No Network Connection"


def test_last_address_of_eth0_counts(station: Station) -> None:
    station.run(*"ip address add 10.87.33.60/24 dev eth0 label eth0:1".split())
    station.run(*"ip address add 10.87.34.70/24 dev eth0".split())
    start(station)
    assert idle_text(station) == "10.87.34.70"


def test_other_interfaces_do_not_count_and_only_8_records_do(station: Station) -> None:
    for number in range(6):  # lo, eth0 and these: eight
        add_interface(station, f"other{number}", f"192.168.{number}.1")
    start(station)
    assert idle_text(station) == "10.87.33.50"


def test_eth0_beyond_the_8th_record_is_not_seen(make_station: StationMaker) -> None:
    station = make_station(interface="eth1", address=None)
    station.behave("udhcpc", "stay")  # the real one would take eth0's address away
    for number in range(7):
        add_interface(station, f"other{number}", f"192.168.{number}.1")
    add_interface(station, "eth0", "10.87.33.50")
    start(station)  # lo, the seven and eth0: the ninth
    assert idle_text(station) == "No Network Connection"
    station.run("ip", "address", "flush", "dev", "other0")
    station.processes[0].kill()
    station.start_service()
    wait_for(lambda: idle_text(station) == "10.87.33.50", "eth0 as the eighth record")
    send_from_inside(station, gateway.display_alert("FIRE"))
