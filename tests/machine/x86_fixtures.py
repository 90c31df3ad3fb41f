"""The unit that runs Debian, as a plugin of pytest. Its files of tests share one machine and run in order."""

from collections.abc import Iterator

import pytest
from machine import gateway_network
from x86_support import start_television
from x86_unit import X86Unit

from simulation.station import Station


@pytest.fixture(scope="session")
def network() -> Iterator[Station]:
    with gateway_network() as station:
        yield station


@pytest.fixture(scope="session")
def unit(network: Station, tmp_path_factory: pytest.TempPathFactory) -> Iterator[X86Unit]:
    """With its sound card on and a television awake."""
    with X86Unit(network, tmp_path_factory.mktemp("unit")) as unit:
        unit.run("amixer -q sset Master 100% unmute; aplay -q -f cd -d 1 /dev/zero")
        start_television(unit)
        yield unit
