"""The Debian package on a real kernel and systemd: installed, used with real tools, purged, and what
the machine's watchdog does when the service hangs. The tests share one machine and run in order."""

import json
import re
import socket
import subprocess
from collections.abc import Iterator
from pathlib import Path

import pytest
from loudspeaker import hear, make_clip
from machine import TOP, gateway_network, wait_for
from x86_unit import ADDRESS, HARDWARE_ADDRESS, PACKAGE, X86Unit

from simulation import gateway
from simulation.station import Station

pytest_plugins = ["console_report"]

# A whole machine has to boot first, and the tests wait for it again and again.
pytestmark = pytest.mark.timeout(1200)

# Since its last start.
JOURNAL = (
    "journalctl --no-pager -o cat _SYSTEMD_INVOCATION_ID=$(systemctl show -P InvocationID hdtv)"
)
DOCUMENT = "wget -q -O - http://127.0.0.1/station_web/alerts.json"
BROWSER = "ps -e -o args | grep '^-u http://127'"
SECURITY = (TOP / "docs" / "security.md").read_text()
INSTALL = f"dpkg --force-unsafe-io -i {PACKAGE}"


@pytest.fixture(scope="module")
def network() -> Iterator[Station]:
    with gateway_network() as station:
        yield station


@pytest.fixture(scope="module")
def unit(network: Station, tmp_path_factory: pytest.TempPathFactory) -> Iterator[X86Unit]:
    """With its sound card on and a television awake."""
    with X86Unit(network, tmp_path_factory.mktemp("unit")) as unit:
        unit.run("amixer -q sset Master 100% unmute; aplay -q -f cd -d 1 /dev/zero")
        unit.run("cec-ctl -d /dev/cec-television --tv")
        unit.run("setsid cec-follower -d /dev/cec-television >/dev/null 2>&1 </dev/null &")
        yield unit


def state(unit: X86Unit, name: str) -> str:
    return unit.run(f"systemctl is-active {name}").strip()


def main_process(unit: X86Unit) -> int:
    return int(unit.run("systemctl show -P MainPID hdtv"))


def watchdog(unit: X86Unit) -> list[str]:
    return unit.run("cd /sys/class/watchdog/watchdog0; cat identity state timeout").splitlines()[:3]


def test_rights_of_the_units_are_as_documented() -> None:
    """As systemd counts them. Only this machine is needed for it."""
    for name in ("hdtv", "hdtv-upkeep", "station-web"):
        command = ["systemd-analyze", "security", "--offline=true", "--no-pager"]
        file = str(TOP / "board" / "debian" / f"{name}.service")
        report = subprocess.run([*command, file], check=True, capture_output=True, text=True).stdout
        found = re.search(r"Overall exposure level for \S+: ([\d.]+)", report)
        row = re.search(rf"^\| `{name}.service` +\| +([\d.]+) \|", SECURITY, re.MULTILINE)
        assert found and row and found[1] == row[1]


def test_installed_package_starts_nothing_by_itself(unit: X86Unit) -> None:
    """A former one, for now."""
    assert "Setting up hdtv (47)" in unit.run(f"dpkg --force-unsafe-io -i {unit.former_package}")
    assert unit.run("systemctl is-enabled hdtv station-web").split() == ["disabled", "disabled"]
    assert state(unit, "hdtv") == "inactive"
    assert watchdog(unit)[1] == "inactive"


def test_enabled_service_runs_with_its_page_in_the_other_web_servers_place(unit: X86Unit) -> None:
    assert state(unit, "lighttpd") == "active"
    unit.run("systemctl enable --now hdtv")
    assert state(unit, "hdtv") == "active"
    assert state(unit, "station-web") == "active"
    assert state(unit, "lighttpd") == "inactive"
    unit.wait_for_output(JOURNAL, "Starting qt-webkit-kiosk without proxy")
    assert "logical_address: 0x4" in unit.run(JOURNAL)
    assert f'"alert_area":"{ADDRESS}"' in unit.run(DOCUMENT)
    assert "<html" in unit.run("wget -q -O - http://127.0.0.1/station_web/")
    manuals = unit.run("man hdtv gatewayctl hdtv-doctor | cat")
    assert "say what is wrong" in manuals
    assert "turn a television into" in manuals
    assert "command-line gateway" in manuals
    assert "roll-call" in unit.run("gatewayctl --help")


def show(unit: X86Unit, network: Station, text: str) -> None:
    """Over UDP, so that no connection keeps the service's port busy afterward."""
    gateway.send_datagram(network, gateway.display_alert(text), destination=ADDRESS)
    unit.wait_for_output(DOCUMENT, f'"alert_area":"{text}"')


SETTINGS = '{"comm_gw":"10.87.33.9","rotation":"0"}'


def test_upgrade_during_an_alert_waits_for_its_end_and_keeps_the_settings(
    unit: X86Unit, network: Station
) -> None:
    unit.run(f"echo '{SETTINGS}' >/var/www/config.json; echo ALERT_LIMIT=60 >>/etc/default/hdtv")
    show(unit, network, "FIRE")
    processes = "systemctl show -P MainPID hdtv station-web"
    before = unit.run(processes).split()
    said = unit.run(f"{INSTALL} </dev/null")
    assert "Preparing to unpack" in said and "(47)" in said
    assert "the former version goes on" in said and "(hdtv-upkeep.timer)" in said
    unit.run("systemctl start hdtv-upkeep")
    assert unit.run(processes).split() == before
    assert '"alert_area":"FIRE"' in unit.run(DOCUMENT)
    show(unit, network, "")
    unit.run("systemctl start hdtv-upkeep")
    unit.wait_for_output(JOURNAL, "Starting qt-webkit-kiosk")
    after = unit.run(processes).split()
    assert len(after) == 2 and not {*before, "0"} & {*after}
    assert unit.run(f"readlink /proc/{main_process(unit)}/exe").strip() == "/usr/sbin/hdtv"
    assert unit.run("cat /var/www/config.json").strip() == SETTINGS
    assert "\nALERT_LIMIT=60\n" in unit.run("cat /etc/default/hdtv")
    unit.run("cp /usr/share/hdtv/config.json /var/www; rm /etc/default/hdtv")


def test_pages_sign_of_life_reaches_the_service(unit: X86Unit) -> None:
    assert "No such file" in unit.run("ls /dev/shm/web_watchdog 2>&1")
    unit.run(
        "wget -q -O - --header 'X-Station-Page: alive' --post-data ''"
        " http://127.0.0.1/station_web/alive.cgi"
    )
    assert unit.run("stat -c %s /dev/shm/web_watchdog").strip() == "0"


def asked_of_the_web_server(unit: X86Unit, program: str, purpose: str) -> str:
    header = f"--header 'X-Station-Page: {purpose}'"
    return unit.run(f"wget -q -S -O - {header} 'http://127.0.0.1/station_web/{program}' 2>&1")


def test_confined_web_server_still_has_its_figures(unit: X86Unit) -> None:
    answer = asked_of_the_web_server(unit, "status.cgi", "status")
    figures = json.loads(answer[answer.index("{") :])
    assert figures["addresses"].split(", ")[0] == ADDRESS
    assert figures["hardware_address"] == HARDWARE_ADDRESS
    assert figures["service_version"] == str(gateway.VERSION)
    assert int(figures["uptime"]) > 0 and int(figures["document_changed"]) > 0


def test_confined_web_server_reaches_maps(unit: X86Unit, network: Station, tmp_path: Path) -> None:
    (tmp_path / "map.html").write_text("<p>a map")
    with gateway.web_server(network, tmp_path):
        for name, status in (("map.html", "204"), ("none.html", "404")):
            address = f"map.cgi?http://{gateway.GATEWAY}/{name}"
            assert f"HTTP/1.1 {status} " in asked_of_the_web_server(unit, address, "map")


def test_browser_can_make_its_sandbox(unit: X86Unit) -> None:
    unit.wait_for_output(JOURNAL, "the browser's namespaces are there")


def test_service_that_died_is_started_again(unit: X86Unit) -> None:
    first = main_process(unit)
    unit.run(f"kill -9 {first}")
    wait_for(lambda: main_process(unit) not in (0, first), "another process")
    unit.wait_for_output(JOURNAL, "Starting qt-webkit-kiosk")


def test_roll_call_is_answered_with_the_cards_hardware_address(
    unit: X86Unit, network: Station
) -> None:
    with gateway.record_listener(network) as records:
        gateway.send_datagram(network, gateway.roll_call(), destination=ADDRESS)
        first = records.wait_for_records(1)[0]
    assert first == b"\x02" + bytes.fromhex(HARDWARE_ADDRESS.replace(":", "")) + b"\x0c\x2f"


def test_television_finds_no_fault_with_the_unit(unit: X86Unit) -> None:
    groups = ("core", "power-status", "system-information", "vendor-specific-commands")
    options = " ".join(f"--test-{group}" for group in (*groups, "device-osd-transfer"))
    command = f"cec-compliance -d /dev/cec-television -r {unit.logical_address()} {options}"
    report = unit.run(command)
    total = re.search(r"Total .*: (\d+), Succeeded: (\d+), Failed: (\d+), Warnings: (\d+)", report)
    assert total is not None, report
    assert int(total[1]) >= 15, report
    assert (total[3], total[4]) == ("0", "0"), report


def examine(unit: X86Unit, option: str = "") -> dict[str, tuple[str, str]]:
    """What hdtv-doctor says: the grade of each link and the evidence."""
    lines = unit.run(f"hdtv-doctor --json {option} 2>/dev/null").splitlines()
    found = [json.loads(line) for line in lines if line.startswith("{")]
    return {each["link"]: (each["grade"], each["evidence"]) for each in found}


def test_doctor_asks_the_television_beside_the_service(unit: X86Unit) -> None:
    seen = examine(unit)
    assert seen["link"] == ("ok", "physical address 1.0.0.0")
    assert seen["logical address"] == ("ok", str(unit.logical_address()))
    assert seen["power status"] == ("ok", "on")
    assert seen["service's adapter"] == ("ok", "the service has /dev/cec0 open")
    assert seen["watchdog timeout"] == ("ok", "i6300ESB timer, 15 s")
    assert seen["TCP port 4000"][0] == seen["UDP port 4000"][0] == "ok"
    assert seen["headers"][0] == seen["document served"][0] == "ok"
    assert seen["audio control"][0] == "ok"
    # The service has noticed none of it.
    assert main_process(unit) == int(re.findall(r"process (\d+)", seen["service"][1])[0])


def test_doctor_asks_the_television_in_the_services_place(unit: X86Unit) -> None:
    first = main_process(unit)
    seen = examine(unit, "--stop-service")
    assert seen["power status"] == ("ok", "on")
    assert seen["television answers"][0] == "ok"
    assert state(unit, "hdtv") == "active"
    assert main_process(unit) not in (0, first)
    unit.wait_for_output(JOURNAL, "TV is NOT in standby mode.")


def test_clip_is_heard_as_it_is(unit: X86Unit, network: Station, tmp_path: Path) -> None:
    clip = make_clip(tmp_path / "clip.wav")
    heard = hear(unit, network, tmp_path, "100", len(clip))
    assert len(heard) == len(clip)
    assert max(abs(a - b) for a, b in zip(heard, clip, strict=True)) <= 1


def test_lower_volume_is_heard(unit: X86Unit, network: Station, tmp_path: Path) -> None:
    clip = make_clip(tmp_path / "clip.wav")
    heard = hear(unit, network, tmp_path, "50", len(clip))
    assert "[50%]" in unit.run("amixer sget PCM")
    assert len(heard) == len(clip)
    factor = max(heard) / max(clip)
    assert 0.01 < factor < 0.2
    assert max(abs(a - factor * b) for a, b in zip(heard, clip, strict=True)) <= 2


def test_clips_address_is_no_option_and_fills_no_disk(
    unit: X86Unit, network: Station, tmp_path: Path
) -> None:
    control = b'{"play_audio":"-o/root/owned.wav"}'
    gateway.send_datagram(network, control, destination=ADDRESS)
    unit.wait_for_output(JOURNAL, "wget: not an address: -o/root/owned.wav")
    with open(tmp_path / "endless.wav", "wb") as clip:
        clip.truncate(100 << 20)
    control = f'{{"play_audio":"http://{gateway.GATEWAY}/endless.wav"}}'.encode()
    with gateway.web_server(network, tmp_path) as paths:
        gateway.send_datagram(network, control, destination=ADDRESS)
        wait_for(lambda: paths, "the download")
        wait_for(lambda: not unit.run("ps -C wget -o stat= | grep -v Z").strip(), "its end")
    assert int(unit.run("stat -c %s /tmp/play.wav")) <= 32 << 20
    assert "No such file" in unit.run("ls /root/owned.wav 2>&1")
    unit.run("killall -q aplay-now; rm /tmp/play.wav")


def test_rotation_is_kept_where_the_root_file_system_is_writable(
    unit: X86Unit, network: Station
) -> None:
    gateway.send_datagram(network, gateway.hdtv_settings(1), destination=ADDRESS)
    unit.wait_for_output(BROWSER, "?rotation=90")
    assert '"rotation":"90"' in unit.run("cat /var/www/config.json")


def test_mount_of_debian_leaves_a_read_only_root_file_system_alone(
    unit: X86Unit, network: Station
) -> None:
    """It has to be told which one, and keeps the setting until the next start."""
    unit.run("mount -o remount,ro /")
    gateway.send_datagram(network, gateway.hdtv_settings(2), destination=ADDRESS)
    unit.wait_for_output(JOURNAL, "mount: bad usage")
    unit.wait_for_output(BROWSER, "?rotation=180")
    assert '"rotation":"90"' in unit.run("cat /var/www/config.json")
    unit.run("mount -o remount,rw /")
    gateway.send_datagram(network, gateway.hdtv_settings(0), destination=ADDRESS)
    unit.wait_for_output("cat /var/www/config.json", '"rotation":"0"')


# Stands for Chromium, in the example that starts it; it reports its user and its privileges.
CHROMIUM = r"""#!/bin/bash
{ id -un; id -ru; grep NoNewPrivs /proc/self/status; df -m --output=size /dev/shm /tmp; } | xargs >$HOME/self
printf '%s\n' "$@" >$HOME/arguments
exec -a "chromium ${!#}" sleep 1000000
"""
EXAMPLE = "/usr/share/doc/hdtv/examples/qt-webkit-kiosk"
KEPT = "/root/qt-webkit-kiosk"


def test_page_address_is_no_option_and_no_command_of_roots(unit: X86Unit, network: Station) -> None:
    unit.run(f"mv /usr/bin/qt-webkit-kiosk {KEPT}; install {EXAMPLE} /usr/bin")
    unit.run(f"cat >/usr/bin/browser <<'END'\n{CHROMIUM}END\nchmod 755 /usr/bin/browser")
    unit.run("mv -f /usr/bin/browser /usr/bin/chromium")
    hostile = "--renderer-cmd-prefix=/usr/bin/mkdir -p /tmp/pwned --"
    gateway.send_datagram(network, gateway.set_page_address(hostile), destination=ADDRESS)
    shown = "ps -e -o user:20,args | grep '[c]hromium http'"
    unit.wait_for_output(shown, "hdtv-kiosk           chromium http://127.0.0.1/station_web/")
    unit.wait_for_output(JOURNAL, "qt-webkit-kiosk: not a web address: --renderer-cmd-prefix=")
    profile = "/proc/$(pgrep -o -f '^chromium http')/root/run/hdtv/browser/profile"
    user = unit.run("id -u hdtv-kiosk").strip()
    expected = f"hdtv-kiosk {user} NoNewPrivs: 1 1M-blocks 256 256"
    assert unit.run(f"cat {profile}/self").strip() == expected
    arguments = unit.run(f"cat {profile}/arguments").split("\n")
    assert "--no-sandbox" not in arguments
    assert not [x for x in arguments if "cmd-prefix" in x]
    gateway.send_datagram(network, gateway.set_page_address("http://x/"), destination=ADDRESS)
    unit.wait_for_output(shown, "chromium http://x/")
    assert "http://127" not in unit.run(shown)
    unit.run(f"mv {KEPT} /usr/bin/qt-webkit-kiosk; systemctl restart hdtv")
    unit.wait_for_output(JOURNAL, "Starting qt-webkit-kiosk")


def test_missing_interface_is_noticed(unit: X86Unit) -> None:
    """According to ifconfig. Nothing in lsusb's list is the board's controller."""
    assert "0627:0001" in unit.run("lsusb")
    unit.run("ip link set eth0 down; ip link set eth0 name lost0")
    unit.wait_for_output(JOURNAL, "eth0 is missing")
    unit.run("ip link set lost0 name eth0; ip link set eth0 up")
    unit.run(f"ip address replace {ADDRESS}/24 dev eth0")
    assert "restarting networking" not in unit.run(JOURNAL)


def uptime(unit: X86Unit) -> float:
    """The service's uptime in seconds."""
    started = unit.run("systemctl show -P ExecMainStartTimestampMonotonic hdtv")
    return float(unit.run("cat /proc/uptime").split()[0]) - int(started) / 1e6


def test_watchdog_is_kicked(unit: X86Unit) -> None:
    """It has been armed for longer than its timeout."""
    assert watchdog(unit) == ["i6300ESB timer", "active", "15"]
    wait_for(lambda: uptime(unit) > 20, "20 seconds")
    assert state(unit, "hdtv") == "active"


def test_renderer_that_takes_too_much_memory_does_not_end_the_service(unit: X86Unit) -> None:
    first = main_process(unit)
    group = "/sys/fs/cgroup/system.slice/hdtv.service"
    unit.run("systemctl set-property --runtime hdtv MemoryMax=100M")
    unit.run(f"sh -c 'echo $$ >{group}/cgroup.procs; exec tail /dev/zero' 2>/dev/null")
    assert "oom_kill 1" in unit.run(f"cat {group}/memory.events")
    unit.run("systemctl set-property --runtime hdtv MemoryMax=infinity")
    assert state(unit, "hdtv") == "active"
    assert main_process(unit) == first


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


def connect_and_stay(network: Station, message: bytes) -> socket.socket:
    """The unit has taken the message, and closed its end."""
    connection = gateway.connect(network, destination=ADDRESS)
    connection.sendall(message)
    gateway.wait_until_closed(connection)
    return connection


def alert_over_tcp(unit: X86Unit, network: Station, text: str) -> None:
    gateway.reset(connect_and_stay(network, gateway.display_alert(text)))
    unit.wait_for_output(DOCUMENT, f'"alert_area":"{text}"')


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
    assert '"alert_area":""' in unit.run("cat /tmp/alerts.log")
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


def test_date_is_set(unit: X86Unit, network: Station) -> None:
    gateway.send_datagram(network, gateway.set_date("@1900000000"), destination=ADDRESS)
    wait_for(lambda: int(unit.run("date +%s")) >= 1900000000, "the date")


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
