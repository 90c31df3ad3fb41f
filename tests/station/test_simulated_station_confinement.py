"""What a simulated station keeps in: no program in it reaches the machine."""

import os
import shutil
import subprocess
import sys
from collections.abc import Callable
from pathlib import Path

import pytest
from command_support import KEPT_CAPABILITIES, STATUS, capabilities_of
from confinement_support import ATTEMPTS
from support import StationMaker

from simulation import dangers
from simulation.places import STATION_WEB, host_build_directory
from simulation.process import enter_command, launch_command
from simulation.station import Station
from simulation.tools import STAND_INS

# The station does not depend on how the service is built.
pytestmark = pytest.mark.once

# Remounts its arguments writable.
REMOUNT = """
import ctypes, sys
flags = 32 | 4096 if sys.argv[1] != "/sys" else 32
assert ctypes.CDLL(None).mount(b"none", sys.argv[1].encode(), None, flags, None) == 0
"""


def test_launcher_refuses_to_start_anything_outside() -> None:
    launch = host_build_directory() / "simulation" / "station-launch"
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
    # Neither does its shell: it finds the stand-in.
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
    # None of the machine's services listens there, and its disks are absent.
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
    own = ("/proc", "/sys", "/dev", "/tmp", "/run", "/var/www", "/usr/share/hdtv/version")
    assert all(mount[4].startswith(own) for mount in mounts[1:])


def test_what_is_lent_can_only_be_read(station: Station) -> None:
    for path in (STATION_WEB, "/run/station/bin/hdtv", "/run/station/real/usr/bin/wget"):
        assert os.statvfs(station.path(path)).f_flag & os.ST_RDONLY, path


def test_nothing_written_in_the_unit_reaches_the_machine(station: Station) -> None:
    name = f"/etc/written-by-{os.getpid()}"
    station.run("touch", name, "/usr/bin/written", "/var/www/written", "/tmp/written")
    assert station.path(name).exists()
    for path in (name, "/usr/bin/written"):
        assert not Path(path).exists()
    assert "nameserver" not in station.path("/etc/resolv.conf").read_text()
