"""Builds one simulated station and keeps it for as long as its starter lives.

Run by station.station.Station as a process of its own, never by hand. Two sides, each with its own
PID, mount, network, IPC and UTS namespaces: the gateway side (interface gw0 on the station network)
and, nested in it, the unit (interface eth0), whose root is an overlay over the machine's root, so
that nothing that happens there is ever written anywhere else.

    starter > keeper > gateway side (pid 1) > builder > unit (pid 1)

Each dies with the one before it and with the one after it, and with the two pids 1 dies everything
else: there is nothing to clean up, however the starter ends.
"""

import json
import os
import shutil
import signal
import socket
import subprocess
import sys
from pathlib import Path
from typing import Any, NoReturn

sys.path.insert(0, str(Path(__file__).resolve().parent.parent))

from station import linux  # noqa: E402

NO_PRIVILEGE = "The simulated station needs the privilege to make namespaces: run it as root."
NAMESPACES = ("pid", "mnt", "net", "ipc", "uts")

# Nobody's files lie here, so this is where the unit's root is put together.
STAGE = "/sys"
ROOT = STAGE + "/root"


def main() -> None:
    linux.die_with_parent()
    report = socket.socket(fileno=int(sys.argv[1]))
    settings = json.load(sys.stdin)
    outside = [os.readlink(f"/proc/self/ns/{kind}") for kind in NAMESPACES]
    try:
        linux.unshare(linux.NEW_WORLD)
    except OSError:
        sys.exit(NO_PRIVILEGE)
    pid = os.fork()
    if pid == 0:
        keep_gateway_side(settings, report, outside)
    report.close()
    os.waitpid(pid, 0)


def keep_gateway_side(
    settings: dict[str, Any], report: socket.socket, outside: list[str]
) -> NoReturn:
    linux.die_with_parent()
    linux.mount("none", "/", flags=linux.MS_REC | linux.MS_PRIVATE)
    linux.mount("proc", "/proc", "proc")
    linux.sethostname("gateway")
    unshared, connected = socket.socketpair(), socket.socketpair()
    builder = os.fork()
    if builder == 0:
        linux.die_with_parent()
        linux.unshare(linux.NEW_WORLD)
        unshared[1].send(b".")
        connected[0].recv(1)
        unit = os.fork()
        if unit == 0:
            keep_unit(settings, report, outside)
        report.close()
        reap_until(unit)
    unshared[0].recv(1)
    connect_networks(settings, builder)
    report.send(b"gateway")
    report.close()
    connected[1].send(b".")
    reap_until(builder)


def connect_networks(settings: dict[str, Any], unit: int) -> None:
    interface = settings["interface"]
    ip("link set lo up")
    ip(
        f"link add gw0 type veth peer name {interface}"
        f" address {settings['hardware_address']} netns {unit}"
    )
    for address in settings["gateway_addresses"]:
        ip(f"address add {address}/24 dev gw0")
    ip("link set gw0 up")


def ip(*commands: str) -> None:
    text = "".join(command + "\n" for command in commands)
    subprocess.run(["ip", "-batch", "-"], input=text.encode(), check=True)


def keep_unit(settings: dict[str, Any], report: socket.socket, outside: list[str]) -> NoReturn:
    linux.die_with_parent()
    signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGCHLD})
    linux.sethostname("unit")
    interface, address = settings["interface"], settings["address"]
    commands = ["link set lo up", f"link set {interface} up"]
    if address:
        commands += [f"address add {address}/24 dev {interface}"]
        commands += [f"route add default dev {interface}"]
    ip(*commands)
    build_root(settings, outside)
    enter_root()
    report.send(b"unit")
    report.close()
    reap_until(None)


def build_root(settings: dict[str, Any], outside: list[str]) -> None:
    linux.mount("station", STAGE, "tmpfs", data="mode=755")
    tools, upper, work = f"{STAGE}/tools", f"{STAGE}/upper", f"{STAGE}/work"
    for directory in (tools, upper, work, ROOT):
        os.mkdir(directory)
    install_stand_ins(settings["programs"]["stand-in"], settings["stand_ins"], tools)
    linux.mount("root", ROOT, "overlay", data=f"lowerdir={tools}:/,upperdir={upper},workdir={work}")
    for directory in ("proc", "sys", "dev", "tmp", "run", "var/www", "usr/etc/xdg/QtWebkitKiosk"):
        os.makedirs(f"{ROOT}/{directory}", exist_ok=True)
    linux.mount("proc", f"{ROOT}/proc", "proc")
    if os.path.exists(f"{ROOT}/proc/sysrq-trigger"):
        linux.mount("/dev/null", f"{ROOT}/proc/sysrq-trigger", flags=linux.MS_BIND)
    linux.mount("sys", f"{ROOT}/sys", "sysfs", linux.MS_RDONLY)
    build_devices()
    for directory in ("tmp", "run", "var/www", "dev/shm"):
        linux.mount("unit", f"{ROOT}/{directory}", "tmpfs", data="mode=1777")
    build_station_directory(settings, outside)
    Path(f"{ROOT}/etc/asound.conf").write_text(
        "pcm.!default {\n"
        f'    type file\n    file "{settings["loudspeaker"]}"\n    format "wav"\n'
        '    slave.pcm "null"\n'
        "}\n"
    )
    # A private copy: the DHCP client writes it.
    Path(f"{ROOT}/etc/resolv.conf").unlink(missing_ok=True)
    Path(f"{ROOT}/etc/resolv.conf").write_text("")


def install_stand_ins(stand_in: str, paths: list[str], tools: str) -> None:
    original = f"{STAGE}/stand-in"
    shutil.copy(stand_in, original)
    for path in paths:
        # The machine's directories may be symbolic links, /bin to /usr/bin above all.
        place = Path(tools + os.path.realpath(os.path.dirname(path))) / os.path.basename(path)
        place.parent.mkdir(parents=True, exist_ok=True)
        os.link(original, place)


def build_devices() -> None:
    dev = f"{ROOT}/dev"
    linux.mount("dev", dev, "tmpfs", data="mode=755")
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


def build_station_directory(settings: dict[str, Any], outside: list[str]) -> None:
    station = f"{ROOT}/run/station"
    for directory in ("bin", "real/usr", "behaviour"):
        os.makedirs(f"{station}/{directory}")
    lend("/usr", f"{station}/real/usr")
    for name, program in settings["programs"].items():
        Path(f"{station}/bin/{name}").parent.mkdir(exist_ok=True)
        Path(f"{station}/bin/{name}").touch()
        lend(program, f"{station}/bin/{name}")
    for place, source in settings["lent"].items():
        os.makedirs(ROOT + place)
        lend(source, ROOT + place)
    for name, behaviour in settings["behaviour"].items():
        Path(f"{station}/behaviour/{name}").write_text(behaviour)
    Path(f"{station}/journal").touch(mode=0o666)
    Path(f"{station}/stand-ins").write_text("".join(p + "\n" for p in settings["stand_ins"]))
    Path(f"{station}/outside").write_text("".join(name + "\n" for name in outside))


def lend(source: str, target: str) -> None:
    """A part of this machine in the unit, to read and run only."""
    linux.mount(source, target, flags=linux.MS_BIND)
    linux.mount("none", target, flags=linux.MS_BIND | linux.MS_REMOUNT | linux.MS_RDONLY)


def enter_root() -> None:
    os.chdir(ROOT)
    linux.mount(ROOT, "/", flags=linux.MS_MOVE)
    os.chroot(".")
    os.chdir("/")


def reap_until(last: int | None) -> NoReturn:
    """Reaps every child, as a pid 1 must, until the last one is gone; without one, for ever."""
    while True:
        try:
            pid, _ = os.wait()
        except ChildProcessError:
            signal.sigwait({signal.SIGCHLD})
            continue
        if pid == last:
            os._exit(1)


if __name__ == "__main__":
    main()
