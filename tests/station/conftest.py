"""The black-box tests' fixtures."""

import contextlib
from collections.abc import Iterator
from pathlib import Path

import pytest
from board_support import Board, install_scripts
from gatewayctl_support import Result, Tool, gatewayctl_command, run
from page_stage import Stage, open_stage
from page_support import Shown, show
from support import StationMaker, check_children, start

from simulation import gateway, linux
from simulation.places import UNIT_ADDRESS
from simulation.process import Process
from simulation.station import Station

# Before anything else opens a file.
linux.open_standard_descriptors()


@pytest.fixture
def make_station() -> Iterator[StationMaker]:
    """Makes stations to order, each with an empty configuration object."""
    with contextlib.ExitStack() as stack:
        stations: list[Station] = []

        def make(**settings: object) -> Station:
            station = stack.enter_context(Station(**settings))  # type: ignore[arg-type]
            station.write_config("{}")
            stations.append(station)
            return station

        yield make
        for station in stations:
            check_children(station)
            for process in station.processes:
                assert "Sanitizer" not in process.errors, process.errors
                assert "runtime error" not in process.errors, process.errors


@pytest.fixture
def station(make_station: StationMaker) -> Station:
    return make_station()


@pytest.fixture
def service(station: Station) -> Process:
    """The service after startup, whose last step is to start the browser."""
    return start(station)


@pytest.fixture
def shown(make_station: StationMaker) -> Iterator[Shown]:
    yield from show(make_station())


@pytest.fixture(scope="module")
def script_page() -> Iterator[Shown]:
    """One page, shared by all tests that only call its scripts."""
    with Station() as station:
        station.write_config("{}")
        yield from show(station)


@pytest.fixture(scope="module")
def stage() -> Iterator[Stage]:
    """One browser, shared by all tests of a module; each opens the page anew."""
    with open_stage() as opened:
        yield opened


@pytest.fixture
def tool(station: Station, service: Process) -> Iterator[Tool]:
    """Runs gatewayctl with the unit's address; the unit has acted when it returns."""

    def run_tool(*arguments: str, answer: str = "") -> Result:
        result = run(*gatewayctl_command(station, "--to", UNIT_ADDRESS, *arguments), answer=answer)
        gateway.deliver(station, b"\0")
        return result

    yield run_tool


@pytest.fixture
def board(make_station: StationMaker, tmp_path: Path) -> Iterator[Board]:
    board = Board(make_station(programs=install_scripts(tmp_path), is_board_root=True))
    yield board
    board.watchdog.close()
    for kept in board.kept:
        kept.close()
