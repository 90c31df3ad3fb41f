"""Keeps both sides of a station away from this machine. Used by world.py to build them."""

import os
import shutil
import stat
from collections.abc import Sequence
from pathlib import Path
from typing import Any

from simulation import linux, whereabouts

_STATION = "run/station"

# Settings and state of the machine's one kernel, the same in every namespace.
_READ_ONLY = ("sys", "irq", "bus", "fs", "driver", "scsi", "acpi", "asound")
_MASKED = (
    *("sysrq-trigger", "kcore", "kmsg", "keys", "key-users", "timer_list", "latency_stats", "mtrr"),
    *("sched_debug", "kpagecount", "kpageflags", "kpagecgroup", "slabinfo", "vmallocinfo"),
)

# Directories that start out empty in a unit, whatever the machine has in them.
_FRESH = (
    *("proc", "sys", "dev", "tmp", "run", "root", "home", "mnt", "media", "opt", "srv", "var"),
    *("var/cache", "var/lib", "var/lib/misc", "var/log", "var/spool", "var/tmp", "var/www"),
    "usr/etc/xdg/QtWebkitKiosk",
)


def mount_tmpfs(target: str, size: str, mode: str = "755") -> None:
    """With a size limit: what is written there takes up this machine's memory."""
    linux.mount("station", target, "tmpfs", data=f"mode={mode},size={size},nr_inodes=50k")


def mount_proc(target: str, own: Sequence[str] = ()) -> None:
    """Read-only except for these settings, which are the network namespace's own."""
    linux.mount("proc", target, "proc")
    for name in _READ_ONLY:
        if os.path.isdir(f"{target}/{name}"):
            lend(f"{target}/{name}", f"{target}/{name}")
    for name in own:
        linux.mount(f"{target}/{name}", f"{target}/{name}", flags=linux.MS_BIND)
        linux.mount("none", f"{target}/{name}", flags=linux.MS_BIND | linux.MS_REMOUNT)
    for name in _MASKED:
        if os.path.exists(f"{target}/{name}"):
            linux.mount("/dev/null", f"{target}/{name}", flags=linux.MS_BIND)


def mount_devices(dev: str) -> None:
    mount_tmpfs(dev, "1m")
    nodes = {"null": 3, "zero": 5, "full": 7, "random": 8, "urandom": 9}
    # The console is a stand-in: the real one would switch this machine's screen to text.
    nodes["tty0"] = nodes["null"]
    for name, minor in nodes.items():
        os.mknod(f"{dev}/{name}", 0o020666, os.makedev(1, minor))
        os.chmod(f"{dev}/{name}", 0o666)
    os.mknod(f"{dev}/tty", 0o020666, os.makedev(5, 0))
    os.symlink("/proc/self/fd", f"{dev}/fd")
    os.symlink("pts/ptmx", f"{dev}/ptmx")
    os.mkfifo(f"{dev}/watchdog")
    os.mkdir(f"{dev}/shm")
    os.mkdir(f"{dev}/pts")
    linux.mount("devpts", f"{dev}/pts", "devpts", data="newinstance,ptmxmode=0666,mode=620,gid=5")
    mount_tmpfs(f"{dev}/shm", "256m", "1777")


def lend(source: str, target: str) -> None:
    """Makes a part of this machine visible in the station, read-only."""
    linux.mount(source, target, flags=linux.MS_BIND)
    linux.mount("none", target, flags=linux.MS_BIND | linux.MS_REMOUNT | linux.MS_RDONLY)


def lend_file(source: str, target: str) -> None:
    Path(target).parent.mkdir(parents=True, exist_ok=True)
    if not os.path.exists(target):
        Path(target).touch()
    lend(source, target)


def confine_gateway_side(settings: dict[str, Any], outside: list[str]) -> None:
    """Its root is the machine's, read-only. /run is covered because that is where services listen
    that could act on its behalf."""
    # Opened first: the mounts below may hide it.
    launcher = os.open(settings["programs"]["launch"], os.O_PATH)
    linux.make_read_only("/")
    mount_proc("/proc")
    mount_devices("/dev")
    mount_tmpfs("/run", "16m")
    lend_file(f"/proc/self/fd/{launcher}", f"/{_STATION}/bin/launch")
    Path(f"/{_STATION}/gateway").touch()
    write_lines(f"/{_STATION}/outside", outside)
    name = whereabouts.name_file(settings["name"], "gateway")
    Path(f"/{whereabouts.NAME_FILE}").write_text(name)


def install_masks(settings: dict[str, Any], tools: str) -> None:
    """The layer over the machine's root: stand-ins for its tools, whiteouts for hidden files."""
    original = f"{os.path.dirname(tools)}/stand-in"
    shutil.copy(settings["programs"]["stand-in"], original)
    for path in settings["hidden"]:
        place = Path(tools + path)
        place.parent.mkdir(parents=True, exist_ok=True)
        os.mknod(place, stat.S_IFCHR, os.makedev(0, 0))  # an overlay's whiteout
    for path in [*settings["stand_ins"], *settings["dangerous_programs"]]:
        # Directories may be symbolic links, most often /bin to /usr/bin.
        place = Path(tools + os.path.realpath(os.path.dirname(path))) / os.path.basename(path)
        place.parent.mkdir(parents=True, exist_ok=True)
        if not place.exists():
            os.link(original, place)


def install_busybox(tools: str, path: str, masked: list[int], mask: str) -> None:
    place = Path(tools + path)
    place.parent.mkdir(parents=True, exist_ok=True)
    shutil.copy(path, place)
    with open(place, "rb+") as file:
        for offset in masked:
            file.seek(offset)
            file.write(mask.encode())


def make_directories(root: str) -> None:
    for directory in _FRESH:
        os.makedirs(f"{root}/{directory}", exist_ok=True)
    os.chmod(f"{root}/root", 0o700)
    os.chmod(f"{root}/var/tmp", 0o1777)
    for name in ("run", "lock"):
        if not os.path.lexists(f"{root}/var/{name}"):
            os.symlink("/run", f"{root}/var/{name}")


def write_lines(path: str, lines: list[str]) -> None:
    Path(path).write_text("".join(line + "\n" for line in lines))
