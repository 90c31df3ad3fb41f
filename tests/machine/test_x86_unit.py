"""The Debian package on a real kernel and systemd: installed, and used with real tools. The tests share
one machine and run in order, together with those of the other files of this name."""

import json
import re
import subprocess
from pathlib import Path

from loudspeaker import hear, make_clip
from machine import TOP, wait_for
from x86_support import (
    BROWSER,
    DOCUMENT,
    JOURNAL,
    ON_ONE_MACHINE,
    main_process,
    show,
    state,
    uptime,
    watchdog,
)
from x86_unit import ADDRESS, HARDWARE_ADDRESS, INSTALL, X86Unit

from simulation import gateway
from simulation.station import Station

pytest_plugins = ["console_report", "x86_fixtures"]

pytestmark = ON_ONE_MACHINE

SECURITY = (TOP / "docs" / "security.md").read_text()


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
