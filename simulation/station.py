"""One simulated station: start it, set it up, look inside, end it."""

import contextlib
import json
import os
import socket
import subprocess
import sys
import tempfile
import threading
from collections.abc import Iterator, Mapping, Sequence
from dataclasses import asdict, dataclass
from pathlib import Path
from typing import Any

from simulation import linux, whereabouts
from simulation.journal import Call, read_journal
from simulation.places import (
    BIN,
    CONFIG,
    DOCUMENT,
    GATEWAY_ADDRESSES,
    HARDWARE_ADDRESS,
    JOURNAL,
    LOUDSPEAKER,
    SERVICE_VERSION,
    STATION_WEB,
    UNIT_ADDRESS,
    WEB_PORT,
    build_directory,
    host_build_directory,
    top_directory,
)
from simulation.process import Process, dying_with_starter, launch_command
from simulation.tools import BOARD_TOOLS, STAND_INS, machine_settings
from simulation.waiting import DEADLINE, wait_for

# For a service built for the board.
EMULATOR = "/usr/bin/qemu-arm-static"
EMULATOR_OPTIONS = ["-cpu", "arm1176", "-L", "/usr/arm-linux-gnueabi", "-0", f"{BIN}/hdtv"]
BOARD_LIBRARIES = "armv6-sysroot/usr/lib/arm-linux-gnueabi"  # beside the build; it looks there

# For a program confined only by its network: the capabilities that simulation/launch.cpp keeps.
CONFINED = [
    "--bounding-set=-all,+dac_override,+kill,+net_admin,+net_bind_service,+net_raw",
    "--inh-caps=-all",
    "--no-new-privs",
]

# This machine's home and temporary directories do not exist in the unit.
UNIT_ENVIRONMENT = {"HOME": "/root", "TMPDIR": "/tmp"}

_X_SOCKETS = "/tmp/.X11-unix"

# What is writable in a unit besides its root, with size limits.
_WRITABLE = {"/tmp": "512m", "/run": "16m", "/var/www": "16m"}

# Settings of its own network, which a unit with a board's root may write.
_BOARD_SETTINGS = ("sys/net/ipv4/tcp_syn_retries",)


class StationError(Exception):
    """The station could not be started; the text says why."""


def is_for_arm(program: Path) -> bool:
    with contextlib.suppress(FileNotFoundError):
        return program.read_bytes()[18:20] == b"\x28\x00"  # e_machine in the ELF header
    return False


@dataclass(frozen=True)
class Identity:
    """A unit's own, on the station network."""

    address: str | None
    hardware_address: str


class Station:
    """A station with its gateway side. Use it in a with statement. With further units it is a fleet
    (simulation/fleet.py), and what it says of its unit is said of the first one."""

    def __init__(
        self,
        address: str | None = UNIT_ADDRESS,
        interface: str = "eth0",
        hardware_address: str = HARDWARE_ADDRESS,
        programs: Mapping[str, Path] | None = None,
        name: str = "",
        has_display: bool = False,
        is_board_root: bool = False,
        has_page: bool = True,
        further_units: Sequence[Identity] | None = None,
    ) -> None:
        """is_board_root is for tests of the board's own scripts: programs may become other users,
        mount, and create namespaces, in a user namespace that affects only the unit."""
        self.processes: list[Process] = []
        self.web_server: Process | None = None
        self._has_display = has_display
        self.is_emulated = is_for_arm(build_directory() / "hdtv" / "hdtv")
        identity = Identity(address, hardware_address)
        behaviours = {**STAND_INS, **(BOARD_TOOLS if is_board_root else {})}
        settings = {
            **machine_settings(is_board_root),
            "is_board_root": is_board_root,
            "own_kernel_settings": _BOARD_SETTINGS if is_board_root else (),
            "interface": interface,
            "units": [
                {"side": whereabouts.unit_side(number), **asdict(unit)}
                for number, unit in enumerate((identity, *(further_units or ())))
            ],
            "has_bridge": further_units is not None,
            "gateway_addresses": GATEWAY_ADDRESSES,
            "stand_ins": list(STAND_INS),
            "behaviour": {
                path.rpartition("/")[2]: behaviour + "\n" for path, behaviour in behaviours.items()
            },
            "loudspeaker": LOUDSPEAKER,
            "programs": self._programs(programs or {}),
            "writable": {x: size for x, size in _WRITABLE.items() if has_page or x != "/var/www"},
            "lent": self._lent(has_page),
            "lent_files": self._versions(has_page),
        }
        self.gateway_pid, self.unit_pids = self._start_world(name, settings)
        self._gateway_network = os.open(f"/proc/{self.gateway_pid}/ns/net", os.O_RDONLY)
        self._own_network = os.open("/proc/thread-self/ns/net", os.O_RDONLY)
        # Each thread may be in another one.
        self._current_network = threading.local()
        self._kicks = 0
        self._counting_kicks = threading.Lock()
        self._look_into(self.unit_pids[0])

    def _look_into(self, unit_pid: int) -> None:
        self.unit_pid = unit_pid
        self.root = Path(f"/proc/{unit_pid}/root")
        self._unit_network = os.open(f"/proc/{unit_pid}/ns/net", os.O_RDONLY)

    def _lent(self, has_page: bool) -> dict[str, str]:
        libraries = str(build_directory().parent / BOARD_LIBRARIES)
        return {
            **({STATION_WEB: str(top_directory() / "station_web")} if has_page else {}),
            **({libraries: libraries} if self.is_emulated else {}),
            **({_X_SOCKETS: _X_SOCKETS} if self._has_display else {}),
        }

    def _versions(self, has_page: bool) -> dict[str, str]:
        """Where an installation has them."""
        files = {SERVICE_VERSION: build_directory() / "hdtv" / "version"}
        if has_page:
            files[f"{STATION_WEB}/version.js"] = build_directory() / "station_web" / "version.js"
        return {place: str(file) for place, file in files.items() if file.exists()}

    def _programs(self, more: Mapping[str, Path]) -> dict[str, str]:
        """What the unit finds in BIN."""
        station_programs = host_build_directory() / "simulation"
        clock = station_programs / "station-clock.so"
        return {
            "stand-in": str(station_programs / "station-standin"),
            "launch": str(station_programs / "station-launch"),
            "hdtv": str(build_directory() / "hdtv" / "hdtv"),
            **({"clock": str(clock)} if clock.exists() else {}),
            # Under the service's name, which its children see.
            **({"arm/hdtv": EMULATOR} if self.is_emulated else {}),
            "kiosk": str(Path(__file__).with_name("kiosk.py")),
            **{name: str(path) for name, path in more.items()},
        }

    def _start_world(self, name: str, settings: Mapping[str, Any]) -> tuple[int, list[int]]:
        ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        ours.settimeout(DEADLINE)
        with ours, theirs:
            world = Path(__file__).with_name("world.py")
            self._keeper = subprocess.Popen(
                [sys.executable, "-I", "-S", str(world), str(theirs.fileno()), name],
                pass_fds=[theirs.fileno()],
                start_new_session=True,  # Ctrl-C goes to the parent only
                stdin=subprocess.PIPE,
                stderr=subprocess.PIPE,
            )
            theirs.close()
            assert self._keeper.stdin is not None
            self._keeper.stdin.write(json.dumps(settings).encode())
            self._keeper.stdin.close()
            self._keeper.stdin = None
            try:
                return self._receive_pids(ours)
            except BaseException:
                self._keeper.kill()
                raise

    def _receive_pids(self, channel: socket.socket) -> tuple[int, list[int]]:
        text = channel.recv(1 << 18)
        if not text:
            raise StationError(self._last_words())
        gateway, *units = (side["pid"] for side in json.loads(text)["sides"])
        return gateway, units

    def _last_words(self) -> str:
        self._keeper.kill()
        _, errors = self._keeper.communicate()
        return errors.decode().strip() or "The simulated station could not be started."

    def __enter__(self) -> "Station":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        try:
            for process in list(self.processes):
                self.forget(process)
        finally:
            self._keeper.kill()
            self._keeper.communicate()
        for fd in (self._gateway_network, self._unit_network, self._own_network):
            os.close(fd)

    # Files of the unit.

    def path(self, name: str) -> Path:
        return self.root / name.lstrip("/")

    def gateway_directory(self) -> Path:
        """A new, empty one on the gateway's side. It disappears with the station."""
        return Path(tempfile.mkdtemp(dir=f"/proc/{self.gateway_pid}/root/run"))

    def write_config(self, text: str | bytes) -> None:
        self.path(CONFIG).write_bytes(text.encode() if isinstance(text, str) else text)

    def document_text(self) -> str:
        """The current alert document; empty if there is none."""
        try:
            return self.path(DOCUMENT).read_text(errors="surrogateescape")
        except (FileNotFoundError, IsADirectoryError):
            return ""

    def document(self) -> dict[str, Any]:
        """The single object in the alert document; empty if it is not valid JSON."""
        try:
            objects = json.loads(self.document_text(), strict=False)
        except ValueError:
            return {}
        assert isinstance(objects, list) and len(objects) == 1
        return dict(objects[0])

    def read_kicks(self) -> bytes:
        """What has been written to the hardware watchdog since the last call."""
        fd = os.open(self.path("/dev/watchdog"), os.O_RDONLY | os.O_NONBLOCK)
        try:
            return os.read(fd, 65536)
        except BlockingIOError:
            return b""
        finally:
            os.close(fd)

    def count_kicks(self) -> int:
        """How often the hardware watchdog has been kicked so far, without those that read_kicks has
        returned."""
        with self._counting_kicks:
            self._kicks += len(self.read_kicks())
            return self._kicks

    # The tools' stand-ins.

    def behave(self, tool: str, *lines: str) -> None:
        """What the tool does from its next call on; simulation/standin.cpp lists the words."""
        self.path(f"/run/station/behaviour/{tool}").write_text("".join(x + "\n" for x in lines))

    def behavior(self, tool: str) -> list[str]:
        return self.path(f"/run/station/behaviour/{tool}").read_text().splitlines()

    def calls(self, *tools: str) -> list[Call]:
        """The journaled calls, oldest first; only of these tools, if any are given."""
        journal = read_journal(self.path(JOURNAL))
        return [call for call in journal if not tools or call.name in tools]

    def wait_for_calls(self, tool: str, count: int = 1) -> list[Call]:
        wait_for(lambda: len(self.calls(tool)) >= count, f"{count} call(s) of {tool}")
        return self.calls(tool)

    # Programs.

    def start(self, *command: str, environment: Mapping[str, str] | None = None) -> Process:
        """A program in the unit, confined like the service."""
        launched = launch_command(self.unit_pid, *command)
        display = {} if self._has_display else {"DISPLAY": ""}
        return self._keep(launched, {**UNIT_ENVIRONMENT, **display, **(environment or {})})

    def start_on_gateway(self, *command: str) -> Process:
        """A program of this machine on the gateway's side, where the machine's files are read-only;
        confined like the service."""
        return self._keep(launch_command(self.gateway_pid, *command), {})

    def start_in_gateway_network(self, *command: str) -> Process:
        """A program of this machine, with its files, but only the gateway's network."""
        entered = self.gateway_network_command(*command)
        return self._keep(entered, {}, is_waited_for=False)

    def gateway_network_command(self, *command: str) -> list[str]:
        """Its signals are reset to their defaults, whatever the parent ignores."""
        target = f"--target={self.gateway_pid}"
        entered = ["nsenter", target, "--net", "--", "setpriv", *CONFINED, "--"]
        return [*entered, "env", "--default-signal", "--", *command]

    def _keep(
        self, command: list[str], environment: Mapping[str, str], is_waited_for: bool = True
    ) -> Process:
        process = Process(command, {**os.environ, **environment}, is_waited_for)
        self.processes.append(process)
        return process

    def forget(self, process: Process) -> None:
        """Ends it, and drops its output."""
        self.processes.remove(process)
        process.close()

    def run(self, *command: str) -> str:
        """Runs a setup program in the unit, confined like the service; returns its output."""
        return subprocess.run(
            dying_with_starter(launch_command(self.unit_pid, *command)),
            check=True,
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            timeout=DEADLINE,
        ).stdout

    def start_service(
        self, *arguments: str, environment: Mapping[str, str] | None = None
    ) -> Process:
        return self.start(*self.service_command, *arguments, environment=environment)

    @property
    def service_command(self) -> list[str]:
        emulator = [f"{BIN}/arm/hdtv", *EMULATOR_OPTIONS] if self.is_emulated else []
        return [*emulator, f"{BIN}/hdtv"]

    def start_web_server(self) -> Process:
        """The unit's web server with the station page, ready when this returns."""
        server = self.start("/usr/sbin/lighttpd", "-D", "-f", f"{STATION_WEB}/lighttpd.conf")
        wait_for(lambda: self.listen_queue(WEB_PORT) is not None, "the unit's web server")
        self.web_server = server
        return server

    def use_real_browser(self, program: str = "kiosk") -> None:
        """From its next start on, the kiosk browser really shows the page."""
        self.behave("qt-webkit-kiosk", f"exec {BIN}/{program}")

    # Networks.

    def listen_queue(self, port: int) -> int | None:
        """How many connections wait to be accepted in the unit; None if nothing listens."""
        for line in self.path("/proc/1/net/tcp").read_text().splitlines()[1:]:
            fields = line.split()
            if fields[1].endswith(f":{port:04X}") and fields[3] == "0A":
                return int(fields[4].partition(":")[2], 16)
        return None

    @contextlib.contextmanager
    def on_gateway(self) -> Iterator[None]:
        """Sockets created inside belong to the gateway side, even when used later."""
        with self._network(self._gateway_network):
            yield

    @contextlib.contextmanager
    def in_unit(self) -> Iterator[None]:
        """Sockets created inside belong to the unit."""
        with self._network(self._unit_network):
            yield

    @contextlib.contextmanager
    def _network(self, fd: int) -> Iterator[None]:
        outer: int = getattr(self._current_network, "fd", self._own_network)
        # Entering takes half a millisecond: to send thousands of messages, enter once around them.
        if fd == outer:
            yield
            return
        self._enter_network(fd)
        try:
            yield
        finally:
            self._enter_network(outer)

    def enter_unit_network(self) -> None:
        """Permanently, and only for the calling thread: its new connections start in the unit."""
        linux.setns(self._unit_network, linux.CLONE_NEWNET)

    def enter_gateway_network(self) -> None:
        """The same on the gateway's side."""
        linux.setns(self._gateway_network, linux.CLONE_NEWNET)

    def _enter_network(self, fd: int) -> None:
        linux.setns(fd, linux.CLONE_NEWNET)
        self._current_network.fd = fd
