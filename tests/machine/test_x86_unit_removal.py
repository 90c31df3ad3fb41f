"""What comes and goes with a unit that runs Debian: its clock, its adapter, its address, the package, its
power, and what the machine's watchdog does when the service hangs."""

from machine import wait_for
from x86_support import (
    BROWSER,
    DOCUMENT,
    JOURNAL,
    ON_ONE_MACHINE,
    alert_over_tcp,
    examine,
    main_process,
    show,
    state,
    uptime,
    watchdog,
)
from x86_unit import ADDRESS, INSTALL, X86Unit

from simulation import gateway
from simulation.station import Station

pytest_plugins = ["console_report", "x86_fixtures"]

pytestmark = ON_ONE_MACHINE


def test_date_is_set_and_the_gateway_stays_known(unit: X86Unit, network: Station) -> None:
    """As on a unit without a clock of its own: its gateway connects, and then sets it."""
    alert_over_tcp(unit, network, "")
    grade, evidence = examine(unit)["gateway"]
    known, _, since = evidence.partition(" for ")
    assert grade == "ok" and known.endswith(", known") and since
    gateway.send_datagram(network, gateway.set_date("@1900000000"), destination=ADDRESS)
    wait_for(lambda: int(unit.run("date +%s")) >= 1900000000, "the date")
    assert examine(unit)["gateway"] == ("ok", known)


def test_adapter_that_goes_away_lets_the_alert_through_that_waits_for_its_television(
    unit: X86Unit, network: Station
) -> None:
    """The television stays in standby no matter what, until the adapter is gone."""
    unit.run("pkill cec-follower; systemctl restart hdtv")
    unit.wait_for_output(JOURNAL, "Starting qt-webkit-kiosk")
    deaf = f"--ignore {unit.logical_address()},0x04"
    follower = f"cec-follower -d /dev/cec-television --standby {deaf}"
    unit.run(f"setsid {follower} >/dev/null 2>&1 </dev/null &")
    unit.wait_for_output(JOURNAL, "TV is in standby mode.")
    gateway.send_datagram(network, gateway.display_alert("FIRE"), destination=ADDRESS)
    unit.wait_for_output(JOURNAL, "TV on standby, sending ImageViewOn")
    assert '"alert_area":"FIRE"' not in unit.run(DOCUMENT)
    unit.run("pkill cec-follower; echo vivid.0 >/sys/bus/platform/drivers/vivid/unbind")
    unit.wait_for_output(DOCUMENT, '"alert_area":"FIRE"')
    assert "CEC: /dev/cec0: the adapter is gone" in unit.run(JOURNAL)
    wait_for(lambda: uptime(unit) > 20, "20 seconds")  # the watchdog is kicked again
    show(unit, network, "")
    assert state(unit, "hdtv") == "active"


def test_stopped_service_leaves_the_watchdog_disarmed(unit: X86Unit) -> None:
    unit.run("systemctl stop hdtv")
    assert state(unit, "hdtv") == "inactive"
    assert watchdog(unit)[1] == "inactive"
    assert unit.run(BROWSER).strip() == ""


def test_late_dhcp_server(unit: X86Unit, network: Station) -> None:
    """Debian's own script for the client sets the address."""
    unit.run("ip address flush dev eth0; systemctl start hdtv")
    unit.wait_for_output(DOCUMENT, "No Network Connection")
    gateway.start_dhcp_server(network, "br0")
    unit.wait_for_output(DOCUMENT, '"alert_area":"10.87.33.77"')
    assert unit.run("stat -c %s /etc/resolv.conf").strip() == "1"  # without a name server
    unit.run(f"systemctl stop hdtv; ip address add {ADDRESS}/24 dev eth0")


# Whatever the package, the service or the page may have left outside the package's own list.
OWN = (
    "{ find /etc/default /etc/systemd /var/www /var/lib/systemd /run /dev/shm"
    " -path /run/systemd -prune -o -print; ls -d /tmp/* 2>/dev/null; }"
    " | grep -E '^/([^t].*hdtv|.*/station.web|var/www/config|dev/shm/[acw]|tmp/(alerts|play)[.])'"
)


def test_purged_package_leaves_nothing(unit: X86Unit) -> None:
    files = "$(dpkg -L hdtv | grep -e hdtv -e station-web) /etc/systemd/system/*/hdtv.service"
    unit.run("echo RIFF >/tmp/play.wav; echo '# mine' >>/etc/default/hdtv; touch /tmp/mine")
    unit.run(f"ls -d {files} $({OWN}) >/root/files")
    own = unit.run(OWN).split()
    assert {"/var/www/config.json", "/tmp/alerts.log", "/dev/shm/alerts.json"} <= {*own}
    assert len(unit.run("cat /root/files").split()) >= 25
    assert unit.run("sysctl -n net.ipv4.tcp_syn_retries").strip() == "1"
    assert "Purging" in unit.run("dpkg --force-unsafe-io -P hdtv 2>&1")
    assert state(unit, "station-web") == "inactive"
    assert state(unit, "hdtv-upkeep.timer") == "inactive"
    assert unit.run("ls -d $(cat /root/files) 2>/dev/null; rm /root/files").strip() == ""
    assert unit.run(OWN).strip() == ""
    assert unit.run("ls /tmp/mine").strip() == "/tmp/mine"
    assert unit.run("getent passwd hdtv-kiosk").strip() == ""
    assert int(unit.run("sysctl -n net.ipv4.tcp_syn_retries")) > 1
    unit.run("systemctl start lighttpd; systemctl disable --now lighttpd")
    assert state(unit, "lighttpd") == "inactive"
    unit.run("systemctl enable lighttpd")


def test_enabled_service_starts_with_the_machine(unit: X86Unit, network: Station) -> None:
    """The gateway asks for the restart."""
    unit.run(f"{INSTALL}; systemctl enable --now hdtv")
    unit.wait_for_output(JOURNAL, "Starting qt-webkit-kiosk")
    gateway.send_datagram(network, gateway.reboot(), destination=ADDRESS)
    unit.wait_for_reset()
    assert "Restarting system" in unit.console
    unit.power_on()
    assert state(unit, "station-web") == "active"
    assert state(unit, "lighttpd") == "inactive"
    unit.wait_for_output(JOURNAL, "Starting qt-webkit-kiosk")
    gateway.deliver(network, gateway.display_alert("FIRE"), destination=ADDRESS)
    assert '"alert_area":"FIRE"' in unit.run(DOCUMENT)


def test_service_that_hangs_ends_in_a_reset_by_the_watchdog(unit: X86Unit) -> None:
    unit.run(f"kill -STOP {main_process(unit)}")
    unit.wait_for_reset()
    assert "Restarting system" not in unit.console
