"""The clock tick, the watchdog and the power tick, on the real clock."""

import struct
from datetime import datetime, timedelta, timezone

import pytest
from support import StationMaker, is_zombie, start

from simulation import gateway
from simulation.gateway import deliver
from simulation.process import Process
from simulation.station import Station
from simulation.television import ON, Television
from simulation.waiting import wait_for


def test_watchdog_is_kicked_at_start_up_and_then_every_second(
    station: Station, service: Process
) -> None:
    seen = bytearray()

    def has_kicked_three_times() -> bool:
        seen.extend(station.read_kicks())
        return len(seen) >= 3

    wait_for(has_kicked_three_times, "three kicks")
    assert set(seen) == {ord(" ")}


def test_without_a_watchdog_it_says_so_and_goes_on(station: Station) -> None:
    station.path("/dev/watchdog").unlink()
    service = start(station)
    assert service.output.startswith("Can't open /dev/watchdog\n")
    deliver(station, gateway.display_alert("FIRE"))
    assert station.document()["alert_area"] == "FIRE"


def test_browser_whose_process_is_gone_is_started_again(station: Station) -> None:
    station.behave("qt-webkit-kiosk", "exit 1")
    start(station)
    (first,) = station.calls("qt-webkit-kiosk")
    wait_for(lambda: is_zombie(station, first.pid), "the browser's end")
    station.behave("qt-webkit-kiosk", "stay")
    deliver(station, gateway.set_date("now"))  # its wait reaps the zombie
    second = station.wait_for_calls("qt-webkit-kiosk", 2)[1]
    assert second.argv == first.argv


def time_zone(hours: int) -> bytes:
    """A time zone's file: always so many hours east of Greenwich."""
    header = b"TZif".ljust(20, b"\0") + struct.pack(">6L", 0, 0, 0, 0, 1, 4)
    return header + struct.pack(">lBB", hours * 3600, 0, 0) + b"ABC\0"


@pytest.mark.once
@pytest.mark.waits
@pytest.mark.slow
def test_changed_time_zone_is_followed_within_a_minute(station: Station) -> None:
    zone = station.path("/etc/localtime")

    def set_zone(hours: int) -> None:
        zone.unlink(missing_ok=True)  # a new file, as the tools for it make one
        zone.write_bytes(time_zone(hours))

    set_zone(0)
    start(station)

    def logged_offset() -> float:
        deliver(station, gateway.display_alert("FIRE"))
        line = station.path("/tmp/alerts.log").read_text().splitlines()[-1]
        logged = datetime.strptime(line[:17], "%y-%m-%d %H:%M:%S").replace(tzinfo=timezone.utc)
        return round((logged - datetime.now(timezone.utc)) / timedelta(hours=1))

    assert logged_offset() == 0
    set_zone(5)
    wait_for(lambda: logged_offset() == 5, "the new time zone in the log", deadline=90)


def test_late_address_is_shown_and_the_browser_uses_the_proxy(make_station: StationMaker) -> None:
    station = make_station(address=None)
    service = start(station)
    assert station.document()["alert_area"] == "No Network Connection"
    with gateway.accepting_proxy(station):
        gateway.start_dhcp_server(station)
        shown = lambda: station.document().get("alert_area") == "10.87.33.77"  # noqa: E731
        wait_for(shown, "the address on the page")
    first, second = station.wait_for_calls("qt-webkit-kiosk", 2)
    assert first.argv[1] == "-u"
    assert second.argv[1:3] == ["-c", "/usr/etc/xdg/QtWebkitKiosk/proxy.ini"]
    assert "Proxy listening on 10.87.33.1:3128\n" in service.output
    assert service.output.count("Writing JSON") == 2


@pytest.mark.waits
@pytest.mark.slow
@pytest.mark.television
def test_power_status_is_asked_for_every_five_seconds(station: Station) -> None:
    with Television(station) as television:
        start(station)
        wait_for(lambda: television.all_frames.count("40:8F") >= 3, "two polls after the first")
        assert television.power == ON
