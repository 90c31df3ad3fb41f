"""Texts in the scripts that the television's fonts have, and what no font has."""

import subprocess

# Joiners, variation selectors, fillers and the like: drawn as nothing, even without a font.
_INVISIBLE = [
    *([0x034F], [0x115F, 0x1160], [0x17B4, 0x17B5], range(0x180B, 0x1810), [0x3164]),
    *(range(0xFE00, 0xFE10), [0xFFA0], range(0x1D173, 0x1D17B)),
]
INVISIBLE = {code for part in _INVISIBLE for code in part}

# By what they hold. All of it is to be shown as it is.
SHOWN = {
    "Latin": "Łódź, Ğışş, čřž, Ứng Hòa, ſ",
    "Greek": "Φωτιά στο κτίριο, ΆΈΏ",
    "Cyrillic": "Пожар, Ґрунт, Ђорђе, Ѓ",
    "Arabic": "حريق في المبنى، الطابق الثاني",
    "Hebrew": "שריפה בבניין",
    "Chinese": "消防车 消防車 火災 建筑物",
    "Japanese": "かじ カジ 火事、三丁目",
    "Korean": "화재 한국",
    "symbols": "→ ⚠ ☣ ☢ ✓ № € ≤ ▲ □ ☐ ½ ″",
    "pictographs": "\U0001f692 \U0001f691 \U0001f525",
    "joined": "\U0001f468\u200d\U0001f692 \u26a0\ufe0f \U0001f44d\U0001f3fd لا\u200cلا",
    "combined": "e\u0301 q\u0323\u0307 А\u0301 \u0301",
    "invisible": "".join(map(chr, sorted(INVISIBLE))),
    "controls": "a\u0085b\u00adc\nd\te",
}

# What no font has, and what is shown in its place.
NOT_SHOWN = {
    "A\u0378B": "A[U+0378]B",
    "\U0010fffd\n": "[U+10FFFD]\n",
    "x\U00012345y\U00012345": "x[U+12345]y[U+12345]",
    "\ufdd0": "[U+FDD0]",
}


def characters_of_fonts() -> set[int]:
    """What the fonts of this machine hold."""
    said = subprocess.run(["fc-list", "--format", "%{charset} "], capture_output=True, text=True)
    found: set[int] = set()
    for part in said.stdout.split():
        first, _, last = part.partition("-")
        found.update(range(int(first, 16), int(last or first, 16) + 1))
    return found
