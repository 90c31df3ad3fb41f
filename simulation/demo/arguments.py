"""The command line of ./scripts/station."""

import argparse
import os
from pathlib import Path

from simulation import scenario
from simulation.console import client
from simulation.demo.fleet import DEMONSTRATION
from simulation.demo.play import INCIDENT
from simulation.fleet import MOST_UNITS, identity
from simulation.gateway import RECORD_PORT

CONSOLE_PORT = 8081

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

Another scenario than the incident, and what happened as a scenario (docs/workbench.md):
  ./scripts/station run silent-television
  ./scripts/station --record mine.py
  ./scripts/station run mine.py

Without the station's own gateway, with another one inside or on this machine's loopback:
  ./scripts/station --no-gateway
  ./scripts/station exec --gateway build/release/tools/gatewayctl/gatewayctl serve
  ./scripts/station --forward

With --console a page in this machine's browser operates all of it, and so do commands from a second
terminal, such as "tv off" and "fail wget": docs/workbench.md. The incident is then not played.

With --units it starts a whole fleet instead, and tells what its units show.
"""


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="./scripts/station",
        description=_DESCRIPTION,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    _add_common_options(parser)
    parser.add_argument(
        "--once",
        action="store_true",
        help="exit after the incident, with status 0 if all of it was observed",
    )
    parser.add_argument(
        "--no-gateway",
        action="store_true",
        help="play nothing and leave the gateway's side free for another gateway: see exec",
    )
    parser.add_argument(
        "--forward",
        type=_port,
        nargs="?",
        const=RECORD_PORT,
        metavar="PORT",
        help="the same for a gateway on this machine: the unit is at 127.0.0.1, TCP and UDP port"
        " 4000, and its records go to this PORT of 127.0.0.1 (default: %(const)s). Loopback only",
    )
    parser.add_argument(
        "--units",
        type=_unit_count,
        metavar="N",
        help=f"no incident, but N units on one network, at most {MOST_UNITS}, without televisions and"
        " with stand-ins for their browsers: for trying a gateway on all of them",
    )
    commands = parser.add_subparsers(dest="command", metavar="COMMAND")
    client.add_commands(commands)
    inside = commands.add_parser("exec", help="run a program inside the running station")
    inside.add_argument(
        "--gateway", action="store_true", help="on the gateway's side (10.87.33.1, .20, .21)"
    )
    inside.add_argument(
        "--unit",
        type=_unit_number,
        default=0,
        metavar="ADDRESS",
        help="in this one of several units (default: the first)",
    )
    inside.add_argument("program", metavar="PROGRAM", nargs=argparse.REMAINDER)
    run = commands.add_parser(
        "run",
        help="play a scenario and exit, with status 0 if all of it was observed",
        description="Plays a scenario in a station of its own and exits, with status 0 if all of it"
        f" was observed. These come along: {', '.join(scenario.names())}. The kiosk browser is a"
        " stand-in unless --window, --pictures or --console shows it. With --console, the station then keeps running.",
    )
    run.add_argument("scenario", metavar="SCENARIO", help="a file, or the name of one of these")
    _add_common_options(run, default=argparse.SUPPRESS)
    arguments = parser.parse_args()
    if arguments.command == "exec" and not arguments.program:
        inside.error("which PROGRAM?")
    _settle(parser, arguments)
    return arguments


def _add_common_options(parser: argparse.ArgumentParser, default: str | None = None) -> None:
    parser.add_argument(
        "--window",
        action="store_true",
        default=default or False,
        help="show the kiosk browser in a window on this machine's display",
    )
    parser.add_argument(
        "--pictures",
        type=Path,
        default=default,
        metavar="DIR",
        help="write a PNG of the television's screen at each step of the incident and for each of"
        " some special cases, and index.html, which shows them all",
    )
    parser.add_argument(
        "--name",
        default=default,
        help="tells several stations apart (default: demonstration; scenario for run)",
    )
    parser.add_argument(
        "--pause",
        type=float,
        default=default,
        metavar="SECONDS",
        help="pause between the steps (default: 1.0 in the incident, 0 in other scenarios)",
    )
    parser.add_argument(
        "--console",
        nargs="?",
        type=_port_or_any,
        const=CONSOLE_PORT,
        default=default,
        metavar="PORT",
        help="a page with all the handles of the station, on this machine's loopback only"
        " (default: %(const)s; another one if that is taken)",
    )
    parser.add_argument(
        "--record",
        type=Path,
        default=default,
        metavar="FILE",
        help="write what happens as a scenario, which can be run again",
    )


def _settle(parser: argparse.ArgumentParser, arguments: argparse.Namespace) -> None:
    """What follows from the options, and what does not go together."""
    is_run = arguments.command == "run"
    is_shown = arguments.window or arguments.pictures or arguments.console is not None
    if arguments.window and not os.environ.get("DISPLAY"):
        parser.error("--window needs a display, and DISPLAY names none")
    if arguments.forward is not None or arguments.no_gateway:
        option = "--no-gateway" if arguments.forward is None else "--forward"
        if is_run or arguments.once or arguments.pictures:
            parser.error(f"{option} does not go with a scenario: its gateway is the station's own")
    if arguments.units:
        _settle_fleet(parser, arguments)
    arguments.no_gateway = arguments.no_gateway or arguments.forward is not None
    arguments.has_browser = not is_run or is_shown
    if arguments.name is None:
        # Not the same: a second terminal keeps entering the station that was there before.
        arguments.name = "scenario" if is_run else DEMONSTRATION
    if arguments.pause is None:
        arguments.pause = 0.0 if is_run else 1.0
    # With a console, people play.
    is_played = is_run or arguments.console is None or arguments.once or arguments.pictures
    if not is_run:
        arguments.scenario = INCIDENT
    if arguments.no_gateway or not is_played:
        arguments.scenario = None
    elif arguments.command in (None, "run"):
        _load(parser, arguments)


def _settle_fleet(parser: argparse.ArgumentParser, arguments: argparse.Namespace) -> None:
    if arguments.once or arguments.window or arguments.pictures:
        parser.error("--units plays no incident, and has no browser to show")
    is_handled = arguments.console is not None or arguments.record
    if is_handled or arguments.command or arguments.no_gateway or arguments.forward is not None:
        parser.error("--units stands alone: it has no gateway, no console and no scenario")


def _load(parser: argparse.ArgumentParser, arguments: argparse.Namespace) -> None:
    try:
        arguments.scenario = None if arguments.no_gateway else scenario.load(arguments.scenario)
    except scenario.ScenarioError as error:
        parser.error(str(error))


def _unit_count(text: str) -> int:
    if not text.isdecimal() or not 1 <= int(text) <= MOST_UNITS:
        raise argparse.ArgumentTypeError(f'there are 1 to {MOST_UNITS} units, not "{text}"')
    return int(text)


def _unit_number(text: str) -> int:
    for number in range(MOST_UNITS):
        if text == identity(number).address:
            return number
    raise argparse.ArgumentTypeError(f"units are {identity(0).address} and on")


def _port(text: str, least: int = 1) -> int:
    if not text.isdecimal() or not least <= int(text) <= 65535:
        raise argparse.ArgumentTypeError(
            f'"{text}" is no port from {least} to 65535 (a scenario comes before this option; commands'
            " for a running station go without it)"
        )
    return int(text)


def _port_or_any(text: str) -> int:
    return _port(text, least=0)
