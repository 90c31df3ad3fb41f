"""The tests' side of preload/ledger.h: which call of the service fails, and its clock."""

import mmap
import struct
from collections import Counter
from collections.abc import Callable
from pathlib import Path

from simulation.waiting import wait_for

_ASKED, _ANSWERED, _ARMED, _STRUCK, _TO_PASS, _SITES, _NOW, _WANTED = 4, 8, 12, 16, 20, 28, 32, 40
_SITE_TABLE, _SITE_SIZE, _NAME_SIZE = 132, 96, 92
_SIZE = 32768

SHORT = -1  # half of a transfer


class NotAtRest(Exception):
    """The service does not come back to its event loop."""


class Ledger:
    def __init__(self, path: Path) -> None:
        path.write_bytes(bytes(_SIZE))
        with path.open("r+b") as file:
            self._map = mmap.mmap(file.fileno(), _SIZE)
        self._put("Q", _NOW, 1_000_000)

    def _get(self, kind: str, offset: int) -> int:
        return int(struct.unpack_from(kind, self._map, offset)[0])

    def _put(self, kind: str, offset: int, value: int) -> None:
        struct.pack_into(kind, self._map, offset, value)

    def arm(self, site: str, error: int, to_pass: int) -> None:
        """A coming call of this site fails; so many before it still succeed."""
        name = site.encode()
        assert len(name) < _NAME_SIZE
        self._map[_WANTED : _WANTED + len(name) + 1] = name + b"\0"
        struct.pack_into("ii", self._map, _TO_PASS, to_pass, error)
        self._put("I", _ARMED, 1)

    @property
    def has_struck(self) -> bool:
        return self._get("I", _STRUCK) != 0

    def met(self) -> Counter[str]:
        """How often the service has come by each site."""
        sites: Counter[str] = Counter()
        for i in range(self._get("I", _SITES)):
            place = _SITE_TABLE + i * _SITE_SIZE
            name = self._map[place : place + _NAME_SIZE].partition(b"\0")[0].decode()
            sites[name] = self._get("I", place + _NAME_SIZE)
        return sites

    def settle(self, is_running: Callable[[], bool], deadline: float) -> None:
        """Until the service has nothing left to do."""
        question = self._get("I", _ASKED) + 1
        self._put("I", _ASKED, question)

        def is_answered() -> bool:
            return self._get("I", _ANSWERED) == question

        try:
            wait_for(lambda: is_answered() or not is_running(), "a service at rest", deadline)
        except TimeoutError as error:
            raise NotAtRest from error
        if not is_answered():
            raise NotAtRest

    def pass_time(self, seconds: int) -> None:
        """On the service's clock, which stands still otherwise. It must be at rest."""
        self._put("Q", _NOW, self._get("Q", _NOW) + 1000 * seconds)
