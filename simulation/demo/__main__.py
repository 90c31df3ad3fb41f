"""The command behind ./scripts/station."""

import argparse
import contextlib
import os
import shutil
import signal
import sys
import threading
from pathlib import Path

from simulation import gateway, linux
from simulation.console import client
from simulation.forward import Forward
from simulation.handles import Handles
from simulation.demo.cases import CASES, END
from simulation.demo.incident import INCIDENT, Scene, Step
from simulation.demo.pictures import Pictures
from simulation.screen import Screen
from simulation.station import (
    UNIT_ENVIRONMENT,
    WEB_PORT,
    Process,
    Station,
    StationError,
    launch_command,
)
from simulation.television import IN_STANDBY, ON, Television
from simulation.demo.timeline import Timeline
from simulation.waiting import wait_for

OWN_PORT = 8080
CONSOLE_PORT = 8081

# Each ends the station, in the same way. Losing the reader of our output counts as a SIGHUP, not a
# SIGPIPE, which also comes from connections whose other end may close at any time.
_ENDING_SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT)

_DESCRIPTION = """\
Runs the station display service in a simulated station and shows what happens there, as it
happens: what the service prints, every tool it starts, what the gateway sends, and each new alert
document. It plays a short incident and then keeps running until Ctrl-C. Its kiosk browser is a real
one, headless unless it gets a window. While the station runs, browsers on this machine can open the
same page at http://127.0.0.1:8080/station_web/.

From a second terminal, inside the running station:
  ./scripts/station exec cat /dev/shm/alerts.json
  ./scripts/station exec bash -c "printf '\\3\\1\\0\\0\\0\\4FIRE' > /dev/tcp/127.0.0.1/4000"

With --console a page in this machine's browser operates all of it, and so do commands from a second
terminal, such as "tv off" and "fail wget": docs/workbench.md. The incident is then not played.
"""


class Ended(BaseException):
    """By a signal. Not an Exception, so that only main handles it."""

    def __init__(self, number: int) -> None:
        super().__init__(number)
        self.number = number


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="./scripts/station",
        description=_DESCRIPTION,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    parser.add_argument(
        "--once",
        action="store_true",
        help="exit after the incident, with status 0 if all of it was observed",
    )
    parser.add_argument(
        "--window",
        action="store_true",
        help="show the kiosk browser in a window on this machine's display",
    )
    parser.add_argument(
        "--pictures",
        type=Path,
        metavar="DIR",
        help="write a PNG of the television's screen at each step of the incident and for each of"
        " some special cases, and index.html, which shows them all",
    )
    parser.add_argument(
        "--name",
        default="demonstration",
        help="tells several stations apart (default: %(default)s)",
    )
    parser.add_argument(
        "--pause",
        type=float,
        default=1.0,
        metavar="SECONDS",
        help="pause between the steps of the incident (default: %(default)s)",
    )
    parser.add_argument(
        "--console",
        nargs="?",
        type=port_number,
        const=CONSOLE_PORT,
        metavar="PORT",
        help="a page with all the handles of the station, on this machine's loopback only"
        " (default: %(const)s; another one if that is taken)",
    )
    commands = parser.add_subparsers(dest="command", metavar="COMMAND")
    client.add_commands(commands)
    run = commands.add_parser("exec", help="run a program inside the running station")
    run.add_argument(
        "--gateway", action="store_true", help="on the gateway's side (10.87.33.1, .20, .21)"
    )
    run.add_argument("program", metavar="PROGRAM", nargs=argparse.REMAINDER)
    arguments = parser.parse_args()
    if arguments.command == "exec" and not arguments.program:
        run.error("which PROGRAM?")
    if arguments.window and not os.environ.get("DISPLAY"):
        parser.error("--window needs a display, and DISPLAY names none")
    return arguments


def port_number(text: str) -> int:
    number = int(text)
    if not 0 <= number <= 65535:
        raise ValueError
    return number


def main() -> int:
    linux.open_standard_descriptors()
    arguments = parse_arguments()
    if arguments.command == "exec":
        return run_inside(arguments.name, arguments.program, arguments.gateway)
    if arguments.command:
        return client.run(arguments, find_running_station(arguments.name, depth=2))
    try:
        listen_to_signals()
        with contextlib.closing(contextlib.ExitStack()) as stack:
            return run_station(arguments, stack)
    except StationError as error:
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


def run_station(arguments: argparse.Namespace, stack: contextlib.ExitStack) -> int:
    station = stack.enter_context(Station(name=arguments.name, has_display=arguments.window))
    records = stack.enter_context(gateway.record_listener(station))
    serve_clip_and_map(station, stack)
    is_played = arguments.console is None or arguments.once or arguments.pictures is not None
    # A television that is on lets the unit have its input when the unit starts.
    power = IN_STANDBY if is_played else ON
    television = stack.enter_context(
        Television(station, power=power, tv_input=0x2000, wake_delay=1.2)
    )
    # The mixer outlasts the download, so it is the download that the service waits for.
    station.behave("amixer", "sleep 1")
    station.write_config(f'{{"comm_gw":"{gateway.GATEWAY}"}}')
    station.start_web_server()
    station.use_real_browser()
    handles = Handles(station, television, records)
    service = handles.unit.start_service()
    timeline = Timeline(station, service, records, television, events=handles.events)
    handles.unit.listen_to_service(timeline.follow)
    stack.enter_context(timeline)
    timeline.say("station", "unit 10.87.33.50, gateway 10.87.33.20, no proxy")
    forward_page(station, timeline, stack)
    timeline.say("TV", f"{handles.tv.power}, input {handles.tv.input}")
    if arguments.console is not None:
        open_console(arguments.console, station, handles, stack)
    if not is_played:
        timeline.say("station", "the station is yours; Ctrl-C ends it")
        return wait_for_end(handles, timeline)
    pictures = prepare_pictures(arguments.pictures, station, television, stack)
    scene = Scene(station, television, records)
    if not play_incident(scene, service, timeline, arguments.pause, pictures):
        return 1
    timeline.say("station", f"the incident was observed, all {len(INCIDENT)} steps of it")
    if pictures and not play_cases(station, timeline, pictures):
        return 1
    if arguments.once:
        return 0
    timeline.say("station", "the station keeps running; Ctrl-C ends it")
    return wait_for_end(handles, timeline)


def serve_clip_and_map(station: Station, stack: contextlib.ExitStack) -> None:
    directory = station.gateway_directory()
    gateway.make_clip(directory / "clip.wav")
    shutil.copy(Path(__file__).with_name("map.svg"), directory)
    stack.enter_context(gateway.web_server(station, directory))


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
) -> Pictures | None:
    if directory is None:
        return None
    screen = stack.enter_context(Screen(station))
    return Pictures(directory, screen, television)


def play_incident(
    scene: Scene,
    service: Process,
    timeline: Timeline,
    pause: float,
    pictures: Pictures | None,
) -> bool:
    for step in INCIDENT:
        if not play_step(scene, service, timeline, step):
            return False
        if pictures:
            pictures.take(step.words)
        # Only for the viewer: the step has already been observed.
        threading.Event().wait(pause)
    return True


def play_cases(station: Station, timeline: Timeline, pictures: Pictures) -> bool:
    """Taking a picture is what observes a case: it waits until the page has drawn it."""
    for case in CASES:
        timeline.say("gateway", "sends: " + case.caption)
        try:
            for message in case.messages:
                gateway.deliver(station, message)
            pictures.take(case.caption)
            gateway.deliver(station, END)
            # The page would take the next one for more news of this one.
            pictures.wait_until_drawn()
        except OSError as error:  # includes TimeoutError
            timeline.say("problem", f"not observed: {case.caption} ({error})")
            return False
        timeline.show_news()
    timeline.say("station", f"{len(CASES)} special cases have been shown, too")
    return True


def play_step(scene: Scene, service: Process, timeline: Timeline, step: Step) -> bool:
    try:
        if step.message:
            timeline.say("gateway", "sends: " + step.words)
            if step.is_datagram:
                gateway.send_datagram(scene.station, step.message)
            else:
                gateway.send(scene.station, step.message)
        if step.action:
            step.action(scene)
        wait_for(
            lambda: step.is_seen(scene, scene.station.document()) or not service.is_running(),
            step.words,
            deadline=10,
        )
    except OSError as error:  # includes TimeoutError
        timeline.say("problem", f"not observed: {step.words} ({error})")
        return False
    timeline.show_news()
    if not service.is_running():
        timeline.say("problem", f"the service has ended with status {service.wait()}")
        return False
    if not step.message:
        timeline.say("station", step.words)
    return True


def wait_for_end(handles: Handles, timeline: Timeline) -> int:
    status = handles.unit.wait_until_service_ends()
    timeline.say("problem", f"the service has ended with status {status}")
    return 1


def run_inside(name: str, program: list[str], on_gateway: bool) -> int:
    pid = find_running_station(name, depth=2 if on_gateway else 3)
    if pid is None:
        print("No station is running here: start one with ./scripts/station.", file=sys.stderr)
        return 1
    command = launch_command(pid, *program)
    environment = {} if on_gateway else UNIT_ENVIRONMENT
    os.execvpe(command[0], command, {**os.environ, **environment})


def find_running_station(name: str, depth: int) -> int | None:
    """The pid 1 of one side of the newest station with this name. Its depth in the nested PID
    namespaces shows which side it is: 2 for the gateway, 3 for the unit."""
    found = [
        int(process.name)
        for process in Path("/proc").iterdir()
        if process.name.isdigit() and is_pid_1_of_a_side(process, name, depth)
    ]
    return max(found, default=None)


def is_pid_1_of_a_side(process: Path, name: str, depth: int) -> bool:
    try:
        command = (process / "cmdline").read_bytes().split(b"\0")
        status = (process / "status").read_text()
    except OSError:
        return False
    if len(command) < 6 or not command[3].endswith(b"/world.py") or command[5] != name.encode():
        return False
    pids = next(line for line in status.splitlines() if line.startswith("NSpid:")).split()[1:]
    return len(pids) == depth and pids[-1] == "1"


if __name__ == "__main__":
    sys.exit(main())
