"""What a viewer sees on the television, as PNG files."""

import re
from pathlib import Path

from simulation.screen import Screen
from simulation.television import ON, Television, dotted
from simulation.television import UNIT_ADDRESS as UNIT_INPUT

_CARD_STYLE = (
    "color:white;font:80px sans-serif;"
    "display:flex;align-items:center;justify-content:center;background:"
)


class Pictures:
    """Numbered pictures in a directory, created if necessary."""

    def __init__(self, directory: Path, screen: Screen, television: Television) -> None:
        self._directory = directory
        self._screen = screen
        self._television = television
        self._cards: dict[str, bytes] = {}
        self._count = 0
        directory.mkdir(parents=True, exist_ok=True)

    def take(self, words: str) -> Path:
        """The current television picture, once the page is up to date."""
        self._count += 1
        name = re.sub("[^a-z0-9]+", "-", words.lower()).strip("-")[:40].rstrip("-")
        path = self._directory / f"{self._count:02}-{name}.png"
        path.write_bytes(self._look())
        return path

    def _look(self) -> bytes:
        if self._television.power != ON:
            return self._card("black", "")
        if self._television.input != UNIT_INPUT:
            return self._card("darkblue", f"Input {dotted(self._television.input)}")
        self._screen.wait_until_drawn()
        self._screen.wait_for_map()
        return self._screen.picture()

    def _card(self, background: str, text: str) -> bytes:
        if text not in self._cards:
            self._cards[text] = self._screen.render(_CARD_STYLE + background, text)
        return self._cards[text]
