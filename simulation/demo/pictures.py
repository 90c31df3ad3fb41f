"""What a viewer sees on the television, as PNG files and a sheet that shows them all."""

import html
import re
from dataclasses import dataclass
from pathlib import Path

from simulation.screen import Screen
from simulation.television import ON, Television, dotted
from simulation.television import UNIT_ADDRESS as UNIT_INPUT

SHEET = "index.html"

_CARD_STYLE = (
    "color:white;font:80px sans-serif;"
    "display:flex;align-items:center;justify-content:center;background:"
)

_SHEET = """\
<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<title>What the television shows</title>
<style>
body {{ background: #ddd; color: #111; font: 16px sans-serif; margin: 16px; }}
figure {{ display: inline-block; width: 480px; margin: 0 16px 24px 0; vertical-align: top; }}
img {{ width: 100%; background: #000; }}
</style>
</head>
<body>
<h1>What the television shows</h1>
{figures}
</body>
</html>
"""

_FIGURE = """\
<figure>
<a href="{name}"><img src="{name}" alt="{number}"></a>
<figcaption><b>{number}.</b> {words}<br><i>{state}</i></figcaption>
</figure>"""


@dataclass(frozen=True)
class Picture:
    name: str
    words: str
    state: str  # of the television, in words


class Pictures:
    """Numbered pictures in a directory, created if necessary."""

    def __init__(self, directory: Path, screen: Screen, television: Television) -> None:
        self._directory = directory
        self._screen = screen
        self._television = television
        self._cards: dict[str, bytes] = {}
        self._taken: list[Picture] = []
        directory.mkdir(parents=True, exist_ok=True)

    def take(self, words: str) -> Path:
        """The current television picture, once the page is up to date."""
        name = re.sub("[^a-z0-9]+", "-", words.lower()).strip("-")[:40].rstrip("-")
        path = self._directory / f"{len(self._taken) + 1:02}-{name}.png"
        path.write_bytes(self._look())
        self._taken.append(Picture(path.name, words, self._state()))
        self._write_sheet()
        return path

    def wait_until_drawn(self) -> None:
        self._screen.wait_until_drawn()
        self._screen.wait_for_map()

    def _write_sheet(self) -> None:
        """Anew after each picture: a station may end at any time."""
        figures = [
            _FIGURE.format(
                number=number,
                name=html.escape(taken.name),
                words=html.escape(taken.words),
                state=html.escape(taken.state),
            )
            for number, taken in enumerate(self._taken, 1)
        ]
        sheet = _SHEET.format(figures="\n".join(figures))
        (self._directory / SHEET).write_text(sheet, encoding="utf-8")

    def _state(self) -> str:
        if self._television.power != ON:
            return "the television is in standby: it shows nothing"
        if self._television.input != UNIT_INPUT:
            return f"the television shows its input {dotted(self._television.input)}"
        return "the television shows the unit"

    def _look(self) -> bytes:
        if self._television.power != ON:
            return self._card("black", "")
        if self._television.input != UNIT_INPUT:
            return self._card("darkblue", f"Input {dotted(self._television.input)}")
        self.wait_until_drawn()
        return self._screen.picture()

    def _card(self, background: str, text: str) -> bytes:
        if text not in self._cards:
            self._cards[text] = self._screen.render(_CARD_STYLE + background, text)
        return self._cards[text]
