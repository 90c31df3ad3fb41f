"""Builds one simulated station and keeps it alive as long as the process that started it.

Run by simulation.station.Station as a separate process, never by hand. There are two sides, each
with its own PID, mount, network, IPC and UTS namespaces: the gateway side (interface gw0 on the
station network) and, nested in it, the unit (interface eth0). The unit's root is an overlay on the
machine's root, so nothing it writes ends up anywhere else.

    starter > keeper > gateway side (pid 1) > builder > unit (pid 1)

The keeper records who and where all sides are, for a second terminal (whereabouts.py).
Each dies with its neighbors in this chain, and the two pids 1 take everything else with them:
however the starter ends, there is nothing to clean up.

A fleet has a builder and a unit for each of its units; gw0 is then a bridge that they are plugged into.
"""

import json
import os
import signal
import socket
import subprocess
import sys
from pathlib import Path
from typing import Any, NoReturn

sys.path.insert(0, str(Path(__file__).resolve().parent.parent))

from simulation import confinement, linux, whereabouts  # noqa: E402

NO_PRIVILEGE = "The simulated station needs the privilege to make namespaces: run it as root."
NAMESPACES = ("pid", "mnt", "net", "ipc", "uts")

# No one's files are here, so the unit's root is assembled here.
STAGE = "/sys"
ROOT = STAGE + "/root"

# The number of users and groups in a unit with a board's root, which may become any of them.
ALL_IDS = 65536


def main() -> None:
    linux.die_with_parent()
    starter = socket.socket(fileno=int(sys.argv[1]))
    settings = json.load(sys.stdin)
    settings["name"] = sys.argv[2]
    own_pids = os.stat("/proc/self/ns/pid").st_ino
    reports, report = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    reports.setsockopt(socket.SOL_SOCKET, socket.SO_PASSCRED, 1)
    outside = [os.readlink(f"/proc/self/ns/{kind}") for kind in NAMESPACES]
    try:
        linux.unshare(linux.NEW_WORLD)
    except OSError:
        sys.exit(NO_PRIVILEGE)
    pid = os.fork()
    if pid == 0:
        starter.close()
        reports.close()
        keep_gateway_side(settings, report, outside)
    report.close()
    names = ["gateway", *(unit["side"] for unit in settings["units"])]
    sides = receive_sides(reports, names)
    if sides:
        starter.send(
            whereabouts.keep({"name": settings["name"], "pid_namespace": own_pids, "sides": sides})
        )
    starter.close()
    os.waitpid(pid, 0)


def receive_sides(reports: socket.socket, names: list[str]) -> list[whereabouts.Side]:
    """In the order of their names; none if one of them has ended. The kernel says which processes
    they are."""
    sides: dict[str, whereabouts.Side] = {}
    while len(sides) < len(names):
        text, pid = linux.receive_with_pid(reports)
        if not text:
            return []
        side: whereabouts.Side = json.loads(text)
        side["pid"] = pid
        sides[side["side"]] = side
    return [sides[name] for name in names]


def keep_gateway_side(
    settings: dict[str, Any], report: socket.socket, outside: list[str]
) -> NoReturn:
    linux.die_with_parent()
    linux.mount("none", "/", flags=linux.MS_REC | linux.MS_PRIVATE)
    linux.mount("proc", "/proc", "proc")
    linux.sethostname("gateway")
    unshared, connected = os.pipe(), os.pipe()
    builders = []
    for unit in settings["units"]:
        builders.append(os.fork())
        if builders[-1] == 0:
            os.close(connected[1])
            build_unit({**settings, **unit}, report, outside, unshared[1], connected[0])
    os.close(unshared[1])
    for _ in builders:
        os.read(unshared[0], 1)
    connect_networks(settings, builders)
    confinement.confine_gateway_side(settings, outside)
    report.send(whereabouts.describe_self("gateway"))
    report.close()
    os.close(connected[1])
    reap_until(builders)


def build_unit(
    settings: dict[str, Any],
    report: socket.socket,
    outside: list[str],
    unshared: int,
    connected: int,
) -> NoReturn:
    linux.die_with_parent()
    users, network = make_user_namespace(settings["is_board_root"])
    linux.unshare(linux.NEW_WORLD)
    if settings["is_board_root"]:
        linux.setns(network, linux.CLONE_NEWNET)
    os.close(network)
    os.write(unshared, b".")
    os.read(connected, 1)  # until the gateway side closes its end
    unit = os.fork()
    if unit == 0:
        keep_unit(settings, report, outside, users)
    report.close()
    reap_until([unit])


def make_user_namespace(is_board_root: bool) -> tuple[int, int]:
    """Maps the first ids of this machine to themselves. For a board's root, also creates a network
    namespace that belongs to it. Its root has no rights over anything that belongs to the machine.
    """
    ids, network = (ALL_IDS, linux.CLONE_NEWNET) if is_board_root else (1, 0)
    ours, theirs = socket.socketpair()
    maker = os.fork()
    if maker == 0:
        linux.die_with_parent()
        ours.close()
        linux.unshare(linux.CLONE_NEWUSER | network)
        theirs.send(b".")
        theirs.recv(1)
        os._exit(0)
    theirs.close()
    ours.recv(1)
    for name in ("uid_map", "gid_map"):
        Path(f"/proc/{maker}/{name}").write_text(f"0 0 {ids}")
    made = [os.open(f"/proc/{maker}/ns/{kind}", os.O_RDONLY) for kind in ("user", "net")]
    ours.close()
    os.waitpid(maker, 0)
    return made[0], made[1]


def connect_networks(settings: dict[str, Any], builders: list[int]) -> None:
    interface, has_bridge = settings["interface"], settings["has_bridge"]
    commands = ["link set lo up"]
    if has_bridge:
        commands += ["link add gw0 type bridge"]
    for number, (unit, builder) in enumerate(zip(settings["units"], builders, strict=True)):
        end = f"unit{number}" if has_bridge else "gw0"
        peer = f"{interface} address {unit['hardware_address']} netns {builder}"
        commands += [f"link add {end} type veth peer name {peer}"]
        if has_bridge:
            # Units have nothing to say to each other, and this one machine would have to receive each of
            # their broadcasts for all of them.
            commands += [
                f"link set {end} master gw0 up",
                f"link set {end} type bridge_slave isolated on",
            ]
    commands += [f"address add {address}/24 dev gw0" for address in settings["gateway_addresses"]]
    ip(*commands, "link set gw0 up")
    if has_bridge:
        for number in range(len(builders)):
            linux.give_own_receive_queue(f"unit{number}")


def ip(*commands: str) -> None:
    text = "".join(command + "\n" for command in commands)
    subprocess.run(["ip", "-batch", "-"], input=text.encode(), check=True)


def keep_unit(
    settings: dict[str, Any], report: socket.socket, outside: list[str], users: int
) -> NoReturn:
    linux.die_with_parent()
    signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGCHLD})
    linux.sethostname("unit")
    interface, address = settings["interface"], settings["address"]
    commands = ["link set lo up", f"link set {interface} up"]
    if address:
        commands += [f"address add {address}/24 dev {interface}"]
        commands += [f"route add default dev {interface}"]
    ip(*commands)
    if settings["has_bridge"]:
        linux.give_own_receive_queue(interface)
    build_root(settings, outside)
    # For the browser, which needs to mount.
    confinement.lend_file(f"/proc/self/fd/{users}", f"{ROOT}/run/station/user-namespace")
    linux.pivot_root(ROOT)
    if settings["is_board_root"]:
        # From here on, its existing mounts can be neither removed nor made writable.
        linux.setns(users, linux.CLONE_NEWUSER)
        linux.unshare(linux.CLONE_NEWNS)
        linux.die_with_parent()  # the change of credentials cleared it
    os.close(users)
    report.send(whereabouts.describe_self(settings["side"]))
    report.close()
    reap_until([])


def build_root(settings: dict[str, Any], outside: list[str]) -> None:
    confinement.mount_tmpfs(STAGE, "256m")
    tools, upper, work = f"{STAGE}/tools", f"{STAGE}/upper", f"{STAGE}/work"
    for directory in (tools, upper, work, ROOT):
        os.mkdir(directory)
    confinement.install_masks(settings, tools)
    if settings["busybox"]:
        confinement.install_busybox(tools, *settings["busybox"])
    linux.mount("root", ROOT, "overlay", data=f"lowerdir={tools}:/,upperdir={upper},workdir={work}")
    confinement.make_directories(ROOT)
    confinement.mount_proc(f"{ROOT}/proc", settings["own_kernel_settings"])
    linux.mount("sys", f"{ROOT}/sys", "sysfs", linux.MS_RDONLY)
    confinement.mount_devices(f"{ROOT}/dev")
    for directory, size in settings["writable"].items():
        confinement.mount_tmpfs(f"{ROOT}{directory}", size, "1777")
    build_station_directory(settings, outside)
    write_settings(settings)


def write_settings(settings: dict[str, Any]) -> None:
    """Files in /etc that differ from the machine's."""
    Path(f"{ROOT}/etc/asound.conf").write_text(
        "pcm.!default {\n"
        f'    type file\n    file "{settings["loudspeaker"]}"\n    format "wav"\n'
        '    slave.pcm "null"\n'
        "}\n"
    )
    # A private copy: the DHCP client writes it.
    Path(f"{ROOT}/etc/resolv.conf").unlink(missing_ok=True)
    Path(f"{ROOT}/etc/resolv.conf").write_text("")


def build_station_directory(settings: dict[str, Any], outside: list[str]) -> None:
    station = f"{ROOT}/run/station"
    os.makedirs(f"{station}/behaviour")
    for name, program in settings["programs"].items():
        confinement.lend_file(program, f"{station}/bin/{name}")
    busybox = (settings["busybox"] or [""])[0]
    if busybox:
        # The layer's file: a unit that overwrites its own busybox does not change this one.
        confinement.lend_file(f"{STAGE}/tools{busybox}", f"{station}/bin/busybox")
    for path, program in settings["real"].items():
        own = f"{STAGE}/tools{busybox}" if program == busybox else program
        confinement.lend_file(own, f"{station}/real{path}")
    for place, source in settings["lent"].items():
        os.makedirs(ROOT + place)
        confinement.lend(source, ROOT + place)
    for place, source in settings["lent_files"].items():
        confinement.lend_file(source, ROOT + place)
    for name, behaviour in settings["behaviour"].items():
        Path(f"{station}/behaviour/{name}").write_text(behaviour)
    Path(f"{station}/journal").touch(mode=0o666)
    confinement.write_lines(f"{station}/stand-ins", settings["stand_ins"])
    confinement.write_lines(f"{station}/dangerous", settings["dangerous_names"])
    confinement.write_lines(f"{station}/outside", outside)
    Path(f"{ROOT}/{whereabouts.NAME_FILE}").write_text(
        whereabouts.name_file(settings["name"], settings["side"])
    )


def reap_until(last: list[int]) -> NoReturn:
    """Reaps every child, as pid 1 must, until one of those called last exits; if none, forever."""
    while True:
        try:
            pid, _ = os.wait()
        except ChildProcessError:
            signal.sigwait({signal.SIGCHLD})
            continue
        if pid in last:
            os._exit(1)


if __name__ == "__main__":
    main()
