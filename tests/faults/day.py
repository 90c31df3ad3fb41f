"""A day of a unit, with or without one fault in it."""

import contextlib
import time
from collections import Counter
from collections.abc import Callable, Mapping
from dataclasses import dataclass, field
from pathlib import Path

from ledger import Ledger, NotAtRest
from observation import Observer, Seen, differences
from script import FIRST_RUN, SECOND_RUN, Action, Scene, nothing

from simulation import gateway
from simulation.places import BIN, LIVENESS_FILE, UNIT_ADDRESS, host_build_directory
from simulation.process import Process
from simulation.station import Station
from simulation.television import Television

LEDGER = "/run/station/faults"
CONFIG_TEXT = '{"log_alerts":"true","comm_gw":"10.87.33.20"}'

SECOND_CONFIG_TEXT = CONFIG_TEXT.replace("}", ',"rotation":"90"}')
LIBRARY = host_build_directory() / "tests" / "faults" / "libfaults.so"

# The real ones wait for servers, or talk at any time.
QUIET = {"udhcpc": "stay", "killall": "", "wget": "", "aplay": ""}

# What is not as usual is given so long to become it; what is expected only has to stay, and what
# is usual is not known yet on the first day.
SLOWNESS, STEADINESS, FIRST_STEADINESS = 1.5, 0.15, 0.08


@dataclass(frozen=True)
class Fault:
    site: str
    error: int
    at: str  # the step
    to_pass: int = 0  # calls in that step before it


@dataclass
class Day:
    """What was seen of it."""

    steps: dict[str, Seen] = field(default_factory=dict)
    sites: dict[str, Counter[str]] = field(default_factory=dict)  # by step
    ends: dict[str, str] = field(default_factory=dict)  # how the service ended, by the step it did
    has_struck: bool = False


def no_proxy(_: Station) -> contextlib.AbstractContextManager[None]:
    return contextlib.nullcontext()


class Rehearsal:
    """Plays a day. `usual` is the day without a fault; `may_differ` tells what the fault takes from
    it, which only makes the play quicker: who compares is the caller."""

    def __init__(
        self,
        fault: Fault | None = None,
        usual: Day | None = None,
        may_differ: Callable[[str, str], bool] = lambda step, aspect: False,
        is_restarted: bool = False,
        patience: float = 15.0,
    ) -> None:
        self._fault = fault
        self._usual = usual
        self._may_differ = may_differ
        self._is_restarted = is_restarted
        self._patience = patience
        self._day = Day()

    def play(self) -> Day:
        fault, day = self._fault, self._day
        if fault is None or fault.at in FIRST_RUN:
            self._play(FIRST_RUN, CONFIG_TEXT, None, no_proxy)
        # After a start everything has to be as usual.
        if fault is None or fault.at in SECOND_RUN or self._is_restarted:
            self._play(SECOND_RUN, SECOND_CONFIG_TEXT, UNIT_ADDRESS, gateway.accepting_proxy)
        return day

    def _play(
        self,
        steps: Mapping[str, Action],
        config: str,
        address: str | None,
        proxy: Callable[[Station], contextlib.AbstractContextManager[None]],
    ) -> None:
        with Station(address=address, programs={"faults.so": LIBRARY}) as station:
            station.write_config(config)
            station.path(LIVENESS_FILE).touch()
            for tool, behaviour in QUIET.items():
                station.behave(tool, behaviour)
            with (
                Television(station) as television,
                gateway.record_listener(station) as records,
                proxy(station),
            ):
                self._run(station, steps, Observer(station, television, records))

    def _run(self, station: Station, steps: Mapping[str, Action], observer: Observer) -> None:
        ledger = Ledger(station.path(LEDGER))
        self._arm(ledger, next(iter(steps)))
        service = station.start(
            *("/usr/bin/env", f"LD_PRELOAD={BIN}/faults.so", f"FAULT_LEDGER={LEDGER}"),
            f"{BIN}/hdtv",
        )
        observer.watch(service)
        scene = Scene(station, observer.television, ledger, service, self._patience)
        for name, action in steps.items():
            try:
                self._play_step(scene, observer, name, action)
            except NotAtRest:
                self._day.ends[name] = words_for_end(service)
                break
        self._day.has_struck = self._day.has_struck or ledger.has_struck
        service.kill()

    def _play_step(self, scene: Scene, observer: Observer, name: str, action: Action) -> None:
        before = scene.ledger.met()
        if action != nothing:
            self._arm(scene.ledger, name)
        else:
            before.clear()
        scene.settle()
        action(scene)
        self._day.steps[name] = self._collect(observer, name)
        self._day.sites[name] = scene.ledger.met() - before

    def _arm(self, ledger: Ledger, step: str) -> None:
        if self._fault and self._fault.at == step:
            ledger.arm(self._fault.site, self._fault.error, self._fault.to_pass)

    def _collect(self, observer: Observer, name: str) -> Seen:
        """What is to be seen when nothing more comes."""
        seen = observer.look()
        since = time.monotonic()
        while not self._is_enough(name, seen, time.monotonic() - since):
            time.sleep(0.004)
            latest = observer.look()
            if latest != seen:
                seen, since = latest, time.monotonic()
        observer.take()
        return seen

    def _is_enough(self, name: str, seen: Seen, steady_for: float) -> bool:
        if self._usual is None:
            return steady_for > FIRST_STEADINESS
        different = differences(seen, self._usual.steps[name])
        if not different:
            return True
        is_expected = all(self._may_differ(name, aspect) for aspect in different)
        return steady_for > (STEADINESS if is_expected else SLOWNESS)


def words_for_end(service: Process) -> str:
    """ "waits" if it is blocked for good in one of its steps, "busy" if it turns without pause."""
    if not service.is_running():
        return f"exit status {service.wait()}"
    stat = Path(f"/proc/{service.pid}/stat")

    def used_time() -> int:
        return sum(int(number) for number in stat.read_text().rpartition(")")[2].split()[11:13])

    before = used_time()
    time.sleep(0.3)
    return "busy" if used_time() > before + 1 else "waits"
