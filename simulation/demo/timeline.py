"""Watches what happens in a station as it happens, and prints it for a person to read."""

import json
import os
import queue
import re
import signal
import sys
import threading
import time
from typing import Any, TextIO

from simulation.events import Event, EventLog
from simulation.gateway import RecordListener, describe_record
from simulation.places import DOCUMENT, JOURNAL
from simulation.process import Process
from simulation.station import Station
from simulation.television import Television
from simulation.waiting import DEADLINE

_COLOURS = {
    "TV": "35",
    "station": "1",
    "service": "2",
    "tool": "33",
    "gateway": "36",
    "document": "32",
    "picture": "32",
    "hand": "1",
    "watchdog": "2",
    "problem": "31",
    "stderr": "2",
}
# What the unit does every few seconds: power status, kicks, and looks at display and network.
_ROUTINE = re.compile(
    r"service (TX: 4 -> 0: 8F|RX: 0 -> 4: 90 0[0-3]|TV is (NOT )?in standby mode\.)"
    r"|tool .*/(tvservice -s|ifconfig|lsusb)|watchdog .*"
)
_WIDTH = 110
_PERIOD = 0.01
_KICKS_A_LINE = 10


class Timeline:
    """Watches a station from a separate thread, adds what is new to its events, and prints them."""

    def __init__(
        self,
        station: Station,
        service: Process,
        records: RecordListener,
        television: Television,
        out: TextIO | None = None,
        events: EventLog | None = None,
        is_brief: bool = False,
    ) -> None:
        """is_brief leaves out what the unit does every few seconds while nothing happens."""
        self._is_brief = is_brief
        self._station = station
        self._service = service
        self._records = records
        self._television = television
        self._out = out or sys.stdout or open(os.devnull, "w", encoding="utf-8")
        self._colours = self._out.isatty()
        self._events = EventLog() if events is None else events
        # Printed by a thread of its own: whoever holds the terminal still holds up nothing else.
        self._unprinted: queue.SimpleQueue[Event | None] = queue.SimpleQueue()
        self._events.listen(self._unprinted.put)
        self._printer = threading.Thread(target=self._print_all, daemon=True)
        self._showing = threading.Lock()
        self._shown_output = 0
        self._shown_errors = 0
        self._shown_calls = 0
        self._shown_records = 0
        self._shown_story = 0
        self._kicks = 0
        self._shown_document = ""
        self._sizes: dict[str, int] = {}
        self._stopping = threading.Event()
        self._thread = threading.Thread(target=self._watch, daemon=True)

    def __enter__(self) -> "Timeline":
        self._printer.start()
        self._thread.start()
        return self

    def __exit__(self, *_: object) -> None:
        self._stopping.set()
        self._thread.join()
        self.show_news()
        self._events.stop_listening(self._unprinted.put)
        self._unprinted.put(None)
        self._printer.join(DEADLINE)

    def say(self, source: str, text: str) -> None:
        if self._is_brief and _ROUTINE.fullmatch(f"{source} {text}"):
            return
        self._events.add(source, text)

    def follow(self, service: Process) -> None:
        """From now on, this is the service: it has been restarted."""
        with self._showing:
            self._show_service()
            self._service = service
            self._shown_output = self._shown_errors = 0
            self._sizes.clear()

    def _print_all(self) -> None:
        while event := self._unprinted.get():
            self._print(event)

    def _print(self, event: Event) -> None:
        stamp = time.strftime("%H:%M:%S", time.localtime(event.time))
        stamp += f".{int(event.time * 1000) % 1000:03}"
        text = event.text
        if len(text) > _WIDTH:
            text = text[: _WIDTH - 1] + "\N{HORIZONTAL ELLIPSIS}"
        label = f"{event.source:<9}"
        if self._colours:
            label = f"\033[{_COLOURS[event.source]}m{label}\033[0m"
        try:
            print(f"{stamp}  {label} {text}", file=self._out, flush=True)
        except OSError:
            self._lose_reader()

    def _lose_reader(self) -> None:
        """No one reads the output anymore, which is all it was for: ends the station."""
        nobody = os.open(os.devnull, os.O_WRONLY)
        # So that flushing what is left in the buffer does not fail again at exit.
        os.dup2(nobody, self._out.fileno())
        os.close(nobody)
        os.kill(os.getpid(), signal.SIGHUP)

    def _watch(self) -> None:
        while not self._stopping.wait(_PERIOD):
            self.show_news()

    def show_news(self) -> None:
        """Right now: on a busy machine the thread may miss what is short-lived."""
        with self._showing:
            self._show_service()
            self._show_document()
            self._show_calls()
            self._show_records()
            self._show_television()
            self._show_kicks()

    def _has_grown(self, name: str, size: int) -> bool:
        """Since the last time: what has been written in days is not read a hundred times a second."""
        before = self._sizes.get(name, 0)
        self._sizes[name] = size
        return size > before

    def _show_service(self) -> None:
        if not self._has_grown("service", self._service.written):
            return
        lines = self._service.output.split("\n")[:-1]
        for line in lines[self._shown_output :]:
            self.say("service", line)
        self._shown_output = len(lines)
        errors = self._service.errors.split("\n")[:-1]
        for line in errors[self._shown_errors :]:
            if line.strip():
                self.say("stderr", line)  # also from programs that it starts
        self._shown_errors = len(errors)

    def _show_calls(self) -> None:
        if not self._has_grown("calls", self._station.path(JOURNAL).stat().st_size):
            return
        calls = self._station.calls()
        for call in calls[self._shown_calls :]:
            self.say("tool", " ".join([call.path, *call.argv[1:]]))
        self._shown_calls = len(calls)

    def _show_records(self) -> None:
        records = self._records.records()
        for record in records[self._shown_records :]:
            self.say("gateway", "received: " + describe_record(record))
        self._shown_records = len(records)

    def _show_television(self) -> None:
        story = self._television.story
        for line in story[self._shown_story :]:
            self.say("TV", line)
            self._shown_story += 1

    def _show_kicks(self) -> None:
        before = self._kicks
        self._kicks = self._station.count_kicks()
        if self._kicks // _KICKS_A_LINE > before // _KICKS_A_LINE:
            self.say("watchdog", f"kicked {self._kicks} times so far")

    def _show_document(self) -> None:
        text = self._station.document_text()
        if text != self._shown_document and text.endswith("]}]"):
            self._shown_document = text
            self.say("document", describe_document(text))


def describe_document(text: str) -> str:
    """The alert document in a few words, or its raw text if it is malformed."""
    try:
        document = json.loads(text, strict=False)[0]
    except (ValueError, RecursionError):
        return f"{DOCUMENT} (not valid JSON): {text}"
    try:
        return _describe(document)
    except Exception:  # a quotation mark in an alert can turn the document into anything
        return f"{DOCUMENT} (not an alert document): {text}"


def _describe(document: dict[str, Any]) -> str:
    words = [document["alert_type"]]
    if document["alert_time"] != "0":
        since = time.localtime(int(document["alert_time"]))
        words.append("since " + time.strftime("%H:%M:%S", since))
    if document["turnout_end"] != "0":
        words.append(f"turnout {document['turnout_end']} s")
    if document["units"]:
        words.append(" ".join(f"{unit['unit']}:{unit['color']}" for unit in document["units"]))
    if document["map_url"]:
        words.append("map " + document["map_url"])
    words.append(json.dumps(document["alert_area"], ensure_ascii=False))
    return ", ".join(words)
