"""Captures made here, and the packet viewer that reads them with the dissector."""

import subprocess
from collections.abc import Sequence
from pathlib import Path

from simulation.places import top_directory

SCRIPT = top_directory() / "tools" / "wireshark" / "station_display.lua"
TCP, UDP, RECORD = ("-T", "40000,4000"), ("-u", "40000,4000"), ("-T", "40000,5000")
AS_ROOT = 'Running as user "root" and group "root". This could be dangerous.\n'


def make_capture(path: Path, packets: Sequence[bytes], kind: Sequence[str]) -> None:
    dump = "".join(
        "".join(
            f"{place:06x} {packet[place : place + 16].hex(' ')}\n"
            for place in range(0, len(packet), 16)
        )
        + "\n"
        for packet in packets
    )
    command = ["text2pcap", "-q", *kind, "-", str(path)]
    subprocess.run(command, input=dump, text=True, check=True, timeout=60)


def run_tshark(capture: Path, *arguments: str) -> str:
    """It exits with status 0 even if a script fails, so its output has to be checked."""
    command = ["tshark", "-X", f"lua_script:{SCRIPT}", "-r", str(capture), *arguments]
    result = subprocess.run(command, capture_output=True, text=True, errors="replace", timeout=120)
    assert result.returncode == 0
    assert result.stderr.replace(AS_ROOT, "") == ""
    assert "Lua Error" not in result.stdout
    return result.stdout
