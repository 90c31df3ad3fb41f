"""What the television's fonts cannot draw is shown by its code."""

import random
import unicodedata

import pytest
from glyph_support import INVISIBLE, NOT_SHOWN, SHOWN, characters_of_fonts
from page_support import Shown

pytestmark = [pytest.mark.once, pytest.mark.browser]

READABLE = "return arguments[0].map(glyphs.readable)"


@pytest.fixture(scope="module")
def page(script_page: Shown) -> Shown:
    script_page.load("glyphs.js")
    return script_page


@pytest.mark.parametrize("kind", SHOWN)
def test_texts_are_shown_as_they_are(page: Shown, kind: str) -> None:
    assert page.script(READABLE, [SHOWN[kind]]) == [SHOWN[kind]]


@pytest.mark.parametrize("text", NOT_SHOWN, ids=ascii)
def test_characters_without_a_glyph_are_shown_by_their_codes(page: Shown, text: str) -> None:
    assert page.script(READABLE, [text]) == [NOT_SHOWN[text]]
    assert page.script(READABLE, [text]) == [NOT_SHOWN[text]]


def test_half_a_character_is_shown_by_its_code(page: Shown) -> None:
    halves = "return glyphs.readable('A\\ud83dB\\ude92\\ud83d\\ude00')"
    assert page.script(halves) == "A[U+D83D]B[U+DE92]\U0001f600"


def is_told_by_fonts(code: int) -> bool:
    """Letters, marks, numbers, punctuation and symbols, but not what may be drawn from its parts."""
    character = chr(code)
    is_whole = len(unicodedata.normalize("NFKD", character)) == 1
    return unicodedata.category(character)[0] in "LMNPS" and is_whole and code not in INVISIBLE


def test_codes_stand_for_what_no_font_has_and_for_nothing_else(page: Shown) -> None:
    """Of thousands of characters, compared with what the fonts' files say."""
    seed = random.randrange(1 << 32)
    chosen = random.Random(seed)
    of_fonts = characters_of_fonts()
    codes = chosen.sample(range(0x100, 0x30000), 12000)
    characters = [chr(code) for code in codes if is_told_by_fonts(code)]
    assert len(characters) > 2000
    shown = page.script(READABLE, characters)
    wrong = {
        f"U+{ord(character):04X}": is_shown == character
        for character, is_shown in zip(characters, shown, strict=True)
        if (is_shown == character) != (ord(character) in of_fonts)
    }
    assert wrong == {}, f"seed {seed}"


def test_known_characters_do_not_pile_up(page: Shown) -> None:
    """Each is asked for more often than it is drawn, and what is known is bounded."""
    counted = page.script(
        """
        var draw = CanvasRenderingContext2D.prototype.measureText, measured = 0, text = '', i;
        CanvasRenderingContext2D.prototype.measureText = function (character) {
            measured += 1;
            return draw.call(this, character);
        };
        for (i = 0; i < 3500; i += 1) {
            text += String.fromCharCode(0x4e00 + i % 20);
        }
        glyphs.readable(text);
        CanvasRenderingContext2D.prototype.measureText = draw;
        return measured"""
    )
    assert counted <= 20
