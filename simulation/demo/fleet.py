"""Many units for whoever tries a gateway on them: ./scripts/station --units N."""

import contextlib
import os
import shlex
import signal
import time
from collections import Counter
from pathlib import Path

from simulation.fleet import BROADCAST, Fleet
from simulation.places import DOCUMENT, host_build_directory
from simulation.process import Process
from simulation.station import Station

DEMONSTRATION = "demonstration"  # the name of a station that was given none
INVENTORY = "/run/units"  # on the gateway's side
PERIOD = 0.1

_ADVICE = """\
In a second terminal, on the gateway's side and in one of the units:
  {exec} --gateway {gatewayctl} roll-call --broadcast {broadcast}
  {exec} --gateway {gatewayctl} --units {inventory} detail-alert --text DRILL --unit E1:2
  {exec} --unit {last} cat /dev/shm/alerts.json
Ctrl-C ends all of it."""


def show_fleet(count: int, name: str, stack: contextlib.ExitStack) -> int:
    """Never returns while a service runs: a signal ends it."""
    fleet = stack.enter_context(Fleet(count, name=name))
    services = fleet.start_services()
    fleet.write_inventory(Path(f"/proc/{fleet.gateway_pid}/root{INVENTORY}"))
    first, last = fleet.identities[0].address, fleet.identities[-1].address
    say(f"{count} units are up, {first} to {last}; their browsers are stand-ins")
    advice = {
        "exec": "./scripts/station"
        + ("" if name == DEMONSTRATION else f" --name {shlex.quote(name)}")
        + " exec",
        "gatewayctl": host_build_directory() / "tools" / "gatewayctl" / "gatewayctl",
        "broadcast": BROADCAST,
        "inventory": INVENTORY,
        "last": last,
    }
    write(_ADVICE.format(**advice))
    watch(fleet, services)
    return 1


def watch(fleet: Fleet, services: list[Process]) -> None:
    """Says what the units show, once it has stopped changing, and which services end."""
    documents = [Document(unit) for unit in fleet.units]
    ended: set[int] = set()
    said = before = summary(documents)
    while len(ended) < len(services):
        time.sleep(PERIOD)
        now = summary(documents)
        if now == before != said:
            said = now
            say(said)
        before = now
        for number, service in enumerate(services):
            if number not in ended and not service.is_running():
                ended.add(number)
                address = fleet.identities[number].address
                say(f"the service of {address} has ended with status {service.wait()}")


def summary(documents: list["Document"]) -> str:
    shown = Counter(document.words() for document in documents)
    return "; ".join(f"{count} units show {words}" for words, count in shown.most_common())


class Document:
    """A unit's, read again only after it has been written."""

    def __init__(self, unit: Station) -> None:
        self._unit = unit
        self._written = -1
        self._words = ""

    def words(self) -> str:
        with contextlib.suppress(FileNotFoundError):
            written = self._unit.path(DOCUMENT).stat().st_mtime_ns
            if written != self._written and (document := self._unit.document()):
                self._written = written
                is_idle = document["alert_time"] == "0"
                self._words = "no alert" if is_idle else f'"{document["alert_area"]}"'
        return self._words


def say(text: str) -> None:
    text = "".join(c if c.isprintable() else "\N{MIDDLE DOT}" for c in text)
    write(f"{time.strftime('%H:%M:%S')}  {text}")


def write(text: str) -> None:
    try:
        print(text, flush=True)
    except OSError:
        # No one reads it anymore, which is all it was for.
        os.dup2(os.open(os.devnull, os.O_WRONLY), 1)
        os.kill(os.getpid(), signal.SIGHUP)
