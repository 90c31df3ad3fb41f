"""Many units on one network: a simulated station with a bridge."""

import contextlib
import os
from collections.abc import Iterator
from pathlib import Path

from simulation.process import Process
from simulation.station import Identity, Station

NETWORK = "10.87.33"
BROADCAST = f"{NETWORK}.255"
FIRST = 50  # the last number of the first unit's address
MOST_UNITS = 200


def identity(number: int) -> Identity:
    """The first unit's is that of a station's only unit."""
    last = FIRST + number
    return Identity(f"{NETWORK}.{last}", f"02:00:0a:57:21:{last:02x}")


class Fleet(Station):
    """A station with many units, and itself the first of them. Use it in a with statement."""

    def __init__(self, count: int, name: str = "") -> None:
        assert 1 <= count <= MOST_UNITS
        self.identities = [identity(number) for number in range(count)]
        super().__init__(name=name, further_units=self.identities[1:])
        self.units = [self, *(Neighbor(self, pid) for pid in self.unit_pids[1:])]
        for unit in self.units:
            unit.write_config("{}")

    def __enter__(self) -> "Fleet":
        return self

    def start_services(self) -> list[Process]:
        """One in each unit, after its start-up, whose last step is to start the browser."""
        services = [unit.start_service() for unit in self.units]
        for unit in self.units:
            unit.wait_for_calls("qt-webkit-kiosk")
        return services

    def write_inventory(self, file: Path) -> Path:
        """For gatewayctl."""
        lines = [
            f"unit-{number} {unit.address} - hw={unit.hardware_address}\n"
            for number, unit in enumerate(self.identities)
        ]
        file.write_text("".join(lines))
        return file

    def unplug(self, number: int) -> None:
        """Pulls the unit's network cable."""
        command = ("/usr/sbin/ip", "link", "set", f"unit{number}", "down")
        pulled = self.start_in_gateway_network(*command)
        assert pulled.wait() == 0, pulled.errors

    def close(self) -> None:
        with contextlib.ExitStack() as stack:
            stack.callback(super().close)
            for unit in self.units[1:]:
                stack.callback(unit.close)


class Neighbor(Station):
    """A unit beside the first one. It shares the gateway's side with it."""

    def __init__(self, fleet: Fleet, unit_pid: int) -> None:
        self._fleet = fleet
        self.processes = []
        self._has_display, self.is_emulated = fleet._has_display, fleet.is_emulated
        self.gateway_pid = fleet.gateway_pid
        self._gateway_network = fleet._gateway_network
        self._look_into(unit_pid)

    @contextlib.contextmanager
    def _network(self, fd: int) -> Iterator[None]:
        with self._fleet._network(fd):
            yield

    def close(self) -> None:
        for process in self.processes:
            process.close()
        os.close(self._unit_network)
