"""What the world around the service sees of it, step by step."""

import re
from pathlib import Path

from simulation.gateway import RecordListener, describe_record
from simulation.places import ALERT_LOG, CONFIG, GATEWAY_FILE
from simulation.process import Process
from simulation.station import Station
from simulation.television import Television

# Of one step: from the aspect's name to what is seen of it.
Seen = dict[str, list[str]]

# A television that is slow to answer is asked again.
_REPEATED = ("heard", "television", "lines")

# The lines that the CEC thread prints, and those of its children, mix with the others.
_THREAD_LINES = ("TX: ", "RX: ", "TV is ", "active source ")
_CHILD_LINES = ("Starting qt-webkit-kiosk", "state 0x")

_TIMES = re.compile(r'"(alert_time|alert_expiration)":"(\d+)"')
_LONG_AGO = 1_000_000_000


def without_times(text: str) -> str:
    """The alert's time as "now", and its end as the distance from it."""
    found = {name: int(number) for name, number in _TIMES.findall(text)}
    start = found.get("alert_time", 0)
    if start < _LONG_AGO:
        return text
    # Half a document may end before its second time.
    distance = (found.get("alert_expiration", start) - start) % 2**32
    texts = {"alert_time": "now", "alert_expiration": f"now+{distance}"}
    return _TIMES.sub(lambda match: f'"{match[1]}":"{texts[match[1]]}"', text)


def _read(path: Path) -> str:
    try:
        return path.read_text(errors="backslashreplace")
    except OSError:
        return ""


def _lines(text: str) -> list[str]:
    lines = [without_times(line) for line in text.split("\n")]
    return lines if lines[-1] else lines[:-1]


def _logged(text: str) -> list[str]:
    """Without the time of each line, if it has one."""
    return [re.sub(r"^\d+-\d\d-\d\d \d\d:\d\d:\d\d: ", "time: ", x) for x in _lines(text)]


def _is_alive(stat: str) -> bool:
    return stat.rpartition(")")[2].split()[:1] not in ([], ["Z"])


class Observer:
    """Sees what is new since the last step."""

    def __init__(self, station: Station, television: Television, records: RecordListener) -> None:
        self._station = station
        self.television = television
        self._records = records
        self._service: Process | None = None
        self._pid = 0
        self._kicks = 0
        self._leaked = 0
        self._taken: dict[str, int] = {}
        self._station.read_kicks()
        self.take()

    def watch(self, service: Process) -> None:
        self._service = service
        self._pid = service.pid

    def _new(self, aspect: str, everything: list[str]) -> list[str]:
        return everything[self._taken.get(aspect, 0) :]

    def look(self) -> Seen:
        """What is new so far. Nothing counts as seen until take."""
        self._kicks += len(self._station.read_kicks())
        all_seen = self._grown()
        seen = {aspect: self._new(aspect, lines) for aspect, lines in all_seen.items()}
        seen["calls"].sort()
        for aspect in _REPEATED:
            seen[aspect] = list(dict.fromkeys(seen[aspect]))
        return {**seen, **self._standing()}

    def take(self) -> None:
        self._taken = {aspect: len(lines) for aspect, lines in self._grown().items()}
        self._kicks = 0
        self._leaked = self._descriptors()

    def _grown(self) -> Seen:
        lines = _lines(self._service.output) if self._service else []
        return {
            "log": _logged(_read(self._station.path(ALERT_LOG))),
            "lines": [x for x in lines if not x.startswith(_THREAD_LINES + _CHILD_LINES)],
            "heard": [x for x in lines if x.startswith(_THREAD_LINES)],
            "children's lines": [x for x in lines if x.startswith(_CHILD_LINES)],
            "complaints": _lines(self._service.errors) if self._service else [],
            "records": [describe_record(record) for record in self._records.records()],
            "television": [*self.television.all_frames],
            "calls": [
                " ".join([call.path, *call.argv[1:]])
                + "".join(f", inherits {target}" for target in call.descriptors.values())
                for call in self._station.calls()
            ],
            "picture": [*self.television.story],
        }

    def _standing(self) -> Seen:
        return {
            "document": [without_times(self._station.document_text())],
            "gateway file": [_read(self._station.path(GATEWAY_FILE))],
            "configuration": [_read(self._station.path(CONFIG))],
            "browsers": [str(self._alive("qt-webkit-kiosk"))],
            "DHCP clients": [str(self._alive("udhcpc"))],
            "kicks": [str(self._kicks)],
            "descriptors": [f"{self._descriptors() - self._leaked:+d}"],
            "service": ["running" if self._service and self._service.is_running() else "ended"],
        }

    def _alive(self, tool: str) -> int:
        pids = [call.pid for call in self._station.calls(tool)]
        return sum(_is_alive(_read(self._station.path(f"/proc/{pid}/stat"))) for pid in pids)

    def _descriptors(self) -> int:
        try:
            return len(list(Path(f"/proc/{self._pid}/fd").iterdir()))
        except OSError:
            return 0


def differences(seen: Seen, usual: Seen) -> dict[str, tuple[list[str], list[str]]]:
    """The aspects that are not as usual: what is seen of them, and what would be usual."""
    return {
        aspect: (seen[aspect], usual[aspect]) for aspect in usual if seen[aspect] != usual[aspect]
    }
