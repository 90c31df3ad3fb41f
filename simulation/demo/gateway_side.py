"""The gateway's side of the station: the station's own gateway, or room for another one."""

import contextlib
import shutil
from pathlib import Path

from simulation import gateway
from simulation.demo.timeline import Timeline
from simulation.door import Door, inside_of
from simulation.gateway import COMMAND_PORT, HeardRecords, NoRecords, RecordListener
from simulation.handles import Handles
from simulation.recorder import Recorder
from simulation.station import Station


def open_gateway_side(
    station: Station, is_left_free: bool, has_door: bool, stack: contextlib.ExitStack
) -> RecordListener:
    if is_left_free:
        return HeardRecords() if has_door else NoRecords()
    directory = station.gateway_directory()
    gateway.make_clip(directory / "clip.wav")
    shutil.copy(Path(__file__).with_name("map.svg"), directory)
    stack.enter_context(gateway.web_server(station, directory))
    return stack.enter_context(gateway.record_listener(station))


def open_door(
    station: Station,
    handles: Handles,
    records: RecordListener,
    record_port: int | None,
    recorder: Recorder | None,
    stack: contextlib.ExitStack,
) -> Door | None:
    """To this machine, if its gateway's port is given."""
    if record_port is None:
        return None
    assert isinstance(records, HeardRecords)

    def tell_message(message: bytes, is_datagram: bool, peer: str) -> None:
        words = f"{gateway.message_name(message)} (from {peer})"
        handles.events.add("gateway", f"sends: {words}")
        if recorder:
            recorder.add_message(message, words, is_datagram, inside_of(peer))

    def tell_problem(words: str) -> None:
        handles.events.add("problem", words)

    hearing = (tell_message, records.add, tell_problem)
    return stack.enter_context(Door(station, handles.view.address, record_port, *hearing))


def tell_door(door: Door | None, record_port: int, timeline: Timeline) -> None:
    if door:
        timeline.say(
            "station",
            f"for a gateway on this machine: the unit is at {door.address}:{COMMAND_PORT}"
            f" (TCP, UDP), its records go to 127.0.0.1:{record_port}",
        )
    else:
        words = "the gateway's side is free: ./scripts/station exec --gateway PROGRAM"
        timeline.say("station", words)
