"""The health of display and network, on the real clock."""

import pytest
from support import start

from simulation.station import Station

LOW_MODE = "state 0x12000a [HDMI DMT (4) RGB full 4:3], 640x480 @ 60Hz, progressive"


@pytest.mark.waits
@pytest.mark.slow
def test_low_mode_and_missing_interface_are_mended_after_30_seconds(station: Station) -> None:
    station.behave("tvservice", f"print {LOW_MODE}")
    station.behave("lsusb", "print Bus 001 Device 003: ID 0424:ec00 Network Adapter")
    service = start(station)
    station.run("ip", "link", "set", "eth0", "down")  # the real ifconfig then omits it
    service.wait_for_output("USB NIC is present, restarting networking\n", deadline=60)
    (restart,) = station.wait_for_calls("S40network")
    assert restart.argv == ["S40network", "restart"]
    assert 'Current Output Resolution: "640x480"\n' in service.output
    assert "eth0 is missing\n" in service.output
    queries = [call.argv for call in station.calls("tvservice")]
    assert queries == [["/usr/bin/tvservice", "-s"], ["tvservice", "-o"], ["tvservice", "-p"]]
    assert len(station.wait_for_calls("qt-webkit-kiosk", 2)) == 2


@pytest.mark.waits
@pytest.mark.slow
def test_good_mode_and_present_interface_are_left_alone(station: Station) -> None:
    station.behave("tvservice", "print " + LOW_MODE.replace("640x480", "1920x1080"))
    service = start(station)
    service.wait_for_output('Current Output Resolution: "1920x1080"\n', deadline=60)
    station.wait_for_calls("ifconfig")
    assert station.calls("lsusb", "S40network") == []
    assert len(station.calls("qt-webkit-kiosk")) == 1
    assert "eth0 is missing" not in service.output
