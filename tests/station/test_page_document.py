"""What an alert document cannot do to the station page."""

import random
from typing import Any

import pytest
from page_stage import Stage, alert_document
from page_support import Shown

from simulation import gateway
from simulation.gateway import Unit

pytestmark = [pytest.mark.once, pytest.mark.browser]

HOSTILE_TEXT = "<script>hacked=1</script><img src=x onerror=hacked=1>&lt;i&gt;"
HOSTILE_NAME = "<img src=x onerror=hacked=1>"


def test_hostile_text_and_names_stay_text(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert(HOSTILE_TEXT, {0: Unit(HOSTILE_NAME, 1)}))
    assert shown.text("text") == HOSTILE_TEXT
    assert shown.units() == [HOSTILE_NAME]
    shown.deliver(gateway.detail_alert(""))
    shown.deliver(gateway.display_alert(HOSTILE_TEXT, flag=0))
    assert shown.text("idle_text") == HOSTILE_TEXT
    assert shown.script("return typeof hacked") == "undefined"


@pytest.mark.parametrize(
    "address",
    [
        "javascript:hacked=1",
        " javascript:hacked=1",
        "JavaScript:hacked=1//http://",
        "data:text/html,<script>parent.hacked=1</script>",
        "file:///etc/passwd",
        "//10.87.33.20/map.svg",
        "map.svg",
    ],
)
def test_map_address_that_is_not_of_the_web_is_not_followed(shown: Shown, address: str) -> None:
    shown.deliver(gateway.detail_alert("FIRE"))
    shown.deliver(gateway.set_map_address(address))
    assert shown.script("return document.querySelectorAll('img, iframe').length") == 0
    assert shown.script("return typeof hacked") == "undefined"
    assert shown.text("text") == "FIRE"


def test_map_address_cannot_leave_its_place(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("FIRE"))
    shown.deliver(gateway.set_map_address("http://x/'><script>hacked=1</script>"))
    assert shown.script("return document.querySelectorAll('#map > *').length") == 1
    assert shown.script("return typeof hacked") == "undefined"


@pytest.mark.parametrize("name", ['"', '"}],x', '6" HOSE', "\\", '","color":"', '{"unit":"'])
def test_quotation_mark_in_a_name_hides_no_alert(shown: Shown, name: str) -> None:
    shown.deliver(
        gateway.detail_alert("FIRE", {0: Unit("E1", 1), 1: Unit(name, 2), 2: Unit("M7", 3)})
    )
    assert (shown.text("text"), shown.units()) == ("FIRE", ["E1", name, "M7"])
    shown.deliver(gateway.detail_alert("ALL OUT", {0: Unit("E1", 1)}))
    assert (shown.text("text"), shown.units()) == ("ALL OUT", ["E1"])


# Valid JSON, of which a browser would take the second text.
FALSE_END = 'http://x/", "units":[], "alert_area":"FALSE ALARM", "map_url":"'


@pytest.mark.parametrize("address", ['http://x/"', '", "units":[', FALSE_END])
def test_quotation_mark_in_a_map_address_hides_no_alert(shown: Shown, address: str) -> None:
    shown.deliver(gateway.detail_alert("FIRE", {0: Unit("E1", 1)}))
    shown.deliver(gateway.set_map_address(address))
    assert (shown.text("text"), shown.units()) == ("FIRE", ["E1"])


# What divides a document, so that generated names and addresses often contain it.
DIVIDERS = [
    *(
        b'"',
        b'"}',
        b'","',
        b'","color":"',
        b'","color":"5"}',
        b"{",
        b'{"unit":"',
        b"]}]",
        b'", "units":[',
    ),
    *(
        b'", "map_url":"',
        b'"alert_area":"',
        b",",
        b"\\",
        b"\\u0022",
        b"&quot;",
        b"\n",
        b"\xc3",
        b"\xff",
        b" ",
    ),
]


def generated_bytes(chance: random.Random, longest: int) -> bytes:
    content = b""
    for _ in range(chance.randrange(8)):
        content += chance.choice([*DIVIDERS, chance.randbytes(chance.randrange(1, 9))])
    return content.replace(b"\0", b"0")[:longest]


def as_meant(content: bytes) -> str:
    """A text as the page decodes it."""
    kept = bytes(byte if byte >= 0x20 else 0x20 for byte in content)
    try:
        return kept.decode()
    except UnicodeDecodeError:
        return kept.decode("latin-1")


def read(stage: Stage, documents: list[bytes]) -> list[dict[str, Any]]:
    texts = [document.decode("latin-1") for document in documents]
    return list(stage.script("return arguments[0].map(alert_document.read)", texts))


def test_no_bytes_in_names_and_addresses_hide_a_text(stage: Stage) -> None:
    stage.open()
    chance = random.Random(13)
    texts: list[str] = []
    names: list[list[bytes]] = []
    addresses: list[bytes] = []
    documents: list[bytes] = []
    for number in range(5000):
        texts.append(f"FIRE {number}\n" + chance.choice(['6" <HOSE> & \\', "", "/\t", "é"]))
        names.append([generated_bytes(chance, 31) for _ in range(chance.randrange(17))])
        addresses.append(b"http://" + generated_bytes(chance, 4000))
        units = [Unit(name, 7) for name in names[-1]]
        documents.append(alert_document(texts[-1], units, address=addresses[-1]))
    shown = read(stage, documents)
    assert [document["text"] for document in shown] == texts
    # A name that contains the end of a unit, and an address that contains the beginning of the units,
    # cannot always be told from two names.
    plain = [
        number
        for number in range(5000)
        if not any(b'"color":"' in name for name in names[number])
        and b'"units":[' not in addresses[number]
    ]
    assert len(plain) > 500
    for i in plain:
        meant = [as_meant(name) for name in names[i]]
        assert [unit["name"] for unit in shown[i]["units"]] == meant, documents[i]


DRAW_EACH = """
    var documents = arguments[0], done = arguments[1], seen = [], draw = view.draw;
    view.draw = function (date, news) {
        draw(date, news);
        seen.push(document.getElementById('first').innerText);
        if (seen.length === documents.length) {
            view.draw = draw;
            done(seen);
        } else {
            station_page.give(documents[seen.length]);
        }
    };
    station_page.give(documents[0]);"""


def test_no_bytes_in_names_and_addresses_keep_a_text_off_the_screen(stage: Stage) -> None:
    stage.open()
    chance = random.Random(31)
    documents = []
    for number in range(300):
        units = [Unit(generated_bytes(chance, 31), 7) for _ in range(chance.randrange(17))]
        address = b"http://127.0.0.1:9/" + generated_bytes(chance, 4000)
        documents.append(alert_document(f"FIRE {number}", units, address=address))
    texts = [document.decode("latin-1") for document in documents]
    assert stage.wait_script(DRAW_EACH, texts) == [f"FIRE {number}" for number in range(300)]


def test_map_is_told_from_the_units_whatever_their_names(stage: Stage) -> None:
    stage.open()
    names = ['", "units":[', '", "units":[]}]', '"}]}]', '","color":"1"}]}]']
    documents = [alert_document("FIRE", [Unit(name, 1)], address="http://map/") for name in names]
    for name, document in zip(names, read(stage, documents)):
        assert document["map"] == "http://map/"
        assert [unit["name"] for unit in document["units"]] == [name]


def test_document_cut_anywhere_is_none(stage: Stage) -> None:
    stage.open()
    whole = alert_document("FIRE", [Unit('"E1', 1)], address='http://x/"y')
    read_parts = read(stage, [whole[:length] for length in range(len(whole) + 1)])
    assert [part is not None for part in read_parts] == [False] * len(whole) + [True]


@pytest.mark.parametrize(
    "text, seen",
    [
        ('AT&T <b> "x" &amp;lt; \\ / é €', 'AT&T <b> "x" &amp;lt; \\ / é €'),
        (b"caf\xe9 \xfc", "café ü"),
        (b"a\x01b\x1fc\x7f", "a b c"),
    ],
)
def test_text_is_shown_as_it_was_meant(shown: Shown, text: str | bytes, seen: str) -> None:
    shown.deliver(gateway.detail_alert(text))
    assert shown.text("text").rstrip("\x7f") == seen


@pytest.mark.parametrize(
    "text, meant",
    [
        ("&lt;&gt;&quot;&apos;", "<>\"'"),
        ("&amp;lt;", "&lt;"),
        ("&#65;&#x42;&#xfffd;", "AB\ufffd"),
        *((text, text) for text in ("&#0;", "&#65536;", "&none;", "&constructor;", "&LT;", "&lt")),
    ],
)
def test_references_are_those_that_the_service_writes(
    script_page: Shown, text: str, meant: str
) -> None:
    decoded = script_page.script("return document_text.decode_references(arguments[0])", text)
    assert decoded == meant


def test_timer_counts_up_if_the_document_says_so(stage: Stage) -> None:
    stage.open()
    documents = [alert_document("FIRE", reverse=reverse) for reverse in (0, 1, 255)]
    assert [part["is_reverse"] for part in read(stage, documents)] == [False, True, True]


def test_name_cut_within_a_character_spoils_no_other_text(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("É", {0: Unit("x" * 30 + "É", 1)}))
    assert shown.text("text") == "É"


@pytest.mark.parametrize(
    "text",
    [
        "",
        '[{"alert_type":"hdtv_alert", "show_turnout_ti',
        "null",
        "[]",
        "[null]",
        '[{"alert_type":"hdtv_alert"}]',
        "{}{}",
    ],
)
def test_page_takes_no_document_that_is_not_one(script_page: Shown, text: str) -> None:
    assert script_page.script("return alert_document.read(arguments[0])", text) is None


@pytest.mark.parametrize(
    "member, value",
    [
        ("units", "5"),
        ("alert_area", "5"),
        ("alert_time", '"soon"'),
        ("alert_time", '"-1"'),
        ("map_url", "null"),
    ],
)
def test_page_takes_no_document_with_a_member_of_another_kind(
    script_page: Shown, member: str, value: str
) -> None:
    text = script_page.station.document_text()
    good = '"units":[]' if member == "units" else text[text.index(f'"{member}":') :].split(",")[0]
    bad = text.replace(good, f'"{member}":{value}')
    assert bad != text
    assert script_page.script("return alert_document.read(arguments[0])", text) is not None
    assert script_page.script("return alert_document.read(arguments[0])", bad) is None


WHOLE_UNIT = '{"unit":"E1","color":"2"}'


@pytest.mark.parametrize("unit", ["null", '{"unit":"E1"}', '{"color":"2"}', '{"unit":1,"color":2}'])
def test_page_takes_no_unit_that_is_not_one(script_page: Shown, unit: str) -> None:
    """In a document that is not written as the service writes it, and is read as JSON."""
    text = "[ " + script_page.station.document_text().removeprefix("[")
    good, bad = (text.replace('"units":[]', f'"units":[{x}]') for x in (WHOLE_UNIT, unit))
    read = "return alert_document.read(arguments[0])"
    assert script_page.script(read, good)["units"] == [{"name": "E1", "color": 2}]
    assert script_page.script(read, bad) is None
