"""The chapter about a unit that runs Debian, followed to the letter: from a bare Debian to an alert on the
screen, with nothing that is not in the chapter. ./scripts/chapter runs it."""

import contextlib
import re
import subprocess
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest
from debian_root import DebianRoot
from docs_support import operations
from machine import gateway_network

from simulation import gateway, waiting
from simulation.process import dying_with_starter
from simulation.station import Station

pytestmark = pytest.mark.timeout(5400)

# Emulated, a browser takes minutes to start.
DEADLINE = 1800.0
# Between two looks, each of which costs the emulator time.
PACE = 2.0

ADDRESS = "10.87.33.77"  # from the DHCP server
FRAME, BLUE = bytes([0xD3, 0x2F, 0x2F]), bytes([0x15, 0x65, 0xF0])  # an alert's, a tile's

CHAPTER = "A unit that runs Debian"
# Typed on another machine.
ELSEWHERE = ("./scripts/package", "scp ")
REBOOT = "reboot"


def wait_for(condition: Callable[[], bool], what: str) -> None:
    waiting.wait_for(condition, what, DEADLINE, PACE)


class Screen:
    """The emulated machine's, and what is on it."""

    def __init__(self, network: Station, root: DebianRoot, directory: Path) -> None:
        self._picture = directory / "screen.ppm"
        enter = dying_with_starter(["nsenter", f"--target={network.gateway_pid}", "--net", "--"])
        command = [
            *("qemu-system-x86_64", "-accel", "tcg,thread=multi", "-cpu", "max", "-smp", "2"),
            *("-m", "2048", "-nodefaults", "-no-user-config", "-action", "watchdog=reset"),
            *("-vga", "std", "-display", "none", "-monitor", "stdio"),
            *("-drive", f"file={root.image},if=virtio,format=raw,cache=unsafe"),
            *("-netdev", "tap,id=n0,ifname=tap0,script=no,downscript=no"),
            *("-device", "virtio-net-pci,netdev=n0", "-device", "i6300esb"),
            *root.boot_options(),
        ]
        self.process = subprocess.Popen(
            [*enter, *command], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL
        )

    def pixels(self) -> bytes:
        """Three bytes each."""
        assert self.process.stdin is not None and self.process.poll() is None
        self._picture.unlink(missing_ok=True)
        self.process.stdin.write(f"screendump {self._picture}\n".encode())
        self.process.stdin.flush()
        return waiting.wait_for(self._whole_picture, "a picture of the screen")

    def _whole_picture(self) -> bytes:
        """Its pixels; none while it is being written."""
        picture = self._picture.read_bytes() if self._picture.exists() else b""
        header = re.match(rb"P6\n(\d+) (\d+)\n255\n", picture)
        pixels = picture[header.end() :] if header else b""
        return pixels if header and len(pixels) == 3 * int(header[1]) * int(header[2]) else b""

    def share(self, color: bytes) -> float:
        """Of its pixels."""
        pixels = self.pixels()
        return pixels.count(color) * 3 / len(pixels)

    def wait_for_share(self, color: bytes, least: float, most: float) -> None:
        wait_for(lambda: least <= self.share(color) <= most, "the picture")


@contextlib.contextmanager
def powered_on(network: Station, root: DebianRoot, directory: Path) -> Iterator[Screen]:
    screen = Screen(network, root, directory)
    try:
        yield screen
    finally:
        screen.process.kill()
        screen.process.wait()


def answers(network: Station, records: gateway.RecordListener) -> bool:
    """To a roll call. Its word at the start is lost if it has no address yet."""
    gateway.send_datagram(network, gateway.roll_call(), destination=ADDRESS)
    return bool(records.records())


def shows(network: Station, screen: Screen, alert: bytes) -> bool:
    """The address, which the service notices some seconds after it has it, takes the place of an alert."""
    gateway.send_datagram(network, alert, destination=ADDRESS)
    return 0.01 <= screen.share(FRAME) <= 0.3


def test_chapter_leads_to_an_alert_on_the_screen(tmp_path: Path) -> None:
    commands = [x for x in operations(CHAPTER) if not x.startswith(ELSEWHERE)]
    assert commands.pop() == REBOOT and len(commands) >= 15
    root = DebianRoot(tmp_path, commands)
    with gateway_network() as network:
        gateway.start_dhcp_server(network, "br0")
        with gateway.record_listener(network) as records:
            with powered_on(network, root, tmp_path) as screen:
                wait_for(lambda: answers(network, records), "an answer")
                alert = gateway.detail_alert("FIRE\n1200 MAIN ST", {0: gateway.Unit("E1", 2)})
                wait_for(lambda: shows(network, screen, alert), "the alert")
                screen.wait_for_share(BLUE, 0.01, 0.9)
                gateway.deliver(network, gateway.detail_alert(""), destination=ADDRESS)
                screen.wait_for_share(FRAME, 0, 0)
