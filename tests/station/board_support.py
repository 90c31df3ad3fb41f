"""A unit with the board's init scripts and busybox."""

import contextlib
import shutil
import socket
from pathlib import Path

from simulation import gateway
from simulation.places import top_directory
from simulation.process import Process
from simulation.station import Station
from simulation.waiting import wait_for

PACKAGES = top_directory() / "board" / "package"
SCRIPTS = {
    "S90hdtv": PACKAGES / "hdtv" / "S90hdtv",
    "S80station-web": PACKAGES / "station-web" / "S80station-web",
    "upkeep": PACKAGES / "hdtv" / "upkeep",
}
DEFAULTS = "DAEMON=/run/station/bin/hdtv\n"
APPLETS = "/tmp/busybox"
WAITING = "hdtv: waiting for TCP port 4000, which is still in use\n"
HELD = "hdtv: TCP port 4000 is still in use after 1 s: datagrams only until it is free\n"
SYSLOG = "/tmp/messages"


def install_scripts(directory: Path) -> dict[str, Path]:
    """As the packages do: in the sources they are not executable."""
    for name, script in SCRIPTS.items():
        shutil.copy(script, directory / name)
        (directory / name).chmod(0o755)
    return {name: directory / name for name in SCRIPTS}


class Board:
    """A station whose tools are busybox's, with a system log."""

    def __init__(self, station: Station) -> None:
        self.station = station
        self.kept: list[socket.socket] = []
        station.path(APPLETS).mkdir()
        station.run("/bin/busybox", "--install", "-s", APPLETS)
        self.set_defaults(DEFAULTS)
        station.start("/bin/busybox", "syslogd", "-n", "-O", SYSLOG)
        wait_for(lambda: station.path("/dev/log").is_socket(), "the system log")
        # Held open, so that writing to the watchdog does not block, as on a real one.
        self.watchdog = open(station.path("/dev/watchdog"), "rb+", buffering=0)

    def set_defaults(self, text: str) -> None:
        self.station.path("/etc/default/hdtv").write_text(text)

    def call(self, action: str, script: str = "S90hdtv") -> Process:
        """With only the descriptors that it has at boot."""
        shell = ("/bin/busybox", "env", f"PATH={APPLETS}", f"{APPLETS}/sh", "-c")
        command = f"ulimit -S -n 1024; exec {APPLETS}/sh /run/station/bin/{script} {action}"
        return self.station.start(*shell, command)

    def script(self, action: str, script: str = "S90hdtv") -> tuple[int, str]:
        process = self.call(action, script)
        status = process.wait(100)
        assert process.errors == ""
        return status, process.output

    def log(self) -> str:
        path = self.station.path(SYSLOG)
        return path.read_text() if path.exists() else ""

    def pid(self) -> int:
        """As seen in the unit."""
        return int(self.station.path("/run/hdtv.pid").read_text())

    def signal(self, name: str) -> None:
        self.station.run("/bin/kill", f"-{name}", str(self.pid()))

    def processes(self, words: str) -> list[int]:
        """Those whose command line contains these words."""
        found = []
        for path in self.station.path("/proc").glob("[0-9]*/cmdline"):
            # One may have exited in the meantime.
            with contextlib.suppress(OSError):
                if words in path.read_text().replace("\0", " "):
                    found.append(int(path.parent.name))
        return found

    def services(self) -> list[int]:
        """Without a child of one that has yet to become its program."""
        named = [n for n in self.processes("/hdtv") if self.name_of(n) == "hdtv"]
        return [n for n in named if self.parent_of(n) not in named]

    def start_too_late(self) -> None:
        """For the port, which is in use."""
        self.set_defaults(DEFAULTS + "LIMIT=1\n")
        assert self.script("start") == (0, WAITING + HELD + "hdtv: started\n")
        wait_for(lambda: self.processes("retry-port"), "the look at the port")

    def wait_for_start(self, former: int) -> None:
        wait_for(lambda: self.services() not in ([], [former]), "another service")
        port = gateway.COMMAND_PORT
        wait_for(lambda: self.station.listen_queue(port) is not None, "its TCP port")

    def parent_of(self, pid: int) -> int:
        with contextlib.suppress(OSError):  # it may end at any moment
            stat = self.station.path(f"/proc/{pid}/stat").read_text()
            return int(stat.rpartition(") ")[2].split()[1])
        return 0

    def name_of(self, pid: int) -> str:
        path = self.station.path(f"/proc/{pid}/comm")
        with contextlib.suppress(OSError):  # it may end at any moment
            return path.read_text().strip()
        return ""

    def alert(self, text: str) -> None:
        port = gateway.COMMAND_PORT
        wait_for(lambda: self.station.listen_queue(port) == 0, "the service")
        gateway.deliver(self.station, gateway.display_alert(text))
        assert self.station.document()["alert_area"] == text
