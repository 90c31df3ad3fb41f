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
from simulation.forward import Forward
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
    host_build_directory,
    launch_command,
)
from simulation.television import IN_STANDBY, Television
from simulation.demo.timeline import Timeline
from simulation.waiting import wait_for

OWN_PORT = 8080

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
  ./scripts/station exec /run/station/bin/hdtv-doctor
  ./scripts/station exec bash -c "printf '\\3\\1\\0\\0\\0\\4FIRE' > /dev/tcp/127.0.0.1/4000"
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
    commands = parser.add_subparsers(dest="command", metavar="COMMAND")
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


def main() -> int:
    linux.open_standard_descriptors()
    arguments = parse_arguments()
    if arguments.command == "exec":
        return run_inside(arguments.name, arguments.program, arguments.gateway)
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


def unit_tools() -> dict[str, Path]:
    """What a person may start in the unit, if it has been built."""
    doctor = host_build_directory() / "tools" / "doctor" / "hdtv-doctor"
    return {doctor.name: doctor} if doctor.exists() else {}


def run_station(arguments: argparse.Namespace, stack: contextlib.ExitStack) -> int:
    station = stack.enter_context(
        Station(name=arguments.name, has_display=arguments.window, programs=unit_tools())
    )
    records = stack.enter_context(gateway.record_listener(station))
    serve_clip_and_map(station, stack)
    television = stack.enter_context(
        Television(station, power=IN_STANDBY, tv_input=0x2000, wake_delay=1.2)
    )
    # The mixer outlasts the download, so it is the download that the service waits for.
    station.behave("amixer", "sleep 1")
    station.write_config(f'{{"comm_gw":"{gateway.GATEWAY}"}}')
    station.start_web_server()
    station.use_real_browser()
    service = station.start_service()
    timeline = stack.enter_context(Timeline(station, service, records, television))
    timeline.say("station", "unit 10.87.33.50, gateway 10.87.33.20, no proxy")
    forward_page(station, timeline, stack)
    timeline.say("TV", "in standby, input 2.0.0.0")
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
    return wait_for_end(service, timeline)


def serve_clip_and_map(station: Station, stack: contextlib.ExitStack) -> None:
    directory = station.gateway_directory()
    gateway.make_clip(directory / "clip.wav")
    shutil.copy(Path(__file__).with_name("map.svg"), directory)
    stack.enter_context(gateway.web_server(station, directory))


def forward_page(station: Station, timeline: Timeline, stack: contextlib.ExitStack) -> None:
    try:
        stack.enter_context(Forward(station, WEB_PORT, OWN_PORT))
    except OSError as error:
        timeline.say(
            "station", f"its page is not available on this machine's port {OWN_PORT}: {error}"
        )
    else:
        timeline.say(
            "station", f"its page, for this machine: http://127.0.0.1:{OWN_PORT}/station_web/"
        )


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


def wait_for_end(service: Process, timeline: Timeline) -> int:
    status = service.wait(deadline=threading.TIMEOUT_MAX)
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
