"""How well the tiles of the station page can be told apart, by people who see all colors and by people
who do not: differences between any two of their colors, and how readable their names are."""

import argparse
import itertools
import math
import re
import sys
from collections.abc import Callable
from dataclasses import dataclass

from simulation.places import top_directory

Color = tuple[float, float, float]

# Five times what can just be told apart side by side. Closer ones have different patterns.
THRESHOLD = 12.0
INKS = {"black": "#000000", "white": "#ffffff"}
READABLE, VERY_READABLE = 4.5, 7.0

# What is left of linear red, green and blue if one kind of cones is missing: G. M. Machado,
# M. M. Oliveira, L. A. F. Fernandes, "A Physiologically-based Model for Simulation of Color Vision
# Deficiency", 2009, severity 1.
VISIONS: dict[str, tuple[Color, Color, Color]] = {
    "normal": ((1, 0, 0), (0, 1, 0), (0, 0, 1)),
    "protanopia": (
        (0.152286, 1.052583, -0.204868),
        (0.114503, 0.786281, 0.099216),
        (-0.003882, -0.048116, 1.051998),
    ),
    "deuteranopia": (
        (0.367322, 0.860646, -0.227968),
        (0.280085, 0.672501, 0.047413),
        (-0.011820, 0.042940, 0.968881),
    ),
    "tritanopia": (
        (1.255528, -0.076749, -0.178779),
        (-0.078411, 0.930809, 0.147602),
        (0.004733, 0.691367, 0.303900),
    ),
}


@dataclass(frozen=True)
class Tile:
    name: str
    ground: str
    ink: str
    pattern: str

    @property
    def contrast(self) -> float:
        """Between its name and its color, as WCAG 2 defines it."""
        return contrast(self.ground, self.ink)


@dataclass(frozen=True)
class Pair:
    tiles: tuple[Tile, Tile]
    vision: str
    difference: float

    @property
    def names(self) -> str:
        return " and ".join(tile.name for tile in self.tiles)

    @property
    def have_different_patterns(self) -> bool:
        return self.tiles[0].pattern != self.tiles[1].pattern


def read_tiles() -> list[Tile]:
    """From the page's script."""
    text = (top_directory() / "station_web" / "tiles.js").read_text()
    rows = re.findall(
        r"^ *\['([a-z]+)', '(#\w{6})', '(black|white)', '([a-z]*)'\],?$", text, re.MULTILINE
    )
    return [Tile(*row) for row in rows]


def pairs(tiles: list[Tile], vision: str) -> list[Pair]:
    """Of any two tiles, the most alike first."""
    found = [
        Pair(two, vision, difference(*(lab(seen(tile.ground, vision)) for tile in two)))
        for two in itertools.combinations(tiles, 2)
    ]
    return sorted(found, key=lambda pair: pair.difference)


def linear(color: str) -> Color:
    digits = INKS.get(color, color)[1:]
    red, green, blue = (int(digits[place : place + 2], 16) / 255 for place in (0, 2, 4))
    return _linear(red), _linear(green), _linear(blue)


def _linear(channel: float) -> float:
    return channel / 12.92 if channel <= 0.04045 else math.pow((channel + 0.055) / 1.055, 2.4)


def seen(color: str, vision: str) -> Color:
    """Linear red, green and blue."""
    channels = linear(color)
    red, green, blue = (
        min(1, max(0, sum(a * b for a, b in zip(row, channels)))) for row in VISIONS[vision]
    )
    return red, green, blue


def contrast(one: str, other: str) -> float:
    light, dark = sorted((_luminance(one), _luminance(other)), reverse=True)
    return (light + 0.05) / (dark + 0.05)


def _luminance(color: str) -> float:
    red, green, blue = linear(color)
    return 0.2126 * red + 0.7152 * green + 0.0722 * blue


def lab(color: Color) -> Color:
    """CIE L*a*b* of linear red, green and blue, for the white of D65."""
    red, green, blue = color
    x = (0.4124564 * red + 0.3575761 * green + 0.1804375 * blue) / 0.95047
    y = 0.2126729 * red + 0.7151522 * green + 0.0721750 * blue
    z = (0.0193339 * red + 0.1191920 * green + 0.9503041 * blue) / 1.08883
    x, y, z = (t ** (1 / 3) if t > 0.008856 else 7.787037 * t + 16 / 116 for t in (x, y, z))
    return 116 * y - 16, 500 * (x - y), 200 * (y - z)


def _cos(degrees: float) -> float:
    return math.cos(math.radians(degrees))


def _mean_hue(one: float, other: float) -> float:
    if abs(one - other) <= 180:
        return (one + other) / 2
    return (one + other) / 2 + (180 if one + other < 360 else -180)


def difference(one: Color, other: Color) -> float:
    """CIEDE2000 of two colors in L*a*b*."""
    less_gray = _less_gray(one, other)
    (light1, chroma1, hue1), (light2, chroma2, hue2) = less_gray(one), less_gray(other)
    light, chroma = (light1 + light2) / 2, (chroma1 + chroma2) / 2
    is_gray = chroma1 * chroma2 == 0
    hue = hue1 + hue2 if is_gray else _mean_hue(hue1, hue2)
    turn = 0 if is_gray else (hue2 - hue1 + 180) % 360 - 180
    hue_weight = (
        1
        - 0.17 * _cos(hue - 30)
        + 0.24 * _cos(2 * hue)
        + 0.32 * _cos(3 * hue + 6)
        - 0.20 * _cos(4 * hue - 63)
    )
    by_light = (light2 - light1) / (
        1 + 0.015 * (light - 50) ** 2 / math.sqrt(20 + (light - 50) ** 2)
    )
    by_chroma = (chroma2 - chroma1) / (1 + 0.045 * chroma)
    by_hue = 2 * math.sqrt(chroma1 * chroma2) * math.sin(math.radians(turn / 2))
    by_hue /= 1 + 0.015 * chroma * hue_weight
    rotation = 60 * math.exp(-(((hue - 275) / 25) ** 2))
    blue = -math.sin(math.radians(rotation)) * 2 * math.sqrt(chroma**7 / (chroma**7 + 25**7))
    return math.sqrt(by_light**2 + by_chroma**2 + by_hue**2 + blue * by_chroma * by_hue)


def _less_gray(one: Color, other: Color) -> Callable[[Color], Color]:
    """Returns a function from L*a*b* to lightness, chroma and hue, which stretches what is grayish."""
    mean = (math.hypot(*one[1:]) + math.hypot(*other[1:])) / 2
    stretch = 1.5 - 0.5 * math.sqrt(mean**7 / (mean**7 + 25**7))

    def convert(color: Color) -> Color:
        light, a, b = color
        return light, math.hypot(stretch * a, b), math.degrees(math.atan2(b, stretch * a)) % 360

    return convert


def table_of_differences(tiles: list[Tile]) -> list[str]:
    rows = [f"| Vision       | Smallest | Pairs below {THRESHOLD:g} |"]
    rows.append("|--------------|---------:|----------------|")
    for vision in VISIONS:
        found = pairs(tiles, vision)
        close = [f"{x.names} {x.difference:.1f}" for x in found if x.difference < THRESHOLD]
        rows.append(f"| {vision:<12} | {found[0].difference:>8.1f} | {', '.join(close) or '-'} |")
    return rows


def table_of_tiles(tiles: list[Tile]) -> list[str]:
    rows = ["| Tile   | Color   | Pattern | Contrast of the name |"]
    rows.append("|--------|---------|---------|---------------------:|")
    for tile in tiles:
        contrast_text = f"{tile.contrast:>18.1f}:1"
        rows.append(f"| {tile.name:<6} | {tile.ground} | {tile.pattern:<7} | {contrast_text} |")
    return rows


def main() -> int:
    parser = argparse.ArgumentParser(prog="bench/palette", description=__doc__)
    parser.parse_args()
    tiles = read_tiles()
    print("\n".join([*table_of_differences(tiles), "", *table_of_tiles(tiles)]))
    return 0


if __name__ == "__main__":
    sys.exit(main())
