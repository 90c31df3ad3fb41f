"""The preview: the station page, given documents by hand."""

import json
import os
from collections.abc import Iterator
from typing import Any

import pytest
from folder_support import Folder, open_folder
from page_support import Shown

from simulation import gateway
from simulation.gateway import Unit, deliver
from simulation.places import LIVENESS_FILE
from simulation.waiting import wait_for

pytestmark = [pytest.mark.once, pytest.mark.browser]

# Whatever the page makes of them, they are no JSON.
BROKEN = [
    "A quotation mark in a unit's name: the document is no JSON",
    "A quotation mark in the map address: the document is no JSON",
    "A document cut short: the page keeps what was there",
]


@pytest.fixture(scope="module")
def shared_folder() -> Iterator[Folder]:
    with open_folder() as opened:
        yield opened


@pytest.fixture
def preview(shared_folder: Folder) -> Folder:
    shared_folder.open("preview.html")
    wait_for(lambda: shown_document(shared_folder), "the first document")
    return shared_folder


# The station page's window, and its visible text.
INNER = """
    var frame = document.querySelector('iframe'), inner = frame ? frame.contentWindow : {};
    function seen() {
        return inner.document && inner.document.body ? inner.document.body.innerText : '';
    }
"""


def inside(preview: Folder, script: str, *arguments: object) -> Any:
    return preview.script(INNER + script, *arguments)


def seen_text(preview: Folder) -> str:
    return str(inside(preview, "return seen()"))


def shown_document(preview: Folder) -> str | None:
    """The bytes of the last document that the page has drawn."""
    script = "return inner.station_page ? inner.station_page.drawn : null"
    document: str | None = inside(preview, script)
    return document


def written_document(preview: Folder) -> str:
    """The bytes of the document in the form."""
    script = "return preview_writer.from_text(document.getElementById('document').value)"
    return str(preview.script(script))


def click(preview: Folder, selector: str, number: int = 0) -> None:
    preview.script(
        "document.querySelectorAll(arguments[0])[arguments[1]].click()", selector, number
    )


def fill(preview: Folder, **values: str) -> None:
    for name, value in values.items():
        preview.script("document.getElementById(arguments[0]).value = arguments[1]", name, value)


def choose(preview: Folder, caption: str) -> dict[str, Any]:
    captions = preview.script("return preview_documents.map(d => d.caption)")
    number = captions.index(caption)
    preview.script("document.querySelector('iframe').contentWindow.is_old = true")
    click(preview, "#list button", number)
    wait_for(lambda: inside(preview, "return !inner.is_old"), "another television")
    canned: dict[str, Any] = preview.script("return preview_documents[arguments[0]]", number)
    return canned


def change_screen(preview: Folder, **values: str) -> None:
    fill(preview, **values)
    preview.script("document.getElementById('screen').dispatchEvent(new Event('change'))")


def first_word(step: dict[str, Any]) -> str:
    units = step.get("units") or [{"name": ""}]
    return str((step.get("text") or units[0]["name"]).split()[0])


def test_every_canned_document_is_shown(preview: Folder) -> None:
    fill(preview, hold="0.1")
    captions = preview.script("return preview_documents.map(d => d.caption)")
    assert len(captions) == len(set(captions)) >= 35
    for caption in captions:
        steps = choose(preview, caption)["steps"]
        if caption in BROKEN:
            continue
        wait_for(lambda: shown_document(preview) == written_document(preview), caption)
        (document,) = json.loads(written_document(preview))
        assert document["alert_type"] == steps[-1]["type"]
        shown = [step for step in steps if step.get("text") or step.get("units")][-1]
        # The last step may end the alert, and the page does not say what it was at once.
        if steps[-1].get("text") is not None or steps[-1]["type"] == "stop_turnout":
            wait_for(lambda: first_word(shown) in seen_text(preview), f"{caption}, on the screen")


def test_document_cut_short_keeps_what_was_there(preview: Folder) -> None:
    fill(preview, hold="0.1")
    choose(preview, BROKEN[2])
    wait_for(lambda: "CUT SHORT" in written_document(preview), "the short document")
    with pytest.raises(ValueError):
        json.loads(written_document(preview))
    assert "STRUCTURE FIRE" in shown_text_after_drawing(preview)
    assert "CUT SHORT" not in seen_text(preview)


def shown_text_after_drawing(preview: Folder) -> str:
    """The page has had the time to draw what it was given."""
    inside(preview, "inner.drawings = 0; inner.pulse.draw_forever(() => { inner.drawings += 1; })")
    wait_for(lambda: inside(preview, "return inner.drawings > 2"), "three drawings")
    return seen_text(preview)


@pytest.mark.parametrize("caption, part", [(BROKEN[0], '1 "Old'), (BROKEN[1], 'at="Main')])
def test_quotation_marks_make_no_json(preview: Folder, caption: str, part: str) -> None:
    choose(preview, caption)
    wait_for(lambda: part in written_document(preview), "the document")
    with pytest.raises(ValueError):
        json.loads(written_document(preview))


@pytest.mark.parametrize("document", ["", "null", '[{"alert_type":"hdtv_alert"'])
def test_document_written_by_hand_may_be_broken(preview: Folder, document: str) -> None:
    assert "FIRE" in seen_text(preview)
    before = shown_document(preview)
    fill(preview, document=document)
    click(preview, "#give")
    assert "FIRE" in shown_text_after_drawing(preview)
    assert shown_document(preview) == before


def test_document_may_be_edited(preview: Folder) -> None:
    text = preview.script("return document.getElementById('document').value")
    fill(preview, document=text.replace("FIRE", "ÉCOLE €"))
    click(preview, "#give")
    wait_for(lambda: "ÉCOLE €" in seen_text(preview), "the edited text")
    assert "ÉCOLE €".encode().decode("latin-1") in str(shown_document(preview))


def test_form_writes_a_document(preview: Folder) -> None:
    units = "E1 2\nSQUAD 41 16\n\nL3\nNONE 0"
    fill(preview, text="GAS LEAK", units=units, end="300", zero="90", reverse="1", since="30")
    click(preview, "#write")
    wait_for(lambda: "GAS LEAK" in seen_text(preview), "the text")
    (document,) = json.loads(written_document(preview))
    assert document["units"] == [
        {"unit": "E1", "color": "2"},
        {"unit": "SQUAD 41", "color": "16"},
        {"unit": "L3", "color": "1"},
    ]
    names = ("turnout_end", "turnout_zero", "turnout_reverse", "show_turnout_timer")
    assert [document[name] for name in names] == ["300", "90", "1", "1"]
    start = int(document["alert_time"])
    now = preview.script("return Date.now() / 1000")
    assert 30 <= now - start < 60
    assert int(document["alert_expiration"]) == start + 300


def test_update_by_hand_belongs_to_the_same_alert(preview: Folder) -> None:
    (first,) = json.loads(written_document(preview))
    preview.script("var now = Date.now; Date.now = () => now() + 5000")
    fill(preview, text="ALL OUT")
    click(preview, "#write")
    (second,) = json.loads(written_document(preview))
    assert second["alert_time"] == first["alert_time"]
    fill(preview, since="21")
    click(preview, "#write")
    (third,) = json.loads(written_document(preview))
    assert third["alert_time"] != first["alert_time"]


def test_texts_keep_their_bytes_while_they_are_edited(preview: Folder) -> None:
    for content in [
        "é€😀\uf7a0".encode(),
        b"caf\xe9",
        b"\xc3",
        b"\xe2\x82",
        b"\xed\xa0\x80",
        b"\xff\xfe\x80",
    ]:
        text = content.decode("latin-1")
        script = "return preview_writer.from_text(preview_writer.to_text(arguments[0]))"
        assert preview.script(script, text) == text
    assert preview.script("return preview_writer.from_text('\\ud800!')") == "\xef\xbf\xbd!"


SIZES = ["640x480", "1280x720", "1920x1080", "3840x2160", "1080x1920"]


@pytest.mark.parametrize("size", SIZES)
@pytest.mark.parametrize("rotation, safe", [("0", "3.5"), ("90", "0"), ("180", "5"), ("270", "5")])
def test_television_has_the_chosen_size_and_place(
    preview: Folder, size: str, rotation: str, safe: str
) -> None:
    change_screen(preview, size=size, rotation=rotation, safe=safe)
    wait_for(lambda: "FIRE" in seen_text(preview), "the alert, again")
    width, height = (int(number) for number in size.split("x"))
    assert inside(preview, "return [inner.innerWidth, inner.innerHeight]") == [width, height]
    page = inside(preview, "return inner.document.getElementById('page').style.cssText")
    turned = (height, width) if rotation in ("90", "270") else (width, height)
    assert f"width: {turned[0]}px; height: {turned[1]}px" in page
    assert f"rotate({rotation}deg)" in page
    assert inside(preview, "return inner.placement.safe_percent()") == float(safe)
    # As large as the stage allows, undistorted.
    left, top, right, bottom, room_x, room_y = preview.script(
        """
        var box = document.querySelector('iframe').getBoundingClientRect(),
            stage = document.getElementById('stage'), place = stage.getBoundingClientRect();
        return [box.left - place.left, box.top - place.top, place.right - box.right,
            place.bottom - box.bottom, stage.clientWidth, stage.clientHeight]"""
    )
    assert (left, top) == pytest.approx((right, bottom), abs=1)
    assert min(left, top) == pytest.approx(0, abs=1)
    assert (room_x - 2 * left) / (room_y - 2 * top) == pytest.approx(width / height, rel=0.01)


@pytest.mark.parametrize(
    "width, height", [(640, 480), (1280, 720), (1920, 1080), (3840, 2160), (1080, 1920)]
)
def test_preview_fits_any_window(preview: Folder, width: int, height: int) -> None:
    preview.resize(width, height)
    assert preview.script("return document.documentElement.scrollWidth") <= width
    stage = preview.script("return document.getElementById('stage').clientHeight")
    assert stage > 0.45 * height
    script = "return document.querySelector('iframe').getBoundingClientRect().height"
    wait_for(lambda: 0 < preview.script(script) <= stage + 1, "a television within its stage")
    # All of the form can be reached.
    assert preview.script(
        """
        return Array.prototype.every.call(document.querySelectorAll('#hand *'), function (e) {
            var box = e.getBoundingClientRect();
            return box.bottom + scrollY <= document.body.scrollHeight + 1 && box.right <= innerWidth;
        })"""
    )


def test_all_documents_are_played_one_after_the_other(preview: Folder) -> None:
    captions = preview.script("return preview_documents.map(d => d.caption)")
    preview.script(
        """
        window.captions = [];
        new MutationObserver(function () {
            captions.push(document.getElementById('caption').textContent);
        }).observe(document.getElementById('caption'), {childList: true});"""
    )
    fill(preview, hold="0.1")
    click(preview, "#play")
    assert preview.text("play") == "Stop"
    wait_for(lambda: preview.script("return captions.length") >= 5, "five documents")
    click(preview, "#play")
    assert preview.text("play") == "Play all"
    played = preview.script("return captions")
    assert played == captions[: len(played)]
    # The last one ends it.
    preview.script("preview_documents.splice(2)")
    click(preview, "#play")
    wait_for(lambda: preview.text("play") == "Play all", "the end")
    assert preview.text("caption") == captions[1]


ALERT = {
    "type": "hdtv_alert",
    "flag": 1,
    "end": 300,
    "zero": 90,
    "reverse": 1,
    "text": 'AT&T <b> "x" &amp; \\ / \n\r\t\b\f é € 😀',
    "units": [{"name": "E1", "color": 2}, {"name": 'L"3', "color": 255}],
}
LONG_NAME = "x" * 30 + "É"


def detail_message(fields: dict[str, Any]) -> bytes:
    units = {i: Unit(unit["name"], unit["color"]) for i, unit in enumerate(fields["units"])}
    return gateway.detail_alert(
        fields["text"], units, 1, fields["end"], fields["zero"], fields["reverse"]
    )


def alert_with(**changes: object) -> tuple[bytes, dict[str, Any]]:
    fields = {**ALERT, **changes}
    return detail_message(fields), fields


END = gateway.detail_alert("")

# In this order, on a service that has just started: messages, and the fields of what is written.
WRITTEN: list[tuple[list[bytes], dict[str, Any]]] = [
    (
        [gateway.display_alert("A/B & C")],
        {"type": "display_alert", "flag": 1, "text": "A/B & C", "units": ALERT["units"]},
    ),
    ([gateway.stop_turnout()], {"type": "stop_turnout", "flag": 1, "text": "ignored"}),
    (
        [END, gateway.display_alert("caf\xe9".encode("latin-1"), turnout=77)],
        {
            "type": "display_alert",
            "flag": 1,
            "text": "café",
            "timer": 77,
            "encoding": "Latin-1",
        },
    ),
    ([END], {"type": "hdtv_alert", "flag": 1, "start": 0}),
    *(([END, message], fields) for message, fields in [alert_with()]),
    (
        [gateway.set_map_address('http://x/a"b?c=d&e')],
        {**ALERT, "map": 'http://x/a"b?c=d&e'},
    ),
    *(
        ([END, message], fields)
        for message, fields in [
            alert_with(units=[{"name": LONG_NAME, "color": 1}, {"name": "NONE", "color": 0}]),
            alert_with(text="é" * 1900, end=0),
            alert_with(units=[{"name": f"U{i}", "color": i + 1} for i in range(16)]),
        ]
    ),
    (
        [END, gateway.display_alert("10.87.33.50", flag=0)],
        {"type": "display_alert", "flag": 0, "text": "10.87.33.50", "timer": 0},
    ),
]


def test_preview_writes_what_the_service_writes(script_page: Shown) -> None:
    """And it works under the rules of the unit's web server, where it is not taken for alive."""
    station, driver = script_page.station, script_page.screen.driver
    driver.get("http://127.0.0.1/station_web/preview.html")
    wait_for(lambda: "FIRE" in script_page.script(INNER + "return seen()"), "the alert")
    file = station.path(LIVENESS_FILE)
    wait_for(file.exists, "the station page's last sign")
    os.utime(file, (1, 1))
    for messages, fields in WRITTEN:
        for message in messages:
            deliver(station, message)
        content = station.document_text().encode(errors="surrogateescape").decode("latin-1")
        start = int(content.partition('"alert_time":"')[2].partition('"')[0])
        script = "return preview_writer.write(arguments[0])"
        written = script_page.script(script, {"start": start, **fields})
        assert written == content
    script_page.script(
        INNER + "inner.is_old = true; document.querySelectorAll('#list li')[2]."
        "querySelector('button').click()"
    )
    wait_for(
        lambda: script_page.script(
            INNER + "return !inner.is_old && [...inner.document.images]"
            ".some(image => image.naturalWidth > 0)"
        ),
        "the map",
    )
    script_page.script(
        INNER + "inner.drawings = 0; inner.pulse.draw_forever(() => { inner.drawings += 1; })"
    )
    wait_for(lambda: script_page.script(INNER + "return inner.drawings > 2"), "three drawings")
    assert file.stat().st_mtime == 1
