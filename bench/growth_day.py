"""The days of bench/growth: all that happens in a day, as fast as it goes, and what it leaves behind."""

from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path

from bench.growth_load import Row
from bench.descriptors import count_descriptors
from simulation import gateway
from simulation.gateway import Unit
from simulation.places import ALERT_LOG
from simulation.process import Process
from simulation.station import Station
from simulation.television import IN_STANDBY, ON, Television
from simulation.waiting import wait_for

CALLS_AN_HOUR = 12
CLIPS, ALERTS, INPUTS = 6, 12, (0x2000, 0x3000, 0x1000)
UNITS = {slot: Unit(f"E{slot}", 1 + slot) for slot in range(4)}
CLIP = gateway.play_clip("http://10.87.33.20/clip.wav")

# Left behind on purpose: docs/operations.md.
ZOMBIES_PER_CLIP, BYTES_PER_DOCUMENT = 3, 110


@dataclass
class Days:
    """So far. An hour of each day, nobody listens for the answers to the roll calls."""

    station: Station
    service: Process
    television: Television
    events: int = 0
    clips: int = 0
    unanswered: int = 0

    def deliver(self, message: bytes) -> None:
        gateway.deliver(self.station, message)
        self.events += 1

    def call_roll(self, listener: gateway.RecordListener | None) -> None:
        records = len(listener.records()) if listener else 0
        gateway.send_datagram(self.station, gateway.roll_call())
        self.deliver(b"\0")
        if listener:
            listener.wait_for_records(records + 1)
        else:
            self.unanswered += 1

    def alert(self, number: int) -> None:
        for step in ("DISPATCHED", "EN ROUTE", "ON SCENE"):
            self.deliver(gateway.detail_alert(f"FIRE {number}: {step}", UNITS, turnout_end=90))
        self.deliver(gateway.set_map_address("http://10.87.33.20/map.svg"))
        self.deliver(gateway.stop_turnout())
        self.deliver(gateway.detail_alert(""))

    def play_clip(self) -> None:
        players = len(self.station.calls("aplay"))
        self.deliver(CLIP)
        self.clips += 1
        self.station.wait_for_calls("aplay", players + 1)

    def hour_without_gateway(self) -> None:
        for _ in range(CALLS_AN_HOUR):
            self.call_roll(None)

    def hours(self, first: int, last: int) -> None:
        with gateway.record_listener(self.station) as listener:
            for hour in range(first, last):
                for _ in range(CALLS_AN_HOUR):
                    self.call_roll(listener)
                self.deliver(gateway.set_date(f"2026-03-05 {hour:02}:00:00"))
                if hour % (24 // ALERTS) == 1:
                    self.alert(hour)
                if hour % (24 // CLIPS) == 1:
                    self.play_clip()

    def switch_television(self, day: int) -> None:
        """At night it is off, and an alert wakes it."""
        self.television.switch_off()
        self.service.wait_for_output("TV is in standby mode.", day + 1)
        self.alert(day)
        wait_for(lambda: self.television.power == IN_STANDBY, "the television's end")
        self.television.switch_on()
        for address in INPUTS:
            self.television.switch_input(address)
        self.events += 2 + len(INPUTS)
        assert self.television.power == ON

    def day(self, number: int) -> Iterator[None]:
        """Stops four times, to be measured."""
        self.hour_without_gateway()
        self.hours(1, 6)
        yield
        self.switch_television(number)
        self.hours(6, 12)
        yield
        for turns in (1, 0):
            self.deliver(gateway.hdtv_settings(turns))
        self.hours(12, 18)
        yield
        self.hours(18, 24)
        yield


def held_by(service: Process) -> Row:
    process = Path(f"/proc/{service.pid}")
    fields = dict(line.split(":", 1) for line in (process / "status").read_text().splitlines())
    tasks = (process / "task").glob("*/children")
    return {
        "resident kB": int(fields["VmRSS"].split()[0]),
        "descriptors": count_descriptors(service.pid),
        "children": sum(len(task.read_text().split()) for task in tasks),
    }


def documents(station: Station) -> int:
    return station.path(ALERT_LOG).read_bytes().count(b"\n")


def measure_days(count: int) -> list[Row]:
    with Station() as station, Television(station) as television:
        station.write_config('{"rotation":"0"}')
        service = station.start_service()
        station.wait_for_calls("qt-webkit-kiosk")
        gateway.deliver(station, b"\0")
        days = Days(station, service, television)
        start = figures(days, 0)
        rows = [with_expected(start, days, start)]
        for number in range(count):
            for quarter, _ in enumerate(days.day(number), 1):
                rows.append(with_expected(figures(days, number + quarter / 4), days, start))
        return rows


def figures(days: Days, time: float) -> Row:
    held = held_by(days.service)
    return {"day": time, "events": days.events, "documents": documents(days.station), **held}


def with_expected(row: Row, days: Days, start: Row) -> Row:
    """Beside what the service holds, what it would hold if it left behind only what it should."""
    written = row["documents"] - start["documents"]
    left = {
        "resident kB": round(written * BYTES_PER_DOCUMENT / 1024),
        "descriptors": days.unanswered,
        "children": ZOMBIES_PER_CLIP * days.clips,
    }
    return row | {f"expected {name}": start[name] + count for name, count in left.items()}
