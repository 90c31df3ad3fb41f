"""The simulated station itself: what it promises to those who test in it."""

import contextlib
import fcntl
import io
import os
import pty
import shutil
import signal
import subprocess
import sys
import time
from collections.abc import Callable, Iterator, Sequence
from pathlib import Path

import pytest
from conftest import StationMaker, start

from station import dangers, gateway
from station.__main__ import find_running_station
from station.station import (
    STAND_INS,
    STATION_WEB,
    UNIT_ADDRESS,
    Station,
    build_directory,
    dying_with_starter,
    enter_command,
    host_build_directory,
    launch_command,
)
from station.television import Television
from station.timeline import Timeline
from station.waiting import wait_for

TOP = Path(__file__).resolve().parents[2]


# What programs in a station keep: dac_override, kill, net_bind_service, net_admin, net_raw.
KEPT_CAPABILITIES = {1, 5, 10, 12, 13}

# As a shell starts what it puts into the background, and worse.
UNWILLING = [
    "env",
    "--ignore-signal=INT,QUIT,HUP,TERM,PIPE",
    "--block-signal=INT,QUIT,HUP,TERM",
]


def environment(**more: str) -> dict[str, str]:
    own = {"HDTV_BUILD": str(build_directory()), "PYTHONUNBUFFERED": "1", "PYTHONPATH": str(TOP)}
    return {**os.environ, **own, **more}


def command_line(*arguments: str, prefix: Sequence[str] = ()) -> list[str]:
    return dying_with_starter([*prefix, "/usr/bin/python3", "-m", "station", *arguments])


def run_command(*arguments: str, unprivileged: bool = False) -> subprocess.CompletedProcess[str]:
    prefix = ["setpriv", "--bounding-set=-all", "--inh-caps=-all"] if unprivileged else []
    return subprocess.run(
        command_line(*arguments, prefix=prefix),
        cwd=TOP,
        env=environment(),
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        timeout=60,
    )


@contextlib.contextmanager
def running_command(
    *arguments: str, prefix: Sequence[str] = (), **more: str
) -> Iterator[subprocess.Popen[str]]:
    """It has ended afterwards, whatever happens to the test."""
    with subprocess.Popen(
        command_line(*arguments, prefix=prefix),
        cwd=TOP,
        env=environment(**more),
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    ) as running:
        try:
            yield running
        finally:
            running.kill()


def read_until_line(running: subprocess.Popen[str], words: str) -> None:
    assert running.stdout is not None
    assert any(words in line for line in running.stdout)


def wait_for_end_of_station(name: str) -> None:
    for depth in (2, 3):
        wait_for(lambda: find_running_station(name, depth) is None, f"the end of {name}")


def capabilities_of(status: str) -> dict[str, set[int]]:
    """By their set, from the text of a process's status file."""
    sets = {}
    for line in status.splitlines():
        if line.startswith("Cap"):
            name, number = line.split()
            sets[name[3:-1]] = {bit for bit in range(64) if int(number, 16) >> bit & 1}
    return sets


# Remounts what it is given so that it can be written.
REMOUNT = """
import ctypes, sys
flags = 32 | 4096 if sys.argv[1] != "/sys" else 32
assert ctypes.CDLL(None).mount(b"none", sys.argv[1].encode(), None, flags, None) == 0
"""


def test_launcher_refuses_to_start_anything_outside() -> None:
    launch = host_build_directory() / "station" / "station-launch"
    result = subprocess.run(
        [launch, "/bin/echo", "ran"], capture_output=True, text=True, timeout=20
    )
    assert result.returncode == 1
    assert result.stdout == ""
    assert result.stderr == (
        "Refusing to start /bin/echo outside the simulated station: there is no station here.\n"
    )


@pytest.mark.parametrize("tool", ["/sbin/reboot", "/bin/mount", "/bin/date"])
def test_launcher_refuses_where_the_machines_own_tool_lies(station: Station, tool: str) -> None:
    station.run("cp", "/bin/true", tool)
    service = station.start_service()
    assert service.wait() == 1
    assert service.errors.endswith(f"outside the simulated station: {tool} is the machine's own.\n")


@pytest.mark.parametrize("kind", ["pid", "mnt", "net", "ipc", "uts"])
def test_launcher_refuses_in_a_namespace_of_the_machine(station: Station, kind: str) -> None:
    own = station.run("readlink", f"/proc/self/ns/{kind}").strip()
    outside = station.path("/run/station/outside")
    lines = [own if x.startswith(kind) else x for x in outside.read_text().splitlines()]
    outside.write_text("\n".join(lines) + "\n")
    service = station.start_service()
    assert service.wait() == 1
    assert f"its {kind} namespace is not a private one" in service.errors


STATUS = ("/bin/cat", "/proc/self/status")


def status_of_started(station: Station) -> str:
    process = station.start(*STATUS)
    assert process.wait() == 0
    return process.output


def status_of_started_on_gateway(station: Station) -> str:
    process = station.start_on_gateway(*STATUS)
    assert process.wait() == 0
    return process.output


def status_of_started_in_gateway_network(station: Station) -> str:
    process = station.start_in_gateway_network(*STATUS)
    assert process.wait() == 0
    return process.output


@pytest.mark.parametrize(
    "read_status",
    [
        status_of_started,
        lambda station: station.run(*STATUS),
        status_of_started_on_gateway,
        status_of_started_in_gateway_network,
    ],
    ids=["start", "run", "start_on_gateway", "start_in_gateway_network"],
)
def test_programs_have_the_kept_capabilities_only(
    station: Station, read_status: Callable[[Station], str]
) -> None:
    status = read_status(station)
    sets = capabilities_of(status)
    assert sets["Prm"] == sets["Eff"] == sets["Bnd"] == KEPT_CAPABILITIES
    assert sets["Inh"] == sets["Amb"] == set()
    assert "NoNewPrivs:\t1" in status


# chown, fowner, fsetid, setgid, setuid, sys_admin
BOARD_ROOT_CAPABILITIES = KEPT_CAPABILITIES | {0, 3, 4, 6, 7, 21}

# What only this machine's root may, and what is locked to a unit's.
ATTEMPTS = """
import ctypes, os, time
libc = ctypes.CDLL(None, use_errno=True)
remount, bind = 32, 4096

def refused(result):
    return result == -1 and ctypes.get_errno() == 1

def mount(target, kind, flags):
    return libc.mount(b"none", target, kind, flags, None)

assert refused(libc.reboot(0))
assert refused(libc.swapoff(b"/etc/passwd"))
assert refused(libc.adjtimex(ctypes.create_string_buffer(b"\\1" + bytes(300))))
for path in (b"/proc/sys", b"/proc/irq", b"/sys", b"/run/station/bin/hdtv"):
    assert refused(mount(path, None, remount | bind)), path
    assert libc.umount2(path, 2) == -1, path
for kind in (b"proc", b"sysfs", b"devtmpfs", b"debugfs"):
    assert refused(mount(b"/mnt", kind, 0)), kind
try:
    os.mknod("/tmp/disk", 0o060600, os.makedev(8, 0))
except PermissionError:
    print("out of reach")
"""


def test_boards_root_is_none_of_the_machines(make_station: StationMaker) -> None:
    station = make_station(is_board_root=True)
    sets = capabilities_of(status_of_started(station))
    assert sets["Prm"] == sets["Eff"] == sets["Bnd"] == BOARD_ROOT_CAPABILITIES
    users = station.run("readlink", "/proc/self/ns/user").strip()
    assert users != os.readlink("/proc/self/ns/user")
    assert station.run("/usr/bin/python3", "-c", ATTEMPTS) == "out of reach\n"
    station.run("setpriv", "--reuid=77", "--regid=77", "--clear-groups", "touch", "/tmp/other")
    assert station.path("/tmp/other").stat().st_uid == 77
    station.run("/run/station/real/usr/bin/mount", "-t", "tmpfs", "own", "/mnt")
    assert " /mnt " in station.run("cat", "/proc/self/mounts")
    assert " own /mnt " not in Path("/proc/self/mounts").read_text()


def test_rights_of_a_boards_root_are_not_to_be_had_from_inside(station: Station) -> None:
    asked = ("/run/station/bin/launch", "--board-root", *STATUS)
    for command in (launch_command, enter_command):
        started = command(station.unit_pid, *asked)
        refused = subprocess.run(started, capture_output=True, text=True, timeout=20)
        assert refused.returncode == 1
        assert refused.stderr.endswith("a board's root is one in a user namespace only.\n")


def test_root_of_the_browsers_namespace_mounts_nothing_of_the_machines(station: Station) -> None:
    enter = "users = os.open('/run/station/user-namespace', os.O_RDONLY)\n"
    enter += "assert libc.setns(users, 0x10000000) == 0 and libc.unshare(0x20000) == 0\n"
    place = ATTEMPTS.index("assert refused")
    script = ATTEMPTS[:place] + enter + ATTEMPTS[place:]
    assert station.run("/usr/bin/python3", "-c", script) == "out of reach\n"


def test_programs_start_with_signals_as_usual(station: Station) -> None:
    script = "import signal; signal.pthread_sigmask(signal.SIG_BLOCK, range(1, 32));"
    script += " [signal.signal(x, signal.SIG_IGN) for x in (1, 2, 3, 13, 15)];"
    script += " import os, sys; os.execv(sys.argv[1], sys.argv[1:])"
    again = [sys.executable, "-c", script, *launch_command(station.unit_pid, *STATUS)]
    again[3] = shutil.which("nsenter") or ""
    status = subprocess.run(again, capture_output=True, text=True, timeout=60).stdout
    masks = dict(line.split() for line in status.splitlines() if line.startswith(("SigB", "SigI")))
    assert masks == {"SigBlk:": "0" * 16, "SigIgn:": "0" * 16}


def test_every_dangerous_tool_is_a_stand_in(station: Station) -> None:
    assert {"/sbin/reboot", "/bin/date"} <= STAND_INS.keys()
    machines_own = dangers.dangerous_programs()
    assert machines_own
    paths = ["/run/station/bin/stand-in", *STAND_INS, *machines_own]
    sums = {line.split()[0] for line in station.run("sha256sum", *paths).splitlines()}
    assert len(sums) == 1


@pytest.mark.parametrize(
    "name",
    "shutdown init telinit runlevel systemctl hwclock insmod rmmod modprobe depmod swapon swapoff"
    " sysctl kexec mkfs fdisk losetup date reboot poweroff halt chroot nsenter unshare pivot_root"
    " dmesg mount umount".split(),
)
def test_launcher_refuses_where_a_dangerous_program_lies(station: Station, name: str) -> None:
    path = f"/usr/local/sbin/{name}.other"
    station.path(path).parent.mkdir(parents=True, exist_ok=True)
    station.path(path).touch()
    process = station.start("/bin/echo", "ran")
    assert process.wait() == 1
    assert process.output == ""
    assert process.errors.endswith(f"{path} is the machine's own.\n")


def test_dangerous_programs_are_journaled_and_do_nothing(station: Station) -> None:
    for name in ("systemctl", "swapoff", "sysctl"):
        process = station.start(name, "-a")
        assert (process.wait(), process.output, process.errors) == (0, "", "")
        assert station.calls(name)[0].argv == [name, "-a"]


@pytest.mark.parametrize("applet", ["reboot", "hwclock", "insmod", "mount", "swapoff", "date"])
def test_busybox_does_not_know_its_dangerous_programs(station: Station, applet: str) -> None:
    process = station.start("/bin/busybox", applet, "--help")
    assert process.wait() == 127
    assert process.errors == f"{applet}: applet not found\n"
    # Nor does its shell, which finds the stand-in.
    process = station.start("/bin/busybox", "sh", "-c", f"{applet} --help; ls -d /")
    assert (process.wait(), process.output) == (0, "/\n")
    assert station.calls(applet)[0].argv == [applet, "--help"]


def test_busybox_knows_its_other_programs(station: Station) -> None:
    names = station.run("/bin/busybox", "--list").split()
    own = subprocess.run(["/bin/busybox", "--list"], check=True, capture_output=True, text=True)
    masked = set(own.stdout.split()) - set(names)
    assert masked == set(own.stdout.split()) & dangers.DANGEROUS
    for name in set(names) & set(own.stdout.split()):
        process = station.start("/bin/busybox", name, "--help") if name[0] in "aw" else None
        assert process is None or process.wait() != 127, name


def test_launcher_refuses_the_machines_own_busybox(station: Station) -> None:
    shutil.copy("/bin/busybox", station.path("/usr/bin/busybox"))
    process = station.start("/bin/echo", "ran")
    assert process.wait() == 1
    assert process.errors.endswith("/usr/bin/busybox is the machine's own.\n")


@pytest.mark.parametrize("side", ["unit", "gateway"])
def test_kernels_settings_cannot_be_written(station: Station, side: str) -> None:
    root = Path(f"/proc/{station.unit_pid if side == 'unit' else station.gateway_pid}/root")
    with pytest.raises(OSError, match="Read-only file system"):
        (root / "proc/sys/kernel/core_pattern").write_text("core")
    for name in ("proc/sys", "proc/irq", "proc/bus", "proc/fs", "proc/acpi", "proc/scsi", "sys"):
        if (root / name).exists():
            assert os.statvfs(root / name).f_flag & os.ST_RDONLY, name
    for name in ("kcore", "timer_list", "sysrq-trigger", "kmsg"):
        if Path(f"/proc/{name}").exists():
            assert (root / "proc" / name).stat().st_rdev == os.makedev(1, 3), name


@pytest.mark.parametrize("place", ["/proc/sys", "/sys"])
def test_launcher_refuses_where_the_kernels_settings_can_be_written(
    station: Station, place: str
) -> None:
    remount = enter_command(station.unit_pid, "/usr/bin/python3", "-c", REMOUNT, place)
    subprocess.run(remount, check=True, timeout=20)
    process = station.start("/bin/echo", "ran")
    assert process.wait() == 1
    assert process.errors.endswith(f"{place} can be written.\n")


def test_gateway_side_can_only_read_the_machines_files(station: Station, tmp_path: Path) -> None:
    process = station.start_on_gateway("/bin/touch", str(tmp_path / "written"))
    assert process.wait() != 0
    assert "Read-only file system" in process.errors
    # Nobody of the machine listens there, and its disks are not there.
    process = station.start_on_gateway("/bin/ls", "/run", "/dev")
    process.wait()
    assert "station" in process.output
    devices = "fd full null ptmx pts random shm tty tty0 urandom watchdog zero".split()
    assert process.output.split()[:-2] == ["/dev:", *devices]


def test_what_is_written_in_a_station_is_limited(station: Station) -> None:
    mounts = [line.split() for line in station.run("cat", "/proc/self/mounts").splitlines()]
    limited = {
        where
        for _, where, kind, options, *_ in mounts
        if kind == "tmpfs" and not where.startswith("/run/station/")
        if "size=" in options and "nr_inodes=" in options
    }
    assert limited == {"/tmp", "/run", "/var/www", "/dev", "/dev/shm"}
    # The root's upper layer.
    space = os.statvfs(station.root)
    assert space.f_blocks * space.f_frsize == 256 << 20
    for where, megabytes in (("/tmp", 512), ("/run", 16), ("/var/www", 16), ("/dev/shm", 256)):
        space = os.statvfs(station.path(where))
        assert space.f_blocks * space.f_frsize == megabytes << 20


def test_private_files_of_the_machine_are_not_in_the_unit(station: Station) -> None:
    def present(path: str) -> bool:
        return station.start("/usr/bin/test", "-e", path).wait() == 0

    private = ["/etc/shadow", "/etc/gshadow", "/etc/ssh", "/etc/ssl/private"]
    assert Path("/etc/shadow").exists()
    for path in private:
        assert not present(path), path
    for directory in ("/root", "/home", "/mnt", "/srv", "/opt", "/var/lib/misc", "/var/log"):
        assert os.listdir(station.path(directory)) == [], directory
    kept = {"bin", "sbin", "usr", "etc", "proc", "sys", "dev", "tmp", "run", "root", "home"}
    kept |= {"mnt", "media", "opt", "srv", "var"}
    top = {name for name in station.run("ls", "-A", "/").split() if not name.startswith("lib")}
    assert top == kept
    unreadable = station.run("find", "/etc", "!", "-type", "l", "!", "-perm", "-o=r")
    assert unreadable == ""


def test_nothing_of_the_machines_mounts_is_left_in_the_unit(station: Station) -> None:
    mounts = [line.split() for line in station.run("cat", "/proc/self/mountinfo").splitlines()]
    assert mounts[0][4] == "/" and "overlay" in mounts[0]
    own = ("/proc", "/sys", "/dev", "/tmp", "/run", "/var/www")
    assert all(mount[4].startswith(own) for mount in mounts[1:])


def test_what_is_lent_can_only_be_read(station: Station) -> None:
    for path in (STATION_WEB, "/run/station/bin/hdtv", "/run/station/real/usr/bin/wget"):
        assert os.statvfs(station.path(path)).f_flag & os.ST_RDONLY, path


def test_stand_in_journals_a_call_completely(station: Station) -> None:
    pipe = os.pipe()
    os.set_inheritable(pipe[1], True)
    process = station.start("/bin/sh", "-c", 'exec 7</dev/null; exec /bin/date "a b" "\xe9\n" ""')
    process.wait()
    for fd in pipe:
        os.close(fd)
    (call,) = station.calls("date")
    assert call.argv == ["/bin/date", "a b", "\xc3\xa9\n", ""]
    assert call.descriptors == {"7": "/dev/null"}
    assert call.pid > 1
    assert abs(call.time - time.time()) < 60


def test_stand_in_keeps_the_name_that_it_was_called_by(station: Station) -> None:
    script = "import os; os.execv('/sbin/reboot', ['another name', '-f'])"
    station.start("/usr/bin/python3", "-c", script).wait()
    (call,) = station.calls("reboot")
    assert call.argv == ["another name", "-f"]


def test_stand_in_behaves_as_it_is_told(station: Station) -> None:
    station.behave("tvservice", "print state 0x12", "sleep 0.01", "exit 3")
    process = station.start("/usr/bin/tvservice", "-s")
    assert process.wait() == 3
    assert process.output == "state 0x12\n"


def test_nothing_written_in_the_unit_reaches_the_machine(station: Station) -> None:
    name = f"/etc/written-by-{os.getpid()}"
    station.run("touch", name, "/usr/bin/written", "/var/www/written", "/tmp/written")
    assert station.path(name).exists()
    for path in (name, "/usr/bin/written"):
        assert not Path(path).exists()
    assert "nameserver" not in station.path("/etc/resolv.conf").read_text()


def test_many_stations_run_at_once(make_station: StationMaker) -> None:
    stations = [make_station() for _ in range(5)]
    for station in stations:
        station.start_service()
    for number, station in enumerate(stations):
        station.wait_for_calls("qt-webkit-kiosk")
        gateway.deliver(station, gateway.display_alert(f"STATION {number}"))
    for number, station in enumerate(stations):
        assert station.document()["alert_area"] == f"STATION {number}"


def test_killed_starter_leaves_nothing_behind(tmp_path: Path) -> None:
    script = (
        "import sys, time\n"
        "from station.station import Station\n"
        "station = Station()\n"
        "service = station.start_service()\n"
        "station.wait_for_calls('qt-webkit-kiosk')\n"
        "print(station.gateway_pid, station.unit_pid, service.pid, flush=True)\n"
        "time.sleep(1000)\n"
    )
    with subprocess.Popen(
        dying_with_starter([sys.executable, "-c", script]),
        env=environment(),
        stdout=subprocess.PIPE,
        text=True,
    ) as starter:
        try:
            assert starter.stdout is not None
            pids = [int(pid) for pid in starter.stdout.readline().split()]
            assert len(pids) == 3
            mounts = Path("/proc/self/mounts").read_text()
        finally:
            starter.kill()
    for pid in pids:
        wait_for(lambda: not Path(f"/proc/{pid}").exists(), f"the end of process {pid}")
    assert Path("/proc/self/mounts").read_text() == mounts


def test_real_downloader_fetches_from_a_real_server_on_the_gateway(
    station: Station, tmp_path: Path
) -> None:
    (tmp_path / "clip.wav").write_bytes(b"RIFF clip")

    with gateway.web_server(station, tmp_path):
        command = "wget -q -O /tmp/play.wav -T 1 http://10.87.33.20/clip.wav"
        assert station.start("/usr/bin/wget", *command.split()[1:]).wait() == 0
    assert station.path("/tmp/play.wav").read_bytes() == b"RIFF clip"
    assert len(station.calls("wget")) == 1


def test_once_plays_the_incident_and_ends_with_status_0() -> None:
    result = run_command("--once", "--pause", "0.1")
    assert result.returncode == 0, result.stdout + result.stderr
    for words in (
        "service   Setting Gateway Address: 10.87.33.20",
        "tool      /usr/bin/qt-webkit-kiosk -u http://127.0.0.1/station_web/",
        "gateway   received: roll-call reply from 02:00:0a:57:21:32, version 47",
        "gateway   sends: roll call",
        "gateway   received: settings request from 02:00:0a:57:21:32",
        "tool      /usr/bin/date -s 2026-03-05 07:04:09",
        "tool      /usr/bin/aplay /tmp/play.wav",
        "gateway   sends: detail alert for E1 and L3",
        'E1:2 L3:5, "STRUCTURE FIRE\\n1200 MAIN ST, CROSS OAK AVE"',
        "map http://10.87.33.20/map.svg?incident=1042",
        "document  stop_turnout",
        'document  hdtv_alert, ""',
        "TV        waking",
        "TV        input 3.0.0.0 \N{RIGHTWARDS ARROW} 1.0.0.0",
        "TV        input 1.0.0.0 \N{RIGHTWARDS ARROW} 3.0.0.0",
        "TV        in standby\n",
        "the incident was observed",
    ):
        assert words in result.stdout
    assert "\033" not in result.stdout  # no colours in a pipe


def test_once_ends_with_status_1_when_the_service_does_not_do_its_work(tmp_path: Path) -> None:
    build = tmp_path / "build"
    (build / "hdtv").mkdir(parents=True)
    (build / "station").symlink_to(host_build_directory() / "station")
    (build / "hdtv" / "hdtv").write_text("#!/bin/sh\nexec sleep 100\n")
    (build / "hdtv" / "hdtv").chmod(0o755)
    with running_command("--once", HDTV_BUILD=str(build)) as running:
        output, _ = running.communicate(timeout=60)
    assert running.returncode == 1
    assert "not observed: the station is idle" in output


def test_help_explains() -> None:
    result = run_command("--help")
    assert result.returncode == 0
    for word in ("--once", "exec", "Ctrl-C", "incident"):
        assert word in result.stdout


def test_without_the_privilege_one_sentence_and_status_1() -> None:
    result = run_command("--once", unprivileged=True)
    assert result.returncode == 1
    assert result.stdout == ""
    assert result.stderr == (
        "The simulated station needs the privilege to make namespaces: run it as root.\n"
    )


def test_second_terminal_runs_programs_inside_the_running_station() -> None:
    name = f"test-{os.getpid()}"
    assert "No station is running here" in run_command("--name", name, "exec", "true").stderr
    gatewayctl = str(host_build_directory() / "tools" / "gatewayctl" / "gatewayctl")

    def inside(*arguments: str) -> subprocess.CompletedProcess[str]:
        return run_command("--name", name, "exec", *arguments)

    with running_command("--name", name, "--pause", "0.1") as running:
        read_until_line(running, "keeps running")
        document = inside("cat", "/dev/shm/alerts.json")
        failing = inside("sh", "-c", "exit 7")
        sent = inside(
            "--gateway", gatewayctl, "--to", UNIT_ADDRESS, "display-alert", "--text", "DRILL"
        )
        shown = inside("cat", "/dev/shm/alerts.json")
        names = [inside("hostname").stdout, inside("--gateway", "hostname").stdout]
        statuses = [inside(*STATUS).stdout, inside("--gateway", *STATUS).stdout]
        running.send_signal(signal.SIGINT)
        assert running.wait(20) == 130
    assert document.stdout.startswith('[{"alert_type":"display_alert"')
    assert failing.returncode == 7
    assert sent.returncode == 0, sent.stderr
    assert "DRILL" in shown.stdout
    assert names == ["unit\n", "gateway\n"]
    for status in statuses:
        sets = capabilities_of(status)
        assert sets["Prm"] == sets["Eff"] == sets["Bnd"] == KEPT_CAPABILITIES
        assert sets["Inh"] == sets["Amb"] == set()


@pytest.mark.parametrize("name", ["SIGINT", "SIGQUIT", "SIGHUP", "SIGTERM"])
def test_signal_ends_it_even_where_its_starter_ignored_and_blocked_it(name: str) -> None:
    number = signal.Signals[name]
    station_name = f"test-{os.getpid()}-{name}"
    with running_command("--once", "--name", station_name, prefix=UNWILLING) as running:
        read_until_line(running, "the station is idle")
        running.send_signal(number)
        _, errors = running.communicate(timeout=30)
    assert running.returncode == 128 + number
    assert errors == ""
    wait_for_end_of_station(station_name)


def test_reader_that_goes_away_ends_it() -> None:
    station_name = f"test-{os.getpid()}-reader"
    with running_command("--name", station_name, "--pause", "0.1", prefix=UNWILLING) as running:
        read_until_line(running, "the station is idle")
        assert running.stdout is not None and running.stderr is not None
        running.stdout.close()
        assert running.wait(30) == 128 + signal.SIGHUP
        assert running.stderr.read() == ""
    wait_for_end_of_station(station_name)


@pytest.mark.parametrize("closed", ["<&-", ">&-", "<&- >&- 2>&-"])
def test_closed_standard_descriptors_do_not_matter(closed: str) -> None:
    command = f'exec "$@" {closed}'
    with running_command("--once", "--pause", "0", prefix=["sh", "-c", command, "sh"]) as running:
        _, errors = running.communicate(timeout=60)
    assert (running.returncode, errors) == (0, "")


def test_closed_standard_descriptors_are_taken_by_nothing_else() -> None:
    script = (
        "import os, sys; from station import linux; linux.open_standard_descriptors();"
        " sys.exit(os.open('/', os.O_RDONLY))"
    )
    result = subprocess.run(
        ["sh", "-c", 'exec "$@" <&- >&- 2>&-', "sh", sys.executable, "-c", script],
        env=environment(),
        timeout=60,
    )
    assert result.returncode == 3


def test_killed_command_leaves_no_files_behind(tmp_path: Path) -> None:
    station_name = f"test-{os.getpid()}-killed"
    with running_command(
        *("--name", station_name, "--pause", "0.1", "--pictures", str(tmp_path / "pictures")),
        TMPDIR=str(tmp_path),
    ) as running:
        read_until_line(running, "roll call")
        running.kill()
    wait_for_end_of_station(station_name)
    assert [path.name for path in tmp_path.iterdir()] == ["pictures"]


ENDLESS_TEST = """
import time
from pathlib import Path
from station.station import Station

def test_endless(tmp_path):
    with Station() as station:
        service = station.start_service()
        outer = station.start_in_gateway_network("/bin/sleep", "1000")
        pids = station.gateway_pid, station.unit_pid, service.pid, outer.pid
        draft = Path(__file__).with_name("draft")
        draft.write_text(" ".join(str(pid) for pid in pids))
        draft.rename(draft.with_name("pids"))
        time.sleep(1000)
"""


@pytest.mark.parametrize("workers", ["0", "1"])
@pytest.mark.parametrize("end", ["killed", "at its time limit"])
def test_endless_test_leaves_no_process_behind(tmp_path: Path, workers: str, end: str) -> None:
    """Not of a station, and not of a program on the gateway's network."""
    (tmp_path / "test_endless.py").write_text(ENDLESS_TEST)
    command = [*UNWILLING, "/usr/bin/python3", "-m", "pytest", "-p", "no:cacheprovider"]
    options = ["-n", workers, "--timeout", "3" if end == "at its time limit" else "100"]
    with subprocess.Popen(
        dying_with_starter([*command, *options, f"--basetemp={tmp_path}/temporary", str(tmp_path)]),
        cwd=tmp_path,
        env=environment(),
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        text=True,
    ) as tests:
        try:
            names = tmp_path / "pids"
            wait_for(lambda: names.exists() or tests.poll() is not None, "the test's start")
            pids = [int(pid) for pid in names.read_text().split()]
            if end == "at its time limit":
                output, _ = tests.communicate(timeout=60)
                assert "Failed: Timeout >3.0s" in output
                assert tests.returncode == 1
        finally:
            tests.kill()
    for pid in pids:
        wait_for(lambda: not Path(f"/proc/{pid}").exists(), f"the end of process {pid}")


@pytest.mark.parametrize(
    "map_address, shown",
    [
        (b"\x1b]0;x\x07\x9b31m\xc2\x9b31m\xe2\x80\xae\xff\xe2\x80\xa8", "map ·]0;x··31m·31m···"),
        (b'","alert_type":5,"x":"\x1b', '(not an alert document): [{"alert_type'),
        (b'","alert_time":"\x1b', '(not an alert document): [{"alert_type'),
        (b'","x\x1b":' + b"[" * 3000, '(not valid JSON): [{"alert_type'),
    ],
    ids=["escapes", "no type", "no time", "too deep"],
)
def test_timeline_shows_nothing_raw_whatever_is_sent(
    station: Station, map_address: bytes, shown: str
) -> None:
    out = io.StringIO()
    with gateway.record_listener(station) as records, Television(station) as television:
        service = start(station)
        with Timeline(station, service, records, television, out):
            gateway.deliver(station, gateway.detail_alert("FIRE"))
            gateway.deliver(station, b"\x28" + map_address[:100])
            gateway.deliver(station, b"\x34" + map_address)
            wait_for(lambda: shown in out.getvalue(), shown)
    assert "/date -s " in out.getvalue()
    assert out.getvalue().replace("\n", "").isprintable()


def test_ctrl_c_on_a_terminal_ends_it_quietly_and_in_colour() -> None:
    terminal, inside = pty.openpty()
    with contextlib.ExitStack() as stack:
        stack.callback(os.close, terminal)
        # With a session of its own, whose terminal this is.
        running = subprocess.Popen(
            command_line("--pause", "0.1", prefix=[*UNWILLING, "setsid", "--ctty"]),
            cwd=TOP,
            env=environment(),
            stdin=inside,
            stdout=inside,
            stderr=inside,
        )
        stack.callback(running.wait)
        stack.callback(running.kill)
        os.close(inside)
        text = read_until(terminal, b"Ctrl-C ends it")
        os.write(terminal, b"\x03")
        text += read_until(terminal, b"")
        assert running.wait(20) == 130
    assert b"\033[32mdocument" in text
    assert b"Traceback" not in text
    assert b"the service has ended" not in text


def test_terminal_that_goes_away_ends_it() -> None:
    terminal, inside = pty.openpty()
    running = subprocess.Popen(
        command_line("--pause", "0.1", prefix=[*UNWILLING, "setsid", "--ctty"]),
        cwd=TOP,
        env=environment(),
        stdin=inside,
        stdout=inside,
        stderr=subprocess.DEVNULL,
    )
    try:
        os.close(inside)
        read_until(terminal, b"the station is idle")
        os.close(terminal)
        assert running.wait(30) == 128 + signal.SIGHUP
    finally:
        running.kill()
        running.wait()


def read_until(terminal: int, words: bytes) -> bytes:
    """What the terminal shows until these words, or until nobody writes to it any more."""
    text = b""
    while not (words and words in text):
        try:
            text += os.read(terminal, 4096)
        except OSError:
            break
    return text
