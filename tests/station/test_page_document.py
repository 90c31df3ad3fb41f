"""What an alert document cannot do to the station page."""

import pytest
from page_support import Shown

from simulation import gateway
from simulation.gateway import Unit, deliver
from simulation.waiting import wait_for

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


def test_quotation_mark_in_a_name_keeps_the_last_good_document(shown: Shown) -> None:
    shown.deliver(gateway.detail_alert("FIRE", {0: Unit("E1", 1)}))
    deliver(shown.station, gateway.detail_alert("MORE", {0: Unit('"}],x', 1)}))
    shown.let_time_pass(11)
    wait_for(lambda: shown.text("mark").startswith("no news since "), "the mark")
    assert (shown.text("text"), shown.units()) == ("FIRE", ["E1"])
    shown.deliver(gateway.detail_alert("ALL OUT", {0: Unit("E1", 1)}))
    assert shown.text("text") == "ALL OUT"
    wait_for(lambda: shown.text("mark") == "", "no mark")


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
        ("units", "[5]"),
        ("units", '[{"unit":"E1","color":5}]'),
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
