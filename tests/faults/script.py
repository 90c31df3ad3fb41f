"""What happens in a unit's day, step by step."""

import contextlib
import socket
from collections.abc import Callable, Mapping
from dataclasses import dataclass

from ledger import Ledger

from simulation import gateway
from simulation.gateway import COMMAND_PORT, GATEWAY, Unit
from simulation.places import UNIT_ADDRESS
from simulation.process import Process
from simulation.station import Station
from simulation.television import Television

MODE = "print state 0x12000a [HDMI DMT (4) RGB full 4:3], {} @ 60Hz, progressive"
INTERFACE = "print eth0: flags=4163<UP,BROADCAST,RUNNING,MULTICAST>  mtu 1500"
CONTROLLER = "print Bus 001 Device 003: ID 0424:ec00 Network Adapter"

FOUR_UNITS = {slot: Unit(f"E{slot + 1}", slot + 1) for slot in range(4)}
FIRE = gateway.detail_alert("STRUCTURE FIRE\n1 Main St", FOUR_UNITS, turnout_end=90)
END = gateway.display_alert("")

CLOSING = 0.4  # seconds that a connection is given to be closed


@dataclass
class Scene:
    station: Station
    television: Television
    ledger: Ledger
    service: Process
    patience: float

    def settle(self) -> None:
        self.ledger.settle(self.service.is_running, self.patience)

    def pass_time(self, seconds: int) -> None:
        self.settle()
        self.ledger.pass_time(seconds)
        self.settle()

    def send(self, message: bytes) -> None:
        """Without an end to wait for: the service may have lost the connection."""
        with contextlib.suppress(OSError):
            with self.station.on_gateway():
                connection = socket.create_connection(
                    (UNIT_ADDRESS, COMMAND_PORT), 2 * CLOSING, source_address=(GATEWAY, 0)
                )
            with connection:
                connection.settimeout(CLOSING)
                connection.sendall(message)
                connection.recv(1)
        self.settle()


Action = Callable[[Scene], None]


def sends(*messages: bytes) -> Action:
    def act(scene: Scene) -> None:
        for message in messages:
            scene.send(message)

    return act


def passes(*seconds: int) -> Action:
    def act(scene: Scene) -> None:
        for count in seconds:
            scene.pass_time(count)

    return act


def roll_call(scene: Scene) -> None:
    gateway.send_datagram(scene.station, gateway.roll_call())
    scene.settle()


def address_comes(scene: Scene) -> None:
    scene.station.run("ip", "address", "add", f"{UNIT_ADDRESS}/24", "dev", "eth0")
    scene.pass_time(1)


def television_is_switched_off(scene: Scene) -> None:
    scene.television.switch_off()


def television_is_switched_to_another_input(scene: Scene) -> None:
    scene.television.switch_on()
    scene.television.switch_input(0x2000)


def browser_dies(scene: Scene) -> None:
    """It is a zombie until a wait for another program reaps it."""
    browser = scene.station.calls("qt-webkit-kiosk")[-1]
    # There may be none.
    scene.station.run("sh", "-c", f"kill -KILL {browser.pid} || true")
    scene.station.behave("date", "sleep 0.05")
    scene.send(gateway.set_date("2026-03-05 07:04:09"))
    scene.pass_time(1)


def health(mode: str, *interfaces: str) -> Action:
    def act(scene: Scene) -> None:
        scene.station.behave("tvservice", MODE.format(mode))
        scene.station.behave("ifconfig", *interfaces)
        scene.station.behave("lsusb", CONTROLLER)
        scene.pass_time(30)

    return act


def nothing(_: Scene) -> None:
    """The service's start is the step."""


WELL = health("1920x1080", INTERFACE)
CLIP = b'{"play_audio":"http://10.87.33.20/clip.%s","volume":"75","device":"headphones"}'

FIRST_RUN: Mapping[str, Action] = {
    "start": nothing,
    "ticks": passes(1, 1, 1, 1, 1),
    "address": address_comes,
    "next tick": passes(1),
    "roll call": roll_call,
    "date": sends(gateway.set_date("2026-03-05 07:04:09")),
    "settings": sends(gateway.hdtv_settings(1)),
    "second roll call": roll_call,
    "display alert": sends(gateway.display_alert("FIRE", turnout=60)),
    "detail alert": sends(FIRE),
    "map": sends(gateway.set_map_address("http://10.87.33.20/map")),
    "stop turnout": sends(gateway.stop_turnout()),
    "end": sends(END),
    "standby": television_is_switched_off,
    "waking alert": sends(FIRE),
    "end in standby": sends(END),
    "other input": television_is_switched_to_another_input,
    "page": sends(gateway.set_page_address("http://10.87.33.20/page")),
    "alert over page": sends(FIRE),
    "back to input": sends(END),
    "browser's death": browser_dies,
    "low mode": health("640x480", INTERFACE),
    "missing interface": health("1920x1080"),
    "clip": sends(CLIP % b"wav"),
    "raw clip": sends(CLIP % b"raw"),
    "gateway's address": sends(b'{"comm_gw":"10.87.33.21"}'),
    "reboot": sends(gateway.reboot()),
    "settings again": sends(gateway.hdtv_settings(2)),
    "gateway's address again": sends(b'{"comm_gw":"10.87.33.20"}'),
    "last alert": sends(FIRE),
    "last end": sends(END),
    "last roll call": roll_call,
    "last health": WELL,
}

SECOND_RUN: Mapping[str, Action] = {
    "second start": nothing,
    "new ticks": passes(1, 1, 1),
    "new alert": sends(FIRE),
    "new end": sends(END),
    "new roll call": roll_call,
    "new health": WELL,
}

# Whatever has happened before, in these it is whole again.
LAST_STEPS = (
    *("last alert", "last end", "last roll call", "last health"),
    *("new alert", "new end", "new roll call", "new health"),
)
