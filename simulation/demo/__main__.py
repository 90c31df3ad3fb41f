"""The command behind ./scripts/station."""

import argparse
import contextlib
import signal
import sys
from pathlib import Path
from typing import TYPE_CHECKING

from simulation import linux, running, whereabouts
from simulation.console import client
from simulation.demo.arguments import parse_arguments
from simulation.demo.fleet import show_fleet
from simulation.demo.gateway_side import open_door, open_gateway_side, tell_door
from simulation.demo.play import play_all, wait_for_end
from simulation.demo.timeline import Timeline
from simulation.door import DoorError
from simulation.forward import Forward
from simulation.handle_error import HandleError
from simulation.handles import Handles, parse_input
from simulation.places import WEB_PORT, host_build_directory
from simulation.recorder import Recorder
from simulation.scenario import Scenario, Scene, Setup, speed_environment
from simulation.station import UNIT_ENVIRONMENT, Station, StationError
from simulation.television import IN_STANDBY, ON, Television

if TYPE_CHECKING:
    from simulation.demo.pictures import Pictures

OWN_PORT = 8080

# Each ends the station, in the same way. Losing the reader of our output counts as a SIGHUP, not a
# SIGPIPE, which also comes from connections whose other end may close at any time.
_ENDING_SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT)


class Ended(BaseException):
    """By a signal. Not an Exception, so that only main handles it."""

    def __init__(self, number: int) -> None:
        super().__init__(number)
        self.number = number


def main() -> int:
    linux.open_standard_descriptors()
    arguments = parse_arguments()
    try:
        if arguments.command == "exec":
            side = "gateway" if arguments.gateway else whereabouts.unit_side(arguments.unit)
            return run_inside(arguments.name, arguments.program, side)
        if arguments.command not in (None, "run"):
            return client.run(arguments, running.gateway_pid(arguments.name))
        listen_to_signals()
        with contextlib.closing(contextlib.ExitStack()) as stack:
            if arguments.units:
                return show_fleet(arguments.units, arguments.name, stack)
            return run_station(arguments, stack)
    except (StationError, DoorError, HandleError, running.NotEntered) as error:
        print(error, file=sys.stderr)
        return 1
    except Ended as ended:
        if ended.number == signal.SIGINT:
            print(flush=True)  # after the terminal's ^C
        return 128 + ended.number


def listen_to_signals() -> None:
    """Even if the parent ignores or blocks them, as shells do for background jobs."""
    signal.signal(signal.SIGPIPE, signal.SIG_IGN)
    for number in _ENDING_SIGNALS:
        signal.signal(number, end)
    signal.pthread_sigmask(signal.SIG_UNBLOCK, _ENDING_SIGNALS)


def end(number: int, _: object) -> None:
    for other in _ENDING_SIGNALS:
        signal.signal(other, signal.SIG_IGN)  # nothing may interrupt the shutdown
    raise Ended(number)


def unit_tools() -> dict[str, Path]:
    """What a person may start in the unit, if it has been built."""
    doctor = host_build_directory() / "tools" / "doctor" / "hdtv-doctor"
    return {doctor.name: doctor} if doctor.exists() else {}


def run_station(arguments: argparse.Namespace, stack: contextlib.ExitStack) -> int:
    scenario: Scenario | None = arguments.scenario
    # For people, a television that is on: it lets the unit have its input when the unit starts.
    setup = scenario.setup if scenario else Setup(tv_power="on")
    station = stack.enter_context(
        Station(
            address=setup.address,
            name=arguments.name,
            has_display=arguments.window,
            programs=unit_tools(),
        )
    )
    records = open_gateway_side(station, arguments.no_gateway, arguments.forward is not None, stack)
    television = stack.enter_context(prepare_television(station, setup))
    prepare_unit(station, setup, arguments.has_browser)
    handles = Handles(station, television, records)
    recorder = Recorder(arguments.record, station, handles, setup) if arguments.record else None
    stack.enter_context(recorder or contextlib.nullcontext())
    # Before the unit announces itself.
    door = open_door(station, handles, records, arguments.forward, recorder, stack)
    service = handles.unit.start_service(environment=speed_environment(setup.speed))
    timeline = Timeline(
        station, service, records, television, events=handles.events, is_brief=setup.speed != 1
    )
    handles.unit.listen_to_service(timeline.follow)
    stack.enter_context(timeline)
    tell_setup(setup, timeline)
    forward_page(station, timeline, stack)
    if arguments.no_gateway:
        tell_door(door, arguments.forward, timeline)
    timeline.say("TV", f"{handles.tv.power}, input {handles.tv.input}")
    if arguments.console is not None:
        open_console(arguments.console, station, handles, stack)
    if scenario:
        pictures = prepare_pictures(arguments.pictures, station, television, stack)
        scene = Scene(station, handles, setup)
        if not play_all(scenario, scene, timeline, arguments.pause, pictures):
            return 1
    if arguments.once or (arguments.command == "run" and arguments.console is None):
        return 0
    is_yours = arguments.console is not None and not scenario
    words = "the station is yours" if is_yours else "the station keeps running"
    timeline.say("station", f"{words}; Ctrl-C ends it")
    return wait_for_end(handles, timeline)


def prepare_unit(station: Station, setup: Setup, has_browser: bool) -> None:
    # The mixer outlasts the download, so it is the download that the service waits for.
    station.behave("amixer", "sleep 1")
    station.write_config(setup.configuration)
    station.start_web_server()
    if has_browser:
        station.use_real_browser()


def prepare_television(station: Station, setup: Setup) -> Television:
    television = Television(
        station,
        power=ON if setup.tv_power == "on" else IN_STANDBY,
        tv_input=parse_input(setup.tv_input),
        wake_delay=setup.tv_wake_delay,
    )
    television.is_deaf = setup.tv_is_deaf
    return television


def tell_setup(setup: Setup, timeline: Timeline) -> None:
    unit = f"unit {setup.address}" if setup.address else "unit without an address"
    timeline.say("station", f"{unit}, gateway 10.87.33.20, no proxy")
    if setup.speed != 1:
        timeline.say(
            "station",
            f"the unit's time runs {setup.speed:g} times as fast: its routine is left out",
        )


def forward_page(station: Station, timeline: Timeline, stack: contextlib.ExitStack) -> None:
    try:
        forward = stack.enter_context(Forward(station, WEB_PORT, OWN_PORT))
    except OSError:  # it is taken
        forward = stack.enter_context(Forward(station, WEB_PORT))
    timeline.say(
        "station", f"its page, for this machine: http://127.0.0.1:{forward.port}/station_web/"
    )


def open_console(
    port: int, station: Station, handles: Handles, stack: contextlib.ExitStack
) -> None:
    # Its library is needed here only.
    from simulation.console.server import Console

    console = stack.enter_context(Console(station, handles, port))
    taken = "" if console.port == port or not port else f" (port {port} is taken)"
    handles.events.add("station", f"its console, for this machine only: {console.address}{taken}")
    handles.events.add("station", f"the same for curl: --config {console.key}")


def prepare_pictures(
    directory: Path | None, station: Station, television: Television, stack: contextlib.ExitStack
) -> "Pictures | None":
    if directory is None:
        return None
    # What drives the browser is needed here only.
    from simulation.demo.pictures import Pictures
    from simulation.screen import Screen

    screen = stack.enter_context(Screen(station))
    return Pictures(directory, screen, television)


def run_inside(name: str, program: list[str], side: str) -> int:
    # The terminal sends them to the program, too, which gets them as usual: it decides what they do.
    for number in (signal.SIGINT, signal.SIGQUIT):
        signal.signal(number, signal.SIG_IGN)
    return running.run_inside(name, side, program, {} if side == "gateway" else UNIT_ENVIRONMENT)


if __name__ == "__main__":
    sys.exit(main())
