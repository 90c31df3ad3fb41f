"""gatewayctl as the tests run it: in the gateway's network."""

import os
import subprocess
from collections.abc import Callable
from pathlib import Path

from simulation.places import host_build_directory
from simulation.process import dying_with_starter
from simulation.station import Station

# ./scripts/coverage runs its own build of the tools beside another build's service.
TOOLS = Path(os.environ.get("HDTV_TOOLS") or host_build_directory() / "tools").resolve()
GATEWAYCTL = str(TOOLS / "gatewayctl" / "gatewayctl")

Result = subprocess.CompletedProcess[str]
Tool = Callable[..., Result]


def gatewayctl_command(station: Station, *arguments: str) -> list[str]:
    """In the gateway's network, with this machine's files."""
    return dying_with_starter(station.gateway_network_command(GATEWAYCTL, *arguments))


def run(*command: str, answer: str = "") -> Result:
    return subprocess.run(command, input=answer, capture_output=True, text=True, timeout=30)
