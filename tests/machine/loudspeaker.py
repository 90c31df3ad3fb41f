"""A clip, and what the unit's sound card got of it."""

import struct
import wave
from pathlib import Path

from machine import wait_for
from x86_unit import ADDRESS, X86Unit

from simulation import gateway
from simulation.station import Station


def make_clip(path: Path) -> list[int]:
    """In the card's own format, so that nothing converts it; returns the left channel's samples."""
    left = [round(12000 * ((n * 37 % 200) / 100 - 1)) for n in range(12000)] + [12000]
    with wave.open(str(path), "wb") as clip:
        clip.setnchannels(2)
        clip.setsampwidth(2)
        clip.setframerate(44100)
        clip.writeframes(b"".join(struct.pack("<hh", value, -value) for value in left))
    return left


def play(unit: X86Unit, network: Station, directory: Path, volume: str) -> list[int]:
    """What the card received after the message, without the silence around it. An extra second of
    silence flushes it out of the emulator."""
    begin = unit.recording.stat().st_size
    message = f'{{"play_audio":"http://{gateway.GATEWAY}/clip.wav","volume":"{volume}"}}'
    with gateway.web_server(network, directory) as paths:
        gateway.send_datagram(network, message.encode(), destination=ADDRESS)
        wait_for(lambda: paths, "the download")
        # Ignores zombies: the service does not reap its children.
        running = "ps -C wget,aplay,aplay-now -o stat= | grep -v Z"
        wait_for(lambda: not unit.run(running).strip(), "the player's end")
    unit.run("aplay -q -f cd -d 1 /dev/zero")
    recorded = unit.recording.read_bytes()[max(begin, 44) & ~3 :]
    left = [frame[0] for frame in struct.iter_unpack("<hh", recorded[: len(recorded) & ~3])]
    heard = [n for n, value in enumerate(left) if value]
    return left[heard[0] : heard[-1] + 1] if heard else []


def hear(unit: X86Unit, network: Station, directory: Path, volume: str, length: int) -> list[int]:
    """An emulated card drops late samples. When it plays all of them, they are unchanged."""
    heard: list[int] = []
    for _ in range(5):
        heard = play(unit, network, directory, volume)
        if len(heard) >= length:
            break
    return heard
