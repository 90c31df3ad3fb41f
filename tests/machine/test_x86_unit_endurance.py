"""A unit that runs Debian for a long time, and through what wears it out."""

import re

from machine import wait_for
from x86_support import (
    DOCUMENT,
    JOURNAL,
    ON_ONE_MACHINE,
    alert_over_tcp,
    connect_and_stay,
    main_process,
    show,
    state,
    uptime,
)
from x86_unit import ADDRESS, X86Unit

from simulation import gateway
from simulation.station import Station

pytest_plugins = ["console_report", "x86_fixtures"]

pytestmark = ON_ONE_MACHINE


def timeouts(unit: X86Unit) -> int:
    """How many segments, including SYNs, had to be sent again."""
    return int(unit.run("nstat -asz TcpExtTCPTimeouts").split()[-2])


def test_peer_that_swallows_connections_does_not_end_in_a_reset(
    unit: X86Unit, network: Station
) -> None:
    """At startup and at the roll call. The peer's TCP answers are dropped."""
    assert unit.run("sysctl -n net.ipv4.tcp_syn_retries").strip() == "1"
    silence = ("from", gateway.OTHER_GATEWAY, "ipproto", "tcp", "blackhole")
    assert network.start_on_gateway("ip", "rule", "add", *silence).wait() == 0
    before = timeouts(unit)
    config = f'{{"comm_gw":"{gateway.OTHER_GATEWAY}","rotation":"0"}}'
    unit.run(f"cp /var/www/config.json /tmp; echo '{config}' >/var/www/config.json")
    unit.run("systemctl restart hdtv")
    unit.wait_for_output(JOURNAL, "Starting qt-webkit-kiosk")
    assert "sending gratuitous rollcall reply" in unit.run(JOURNAL)
    assert timeouts(unit) > before
    before = timeouts(unit)
    roll_call = gateway.roll_call()
    gateway.send_datagram(network, roll_call, gateway.OTHER_GATEWAY, ADDRESS)
    wait_for(lambda: timeouts(unit) >= before + 2, "the end of the attempt")
    show(unit, network, "HEARD")
    wait_for(lambda: uptime(unit) > 20, "20 seconds")
    show(unit, network, "")
    assert state(unit, "hdtv") == "active"
    unit.run("cp /tmp/config.json /var/www")
    assert network.start_on_gateway("ip", "rule", "del", *silence).wait() == 0


def test_refused_roll_calls_do_not_make_the_unit_deaf(unit: X86Unit, network: Station) -> None:
    """Each leaves a descriptor open."""
    descriptors = f"ls /proc/{main_process(unit)}/fd | wc -l"
    first = int(unit.run(descriptors))
    for count in range(100, 1200, 100):
        for _ in range(100):
            gateway.send_datagram(network, gateway.roll_call(), destination=ADDRESS)
        wait_for(lambda: int(unit.run(descriptors)) >= first + count, "the refusals")
    alert_over_tcp(unit, network, "HEARD")


def test_limits_last_for_a_year(unit: X86Unit) -> None:
    """A roll call every five minutes that cannot be answered uses up 105,000 descriptors."""
    limits = unit.run(f"grep 'Max open files' /proc/{main_process(unit)}/limits").split()
    assert int(limits[3]) > 4 * 105_000
    assert unit.run("systemctl show -P TasksMax hdtv").strip() == "infinity"


# Lines of a program that has ended by the time they are read belong to no unit.
UPKEEP_JOURNAL = "journalctl --no-pager -o cat -t hdtv | grep '(mark '"
WAITING = "starting again when nothing is going on"


def leave_descriptors(unit: X86Unit, network: Station, count: int) -> None:
    """Roll calls from a gateway that does not listen."""
    descriptors = f"ls /proc/{main_process(unit)}/fd | wc -l"
    first = int(unit.run(descriptors))
    for _ in range(count):
        gateway.send_datagram(network, gateway.roll_call(), destination=ADDRESS)
    wait_for(lambda: int(unit.run(descriptors)) >= first + count, "the refusals")


def test_upkeep_starts_a_service_again_that_holds_too_much_but_not_during_an_alert(
    unit: X86Unit, network: Station
) -> None:
    """With a lowered limit. The clock brings the timer's time."""
    assert state(unit, "hdtv-upkeep.timer") == "active"
    unit.run("mkdir /run/systemd/system/hdtv.service.d")
    limits = "/run/systemd/system/hdtv.service.d/limits.conf"
    unit.run(f"printf '[Service]\\nLimitNOFILE=64\\n' >{limits}")
    unit.run("echo DOCUMENT_LOG_LIMIT=1 >/etc/default/hdtv")
    unit.run("date -s '2027-04-01 04:12'; systemctl daemon-reload; systemctl restart hdtv")
    unit.wait_for_output(JOURNAL, "Starting qt-webkit-kiosk")
    first = main_process(unit)
    show(unit, network, "LONG" * 300)
    show(unit, network, "FIRE")
    leave_descriptors(unit, network, 30)
    unit.run("date -s '2027-04-01 04:29:58'")
    unit.wait_for_output(UPKEEP_JOURNAL, WAITING)
    assert main_process(unit) == first
    assert '"alert_area":"FIRE"' in unit.run(DOCUMENT)
    log = unit.run("cat /tmp/alerts.log.1")
    assert '"alert_area":"FIRE"' in log and len(log) > 1024
    show(unit, network, "")
    unit.wait_for_output("cat /tmp/alerts.log", '"alert_area":""')
    unit.run("date -s '2027-04-01 04:39:58'")
    wait_for(lambda: main_process(unit) not in (0, first), "another process")
    unit.wait_for_output(JOURNAL, "Starting qt-webkit-kiosk")
    said = unit.run(UPKEEP_JOURNAL)
    assert re.search(
        r"^(3[3-9]|4\d) descriptors \(mark 32\), .*: starting again$", said, re.MULTILINE
    )
    assert int(unit.run(f"ls /proc/{main_process(unit)}/fd | wc -l")) < 20
    alert_over_tcp(unit, network, "HEARD")
    alert_over_tcp(unit, network, "")


def test_upkeep_counts_a_clips_leftovers(unit: X86Unit, network: Station) -> None:
    unit.run("echo CHILD_MARK=1 >/etc/default/hdtv")
    first = main_process(unit)
    clip = gateway.play_clip(f"http://{gateway.GATEWAY}/none.wav")
    gateway.send_datagram(network, clip, destination=ADDRESS)
    wait_for(lambda: int(unit.run(f"ps --ppid {first} -o stat= | grep -c Z")) >= 2, "the leftovers")
    unit.run("date -s '2027-04-02 04:29:58'")
    wait_for(lambda: main_process(unit) not in (0, first), "another process")
    unit.wait_for_output(JOURNAL, "Starting qt-webkit-kiosk")
    assert re.search(r"\d+ ended children \(mark 1\)", unit.run(UPKEEP_JOURNAL))
    unit.run("rm /etc/default/hdtv; rm -r /run/systemd/system/hdtv.service.d")
    unit.run("systemctl daemon-reload; systemctl restart hdtv")
    unit.wait_for_output(JOURNAL, "Starting qt-webkit-kiosk")


def test_upkeep_says_once_a_day_that_all_is_well(unit: X86Unit) -> None:
    def well() -> list[str]:
        return [line for line in unit.run(UPKEEP_JOURNAL).splitlines() if "as it should be" in line]

    first, before = main_process(unit), len(well())
    unit.run("date -s '2027-04-03 05:00'; systemctl start hdtv-upkeep; systemctl start hdtv-upkeep")
    wait_for(lambda: len(well()) > before, "the look")
    assert len(well()) == before + 1
    figures = re.findall(r"(\d+)(?: kB)? [a-z ]+ \(mark (\d+)\)", well()[-1])
    assert [int(mark) for _, mark in figures] == [10000, 1000, 32768]
    assert all(0 <= int(amount) < int(mark) / 2 for amount, mark in figures)
    assert int(figures[0][0]) >= 9 and int(figures[2][0]) > 500
    assert main_process(unit) == first
    everything = unit.run("journalctl --no-pager -o cat -u hdtv-upkeep")
    assert "as it should be" in everything and "Finished" not in everything


def test_upkeep_leaves_a_stopped_service_alone(unit: X86Unit) -> None:
    unit.run("systemctl stop hdtv")
    assert state(unit, "hdtv-upkeep.timer") == "inactive"
    unit.run("date -s '2027-04-04 05:00'")
    assert unit.run("systemctl start hdtv-upkeep; echo $?").split() == ["0"]
    assert state(unit, "hdtv") == "inactive"
    unit.run("systemctl start hdtv")
    unit.wait_for_output(JOURNAL, "Starting qt-webkit-kiosk")
    assert state(unit, "hdtv-upkeep.timer") == "active"


LOOKS = "pgrep -fc 'S90hdtv retry-port'"


def test_service_that_came_too_late_for_its_port_gets_it_later(
    unit: X86Unit, network: Station
) -> None:
    connection = connect_and_stay(network, gateway.display_alert(""))
    unit.run("echo LIMIT=1 >/etc/default/hdtv; systemctl restart hdtv")
    unit.wait_for_output(JOURNAL, "Starting qt-webkit-kiosk")
    assert "datagrams only until it is free" in unit.run(JOURNAL)
    assert unit.run(LOOKS).strip() == "1"
    first = main_process(unit)
    gateway.reset(connection)
    wait_for(lambda: main_process(unit) not in (0, first), "another process")
    unit.wait_for_output(JOURNAL, "Starting qt-webkit-kiosk")
    alert_over_tcp(unit, network, "HEARD")
    alert_over_tcp(unit, network, "")
    unit.wait_for_output(LOOKS, "0")


def test_stopped_service_looks_at_its_port_no_longer(unit: X86Unit, network: Station) -> None:
    connection = connect_and_stay(network, gateway.display_alert(""))
    unit.run("systemctl restart hdtv")
    unit.wait_for_output(LOOKS, "1")
    unit.run("systemctl stop hdtv")
    assert unit.run(LOOKS).strip() == "0"
    gateway.reset(connection)
    unit.run("rm /etc/default/hdtv; systemctl start hdtv")
    unit.wait_for_output(JOURNAL, "Starting qt-webkit-kiosk")
