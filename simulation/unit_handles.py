"""What a person may do to a running unit: break something, and mend it.

Each breakage is undone by one call, and broken() names those that last.
"""

import concurrent.futures
import contextlib
import os
import struct
import subprocess
import sys
import threading
import time
from collections.abc import Callable, Mapping
from pathlib import Path
from typing import Any

from simulation import gateway
from simulation.events import EventLog
from simulation.handle_error import HandleError
from simulation.places import BIN, DOCUMENT, GATEWAY_FILE, LIVENESS_FILE, UNIT_ADDRESS
from simulation.process import Process
from simulation.station import Station
from simulation.tools import STAND_INS
from simulation.unit_view import UnitView
from simulation.waiting import wait_for

STATION_PAGE = "http://127.0.0.1/station_web/"

# By name, as the stand-ins' journal has them.
TOOLS = tuple(sorted(path.rpartition("/")[2] for path in STAND_INS))

# What a program outside the unit's root runs to change the size of the unit's memory file system.
_RESIZE = "import sys; from simulation import linux; linux.resize_tmpfs(*sys.argv[1:])"

_MEMORY = "/dev/shm"

_CLOCK = f"{BIN}/clock"
_CLOCK_FILE = "/run/station/clock"
_FARTHEST = 10 * 366 * 86400  # seconds


class UnitHandles:
    """The unit's power, network, browser, web server, tools, memory and clock."""

    def __init__(
        self,
        station: Station,
        view: UnitView,
        send: Callable[..., None],
        events: EventLog,
    ) -> None:
        """send brings the unit a message."""
        self._station = station
        # What runs in the station ends with the thread that has started it.
        self._starter = concurrent.futures.ThreadPoolExecutor(1, "starter")
        self._view = view
        self._send = send
        self._events = events
        self._dhcp: Process | None = None
        self._broken: dict[str, str] = {}
        self._lost_address: str | None = None
        self._behaviors: dict[str, list[str]] = {}  # of the tools that misbehave, before
        self._memory_size = 0
        self._restarting = threading.RLock()
        self._service_listeners: list[Callable[[Process], None]] = []
        self._environment: Mapping[str, str] = {}

    # The service.

    def start_service(self, environment: Mapping[str, str] | None = None) -> Process:
        """Start it here, so that it can be restarted."""
        self._station.path(_CLOCK_FILE).write_bytes(struct.pack("q", 0))
        self._environment = dict(environment or {})
        return self._start_service()

    def listen_to_service(self, listener: Callable[[Process], None]) -> None:
        """Calls it with each new process of the service."""
        self._service_listeners.append(listener)

    def _start_service(self) -> Process:
        with self._restarting:
            before = self._view.service
            command = [*self._clock_command(), *self._station.service_command]
            service = self._start(
                lambda: self._station.start(*command, environment=self._environment)
            )
            self._view.service = service
        for listener in self._service_listeners:
            listener(service)
        if before:
            self._station.forget(before)
        return service

    def _start(self, start: Callable[[], Process]) -> Process:
        return self._starter.submit(start).result()

    def _clock_command(self) -> list[str]:
        """What precedes a program so that it has the unit's clock; empty if it cannot have it. Only
        inside: the clock of the programs that bring it there is this machine's."""
        has_other = "LD_PRELOAD" in self._environment
        has_clock = self._station.path(_CLOCK).exists() and not self._station.is_emulated
        return ["/usr/bin/env", f"LD_PRELOAD={_CLOCK}"] if has_clock and not has_other else []

    def reset(self) -> None:
        """What the board's watchdog does: everything in the unit ends and starts anew, and its memory
        files are gone. What is broken outside the unit stays broken."""
        self._say("the unit resets")
        with self._restarting:
            own = {1, *self._view.find_processes("chromedriver")}
            others = [x.pid for x in self._view.processes() if x.pid not in own]
            self._kill(others)
            if self._view.service:
                self._view.service.kill()
            self._free_port()
            for name in (DOCUMENT, GATEWAY_FILE, LIVENESS_FILE):
                self._station.path(name).unlink(missing_ok=True)
            self.free_memory()
            self._broken.pop("browser", None)
            self._broken.pop("web-server", None)
            self._start_web_server()
            self._start_service()

    def _free_port(self) -> None:
        """A machine that starts knows nothing of earlier connections, whose last minute would keep the
        service from its port. Kernels that cannot forget them have to be waited for."""
        ended = f"state time-wait sport = :{gateway.COMMAND_PORT}".split()
        self._station.run("ss", "--kill", "--tcp", *ended)
        waiting = ["ss", "--no-header", "--numeric", "--tcp", *ended]
        wait_for(lambda: not self._station.run(*waiting), "the unit's port", 90)

    def wait_until_service_ends(self) -> int:
        """Its status, once it has ended by itself."""
        while True:
            service = self._view.service
            assert service is not None
            status = service.wait(threading.TIMEOUT_MAX)
            with self._restarting:
                if service is self._view.service:
                    return status

    # The network.

    def start_dhcp(self) -> None:
        """A server that leases 10.87.33.77 to a unit that asks. A unit asks if it starts without an
        address."""
        if self._dhcp is None:
            self._dhcp = self._start(lambda: gateway.start_dhcp_server(self._station))
            self._say("the network leases addresses")

    def stop_dhcp(self) -> None:
        if self._dhcp is not None:
            self._station.forget(self._dhcp)
            self._dhcp = None
            self._say("the network leases no more addresses")

    @property
    def is_dhcp_on(self) -> bool:
        return self._dhcp is not None

    def lose_address(self) -> None:
        address = self._view.address()
        if address is None:
            raise HandleError("The unit has no address to lose.")
        self._ip("address flush dev eth0")
        self._lost_address = address
        self._break("address", f"{address} is lost")

    def restore_address(self) -> None:
        address = self._lost_address or UNIT_ADDRESS
        if self._view.address() is None:
            self._ip(f"address add {address}/24 dev eth0")
            self._ip("route replace default dev eth0")
        self._mend("address", f"the unit has {self._view.address()} again")

    def _ip(self, command: str) -> None:
        self._station.run("ip", *command.split())

    # Browser and web server.

    def kill_browser(self) -> None:
        self._kill(self._browser())
        self._break("browser", "the browser is killed")

    def hang_browser(self) -> None:
        """It keeps its picture, and does nothing anymore."""
        browser = self._browser()
        self._signal("STOP", browser)
        self._wait_for_states(browser, "TZX")
        self._break("browser", "the browser hangs")

    def restore_browser(self) -> None:
        """A browser that hangs goes on. One that is gone is started by a message that calls for the
        station page, as a gateway would."""
        browsers = [x for x in self._view.processes() if x.pid in self._started_browsers()]
        if browsers and browsers[-1].state != "Z":
            self._signal("CONT", self._view.family_of(browsers[-1].pid))
        else:
            self._send(gateway.set_page_address(STATION_PAGE), "set page address, the station page")
        self._mend("browser", "the browser works again")

    def _browser(self) -> list[int]:
        """The process that the service started last, and its children."""
        started = self._started_browsers()
        family = self._view.family_of(started[-1]) if started else []
        if not family:
            raise HandleError("No browser is running.")
        return family

    def _started_browsers(self) -> list[int]:
        return [call.pid for call in self._station.calls("qt-webkit-kiosk")]

    def kill_web_server(self) -> None:
        servers = self._view.find_processes("lighttpd")
        if not servers:
            raise HandleError("No web server is running.")
        self._kill(servers)
        self._break("web-server", "the web server is killed")

    def restore_web_server(self) -> None:
        if not self._view.find_processes("lighttpd"):
            self._start_web_server()
        self._mend("web-server", "the web server works again")

    def _start_web_server(self) -> None:
        before = self._station.web_server
        self._start(self._station.start_web_server)
        if before:
            self._station.forget(before)

    def _kill(self, pids: list[int]) -> None:
        """They have ended when this returns."""
        self._signal("KILL", pids)
        self._wait_for_states(pids, "ZX")

    def _wait_for_states(self, pids: list[int], states: str) -> None:
        """Or until they are gone."""
        wait_for(
            lambda: all(x.state in states for x in self._view.processes() if x.pid in pids),
            f"processes in one of the states {states}",
        )

    def _signal(self, name: str, pids: list[int]) -> None:
        """From within the unit, where these numbers mean nothing else. Some may be gone already."""
        if pids:
            with contextlib.suppress(subprocess.CalledProcessError):
                self._station.run("kill", f"-{name}", *map(str, pids))

    # The tools.

    def fail(self, tool: str, status: int = 1) -> None:
        """From its next call on, the tool does nothing but exit with this status."""
        if not 0 <= status <= 255:
            raise HandleError("A status is 0 to 255.")
        self._misbehave(tool, [f"exit {status}"], f"fails with status {status}")

    def slow(self, tool: str, seconds: float = 5.0) -> None:
        """From its next call on, the tool takes this long before it starts its work."""
        if not 0 < seconds <= 600:
            raise HandleError("A tool can take up to 600 seconds.")
        usual = self._usual(tool)
        self._misbehave(tool, [f"sleep {seconds:g}", *usual], f"takes {seconds:g} s")

    def restore(self, tool: str) -> None:
        self._usual(tool)
        if tool in self._behaviors:
            self._station.behave(tool, *self._behaviors.pop(tool))
            self._mend(tool, f"{tool} works again")

    def _usual(self, tool: str) -> list[str]:
        if tool not in TOOLS:
            raise HandleError(f'There is no tool "{tool}": they are {", ".join(TOOLS)}.')
        return self._behaviors.get(tool) or self._station.behavior(tool)

    def _misbehave(self, tool: str, lines: list[str], words: str) -> None:
        self._behaviors.setdefault(tool, self._usual(tool))
        self._station.behave(tool, *lines)
        self._break(tool, f"{tool} {words}")

    # Memory and clock.

    def fill_memory(self) -> None:
        """No file in /dev/shm can grow: it shrinks to what it holds, so that this machine's memory is
        not used up. A document that needs no more pages than the one before is written as usual."""
        size = os.statvfs(self._station.path(_MEMORY))
        if not self._memory_size:
            self._memory_size = size.f_blocks * size.f_frsize
        used = (size.f_blocks - size.f_bfree) * size.f_frsize
        self._resize_memory(max(used, size.f_frsize))
        self._break("memory", "/dev/shm is full")

    def free_memory(self) -> None:
        if self._memory_size:
            self._resize_memory(self._memory_size)
        self._mend("memory", "/dev/shm has room again")

    def _resize_memory(self, size: int) -> None:
        place = str(self._station.unit_pid)
        subprocess.run(
            [sys.executable, "-c", _RESIZE, f"/proc/{place}/ns/mnt", _MEMORY, str(size)],
            check=True,
            stdin=subprocess.DEVNULL,
            cwd=Path(__file__).resolve().parent.parent,
        )

    def set_clock(self, offset: float) -> None:
        """The unit's clock is this many seconds ahead of this machine's; behind, if negative. Service
        and browser follow at once. What only reads files, like the web server, does not."""
        if not self._clock_command():
            raise HandleError("This unit's clock cannot be set.")
        if not abs(offset) <= _FARTHEST:
            raise HandleError("The clock can be set ten years ahead or back.")
        self._write_clock(int(offset))
        when = time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(time.time() + offset))
        self._break("clock", f"the unit's clock says {when}")

    def restore_clock(self) -> None:
        self._write_clock(0)
        self._mend("clock", "the unit's clock is right again")

    def _write_clock(self, offset: int) -> None:
        # In place: the programs have mapped it.
        with open(self._station.path(_CLOCK_FILE), "rb+", buffering=0) as file:
            file.write(struct.pack("q", offset))

    # What lasts.

    def broken(self) -> dict[str, str]:
        """By name: "address", "browser", "web-server", "memory", "clock", or a tool's name."""
        return dict(self._broken)

    def undo_all(self) -> None:
        """What cannot be mended does not keep the rest from it. Raises HandleError at the end."""
        failures = []
        # A browser that is gone is started by a message, for which all else has to work.
        for name in sorted(self.broken(), key=lambda name: name == "browser"):
            try:
                self.mend(name)
            except HandleError as error:
                failures.append(str(error))
        self.stop_dhcp()
        if failures:
            raise HandleError(" ".join(failures))

    def mend(self, name: str) -> None:
        """Undoes the breakage of this name."""
        menders: dict[str, Callable[[], Any]] = {
            "address": self.restore_address,
            "browser": self.restore_browser,
            "web-server": self.restore_web_server,
            "memory": self.free_memory,
            "clock": self.restore_clock,
        }
        if name in menders:
            menders[name]()
        else:
            self.restore(name)

    def _break(self, name: str, words: str) -> None:
        self._broken[name] = words
        self._say(words)

    def _mend(self, name: str, words: str) -> None:
        if self._broken.pop(name, None):
            self._say(words)

    def _say(self, text: str) -> None:
        self._events.add("hand", text)
