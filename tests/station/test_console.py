"""The console in a real browser, with a unit whose browser is a real one too."""

import json
import os
import signal
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest
from browser_support import Browser, open_driver
from command_support import read_until_line, run_command, running_command
from console_support import Bench, open_bench
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.remote.webdriver import WebDriver
from selenium.webdriver.remote.webelement import WebElement
from selenium.webdriver.support.select import Select

from simulation.console.incidents import INCIDENTS
from simulation.gateway import NoRecords
from simulation.unit_handles import TOOLS
from simulation.waiting import wait_for

# The station does not depend on how the service is built.
pytestmark = [pytest.mark.once, pytest.mark.browser]

SIZE = (1280, 720)


class Page:
    """The console in a window, operated like a person does."""

    def __init__(self, driver: WebDriver, bench: Bench) -> None:
        self.driver = driver
        self.bench = bench
        self.pressed: set[str] = set()

    def download_to(self, folder: Path) -> None:
        to = {"behavior": "allow", "downloadPath": str(folder)}
        self.driver.execute("executeCdpCommand", {"cmd": "Page.setDownloadBehavior", "params": to})

    def open(self) -> None:
        self.driver.get(self.bench.console.address)
        self.wait("return document.body.dataset.ready === 'yes'", "the first state")

    def script(self, text: str, *arguments: object) -> Any:
        return self.driver.execute_script(text, *arguments)

    def wait(self, script: str, what: str) -> None:
        wait_for(lambda: bool(self.script(script)), what)

    def find(self, selector: str) -> WebElement:
        return self.driver.find_element("css selector", selector)

    def text(self, selector: str) -> str:
        return str(self.script("return document.querySelector(arguments[0]).textContent", selector))

    def press(self, selector: str, effect: Callable[[], object]) -> None:
        """And waits for its effect in the station."""
        button = self.find(selector)
        self.pressed.add(self.script(NAME + "return name(arguments[0])", button))
        button.click()
        wait_for(lambda: bool(effect()), f"the effect of {selector}")

    def toggle(self, selector: str, is_so: Callable[[], object]) -> None:
        """There and back, and the button shows which it is."""
        for word, effect in (("true", is_so), ("false", lambda: not is_so())):
            self.press(selector, effect)
            button = self.find(selector)
            wait_for(
                lambda: button.get_attribute("aria-pressed") == word, f"{selector}: {word}", 20
            )

    def says(self, text: str, since: int) -> bool:
        """Whether the station's timeline has said so since then."""
        return any(text in event.text for event in self.bench.handles.events.since(since))

    @property
    def now(self) -> int:
        events = self.bench.handles.events.since()
        return events[-1].number if events else 0


# What a person knows a button by.
NAME = """
function name(button) {
    const data = button.dataset;
    return button.id || data.input || data.incident || data.source ||
        button.getAttribute("aria-label") || button.textContent;
}
"""


@pytest.fixture(scope="module")
def driver() -> Iterator[WebDriver]:
    with open_driver() as opened:
        Browser(opened, 0).resize(*SIZE)
        yield opened


@pytest.fixture(scope="module")
def bench() -> Iterator[Bench]:
    with open_bench(has_browser=True) as opened:
        yield opened


@pytest.fixture
def page(driver: WebDriver, bench: Bench) -> Iterator[Page]:
    opened = Page(driver, bench)
    opened.open()
    yield opened
    bench.handles.undo_all()
    complaints = driver.execute("getLog", {"type": "browser"})["value"]
    assert [x["message"] for x in complaints if x["source"] in ("javascript", "security")] == []


def press_the_remote_control(page: Page) -> None:
    tv = page.bench.handles.tv
    page.press("#power", lambda: tv.power == "in standby")
    page.press("#power", lambda: tv.power == "on")
    for address in ("0.0.0.0", "2.0.0.0", "3.0.0.0", "1.0.0.0"):
        page.press(f"[data-input='{address}']", lambda: tv.input == address)
    for habit in ("deaf", "slow", "stubborn"):
        page.toggle(f"#{habit}", lambda: tv.state()[habit])
    page.toggle("#cable", lambda: tv.state()["cable"] == "out")


def press_the_incidents(page: Page) -> None:
    page.press("#tab-incidents", lambda: page.find("#incidents").is_displayed())
    for incident in INCIDENTS:
        since = page.now
        page.press(
            f"[data-incident='{incident.name}']",
            lambda: page.says(f"sends: {incident.words}", since),
        )
    page.press("[data-incident='end']", lambda: not page.bench.handles.view.document()["units"])


def press_what_sends(page: Page) -> None:
    page.press("#tab-message", lambda: page.find("#message").is_displayed())
    page.find("#field-text").send_keys("FROM THE FORM")
    page.press("#add-unit", lambda: page.find("[aria-label='Remove unit 1']"))
    page.press("#add-unit", lambda: page.find("[aria-label='Remove unit 2']"))
    page.press(
        "[aria-label='Remove unit 2']",
        lambda: not page.driver.find_elements("css selector", "[aria-label='Remove unit 2']"),
    )
    Select(page.find("[aria-label='Color of unit 1']")).select_by_value("7")
    page.find("#field-turnout_zero").clear()
    page.wait("return /FROM THE FORM/.test(explanation.textContent)", "the explanation")
    document = page.bench.handles.view.document
    page.press("#send", lambda: document()["alert_area"] == "FROM THE FORM")
    assert document()["units"] == [{"unit": "E1", "color": "7"}]
    Select(page.find("#message-name")).select_by_value("raw")
    page.find("#field-hex").send_keys("33 01")
    page.wait("return /detail alert, 2 bytes/.test(explanation.textContent)", "the explanation")
    page.press("#send", lambda: document()["alert_area"] == "")
    Select(page.find("#message-name")).select_by_value("roll-call")
    received = len(page.bench.handles.gateway.received())
    page.press("#send", lambda: len(page.bench.handles.gateway.received()) > received)
    page.press("#tab-received", lambda: "roll-call reply" in page.text("#records"))
    assert page.text("#records-note") == "What the unit sent to port 5000 of 10.87.33.20."
    with pytest.MonkeyPatch.context() as context:
        context.setattr(page.bench.handles.gateway, "_records", NoRecords())
        wait_for(lambda: "Another gateway" in page.text("#records-note"), "the note")


def press_what_breaks_the_unit(page: Page) -> None:
    handles = page.bench.handles
    page.press("#tab-break", lambda: page.find("#break").is_displayed())
    page.toggle("#dhcp", lambda: handles.unit.is_dhcp_on)
    page.toggle("#address", lambda: handles.view.address() is None)
    page.toggle("#browser-hung", lambda: "T" in [x.state for x in handles.view.processes()])
    started = len(page.bench.station.calls("qt-webkit-kiosk"))
    page.toggle("#browser-killed", lambda: "browser" in handles.unit.broken())
    page.bench.station.wait_for_calls("qt-webkit-kiosk", started + 1)
    page.toggle("#web-server", lambda: not handles.view.find_processes("lighttpd"))
    page.toggle("#memory", lambda: os.statvfs(page.bench.station.path("/dev/shm")).f_bfree == 0)
    page.toggle("#clock", lambda: "clock" in handles.unit.broken())
    for tool in TOOLS:
        usual = page.bench.station.behavior(tool)
        first = lambda: page.bench.station.behavior(tool)[:1]
        page.press(f"[aria-label='{tool} fails']", lambda: first() == ["exit 1"])
        page.toggle(f"[aria-label='{tool} slow']", lambda: first() == ["sleep 5"])
        assert page.bench.station.behavior(tool) == usual
    handles.unit.fail("wget")
    page.press("#undo", lambda: handles.unit.broken() == {})
    started = len(page.bench.station.calls("qt-webkit-kiosk"))
    page.press("#reset", lambda: len(page.bench.station.calls("qt-webkit-kiosk")) > started)


def press_what_shows_the_unit(page: Page) -> None:
    page.press("#tab-document", lambda: "alert_area" in page.text("#document-members"))
    page.bench.do("/unit/mark")
    page.bench.do("/gateway/send", message="display-alert", text="NEW")
    page.wait("return document.querySelectorAll('dd.changed').length > 2", "the changes")
    assert "NEW" in page.text("#document-text")
    page.press("#mark", lambda: page.script("return !document.querySelector('dd.changed')"))
    page.bench.do("/gateway/incident", name="end")
    page.press("#tab-health", lambda: " of 900" in page.text("#kicks-left"))
    assert "10.87.33.20" in page.text("#configuration") + page.text("#current-gateway")
    page.press("#tab-processes", lambda: "/run/station/bin/hdtv" in page.text("#process-rows"))


def press_what_filters_the_timeline(page: Page, downloads: Path) -> None:
    def lines() -> int:
        return int(page.text("#count").split()[0])

    for button in page.driver.find_elements("css selector", "#sources button"):
        source = button.get_attribute("data-source")
        page.bench.handles.events.add(str(source), "one")
        page.wait("return count.textContent.match(/^(\\d+) of \\1 /)", "all of them")
        page.press(
            f"[data-source='{source}']",
            lambda: page.script("return !count.textContent.match(/^(\\d+) of \\1 /)"),
        )
        page.press(
            f"[data-source='{source}']",
            lambda: page.script("return count.textContent.match(/^(\\d+) of \\1 /)"),
        )
    page.press("#pause", lambda: page.find("#pause").get_attribute("aria-pressed") == "true")
    page.bench.handles.events.add("station", "while paused")
    page.wait("return / since the pause/.test(count.textContent)", "the count")
    page.press("#pause", lambda: "pause" not in page.text("#count"))
    page.find("#search").send_keys("while paused")
    wait_for(lambda: lines() == 1, "what was searched")
    page.find("#search").send_keys(Keys.CONTROL, "a", Keys.DELETE)
    page.download_to(downloads)
    saved = downloads / "timeline.jsonl"
    page.press("#save", saved.exists)
    texts = [json.loads(line)["text"] for line in saved.read_text().splitlines()]
    assert "while paused" in texts


def test_every_button_does_what_it_says(page: Page, tmp_path: Path) -> None:
    press_the_remote_control(page)
    press_the_incidents(page)
    press_what_sends(page)
    press_what_breaks_the_unit(page)
    press_what_shows_the_unit(page)
    press_what_filters_the_timeline(page, tmp_path)
    there_are = set(page.script(NAME + "return [...document.querySelectorAll('button')].map(name)"))
    assert there_are - page.pressed == set()
    assert page.text("#errors") == ""


def test_television_shows_the_units_real_screen(page: Page) -> None:
    page.bench.do("/tv/power", power="on")
    page.bench.do("/tv/input", input="1.0.0.0")
    since = page.now
    page.bench.do("/gateway/incident", name="fire")
    wait_for(lambda: page.says("the page has drawn the document", since), "the picture")
    page.wait("return document.getElementById('screen').naturalWidth === 1280", "a picture")
    # The alert's frame is red, which nothing else on the page is.
    page.wait(
        "const image = document.getElementById('screen');"
        "const canvas = document.createElement('canvas');"
        "canvas.width = 1280; canvas.height = 720;"
        "const context = canvas.getContext('2d');"
        "context.drawImage(image, 0, 0);"
        "const [red, green] = context.getImageData(5, 360, 1, 1).data;"
        "return red > 120 && green < 90 && overlay.hidden",
        "the alert on the television",
    )
    for action, words in (
        (lambda: page.bench.do("/tv/cable", state="out"), "no signal"),
        (lambda: page.bench.do("/tv/input", input="3.0.0.0"), "input 3.0.0.0"),
        (lambda: page.bench.do("/tv/power", power="off"), ""),
    ):
        action()
        page.wait(f"return !overlay.hidden && overlay.textContent === '{words}'", words)
    page.bench.do("/undo")
    page.bench.do("/tv/power", power="on")
    page.bench.do("/tv/input", input="1.0.0.0")
    measured = page.text("#measure")
    assert "structure fire" in measured and "document +" in measured and "picture +" in measured
    page.bench.do("/gateway/incident", name="end")


def test_keyboard_alone_operates_it(page: Page) -> None:
    def focused() -> str:
        return str(page.script(NAME + "return name(document.activeElement) || ''"))

    def strike(*keys: str) -> None:
        ActionChains(page.driver).send_keys(*keys).perform()

    def tab_to(name: str) -> None:
        for _ in range(120):
            if focused() == name:
                # Whoever looks sees where they are.
                outline = "return getComputedStyle(document.activeElement).outlineStyle"
                assert page.script(outline) == "solid"
                return
            strike(Keys.TAB)
        raise AssertionError(f"the tabulator does not lead to {name}")

    handles = page.bench.handles
    power = handles.tv.power
    tab_to("power")
    strike(Keys.SPACE)
    wait_for(lambda: handles.tv.power != power, "the power")
    strike(Keys.ENTER)
    wait_for(lambda: handles.tv.power == power, "the power")
    tab_to("tab-incidents")
    strike(Keys.ARROW_RIGHT)
    assert focused() == "tab-message" and page.find("#message").is_displayed()
    tab_to("field-text")
    strike("TYPED")
    tab_to("field-turnout_end")
    strike(Keys.ENTER)  # sends the form
    wait_for(lambda: handles.view.document().get("alert_area") == "TYPED", "the alert")
    tab_to("tab-break")
    strike(Keys.END)
    assert focused() == "tab-processes" and page.find("#processes").is_displayed()
    strike(Keys.HOME)
    tab_to("memory")
    strike(Keys.SPACE)
    wait_for(lambda: "memory" in handles.unit.broken(), "the breakage")
    tab_to("log")
    strike(Keys.HOME)
    page.wait("return log.querySelector('[aria-selected=true]')?.dataset.at === '0'", "the first")
    first = handles.events.since()[0].text
    assert first in page.text("#log [aria-selected=true]")
    strike(Keys.ENTER)
    page.wait(f"return measure.textContent.includes({json.dumps(first[:20])})", "the axis's zero")
    strike(Keys.END)
    page.wait("return log.scrollTop > 0", "the end of the list")
    page.bench.do("/gateway/incident", name="end")


def test_all_of_it_can_be_read_at_1280_by_720(page: Page) -> None:
    problems = page.script(
        """
        const found = [];
        const root = document.documentElement;
        if (root.scrollWidth > 1280 || root.scrollHeight > 720) {
            found.push(`the page is ${root.scrollWidth} by ${root.scrollHeight}`);
        }
        for (const tab of document.querySelectorAll("[role=tab]")) {
            tab.click();
            for (const element of document.querySelectorAll("body *")) {
                const style = getComputedStyle(element);
                const has_text = [...element.childNodes].some((x) => x.nodeType === 3 && x.data.trim());
                if (has_text && element.checkVisibility() && parseFloat(style.fontSize) < 12) {
                    found.push(`small: ${element.textContent}`);
                }
            }
            for (const panel of document.querySelectorAll("section, [role=tabpanel]")) {
                if (panel.checkVisibility() && panel.scrollWidth > panel.clientWidth + 1) {
                    found.push(`${panel.id} is too wide`);
                }
            }
        }
        const set = document.getElementById("television");
        if (set.scrollHeight > set.clientHeight) {
            found.push("the television has to be scrolled");
        }
        for (const control of document.querySelectorAll("button, input, select, textarea, [tabindex]")) {
            const labelled = control.getAttribute("aria-labelledby");
            const name = control.getAttribute("aria-label") || control.textContent.trim() ||
                (control.labels && control.labels.length && control.labels[0].textContent) ||
                (labelled && document.getElementById(labelled).textContent);
            if (!name) {
                found.push(`without a name: ${control.outerHTML}`);
            }
        }
        return found;
        """
    )
    assert problems == []


def test_two_consoles_show_the_same(page: Page) -> None:
    first = page.driver.current_window_handle
    page.driver.switch_to.new_window("tab")
    page.open()
    page.press("#deaf", lambda: page.bench.television.is_deaf)
    page.driver.switch_to.window(first)
    page.wait("return deaf.ariaPressed === 'true'", "the other console's change")
    page.press("#deaf", lambda: not page.bench.television.is_deaf)
    page.driver.switch_to.window(page.driver.window_handles[1])
    page.wait("return deaf.ariaPressed === 'false'", "the other console's change")
    page.driver.close()
    page.driver.switch_to.window(first)


# Draws the list somewhere else; returns how often that has read one of the thousands of lines in
# between, and how many rows it has drawn.
DRAW = """
const done = arguments[0];
import("/timeline.js").then(({ all_events }) => {
    const events = all_events();
    const event = events[events.length - 5000];
    const source = event.source;
    let reads = 0;
    Object.defineProperty(event, "source", { get() { reads++; return source; } });
    const before = rows.firstChild.dataset.at;
    log.scrollTop = 2000;
    const look = () => rows.firstChild.dataset.at === before ? requestAnimationFrame(look) :
        done([reads, rows.children.length]);
    look();
});
"""


def test_ten_thousand_lines_stay_few_elements(page: Page) -> None:
    for number in range(10_000):
        page.bench.handles.events.add("station", f"line {number}")
    page.wait("return /line 9999/.test(rows.lastChild.textContent)", "the last line")
    drawn = page.script("return document.querySelectorAll('.event').length")
    assert 0 < drawn < 60
    page.script("log.scrollTop = 0")
    first = page.bench.handles.events.since()[0].text
    page.wait(f"return rows.firstChild.textContent.includes({json.dumps(first)})", "the first line")
    reads, rows = page.driver.execute_async_script(DRAW)
    # The axis reads it with each new line: at most a few come meanwhile.
    assert reads < rows / 4
    page.find("#search").send_keys("line 4321")
    page.wait("return /^1 of /.test(count.textContent)", "what was searched")
    assert page.script("return document.querySelectorAll('.event').length") == 1


def test_station_ends_under_a_console_that_is_open(driver: WebDriver) -> None:
    """It is operated by commands too, and another console finds its port taken."""
    name = f"test-{os.getpid()}-console"
    with running_command("--name", name, "--console", "0") as running:
        assert running.stdout
        line = next(line for line in running.stdout if "its console" in line)
        assert "for this machine only: http://127.0.0.1:" in line
        read_until_line(running, "the station is yours")
        driver.get(line.split()[-1])
        ready = "return document.body.dataset.ready === 'yes'"
        wait_for(lambda: bool(driver.execute_script(ready)), "the page")
        assert run_command("--name", name, "tv", "input", "3.0.0.0").returncode == 0
        read_until_line(running, "3.0.0.0")
        assert run_command("--name", name, "tv", "off").returncode == 0
        assert run_command("--name", name, "fail", "wget").returncode == 0
        failed = run_command("--name", name, "fail", "nothing")
        assert failed.returncode == 1 and '"wget"' in failed.stderr
        state = json.loads(run_command("--name", name, "state").stdout)
        assert state["tv"]["power"] == "in standby" and "wget" in state["unit"]["broken"]
        running.send_signal(signal.SIGINT)
        _, errors = running.communicate(timeout=30)
    assert (running.returncode, errors) == (130, "")
    lost = "return document.getElementById('link').className === 'lost'"
    wait_for(lambda: bool(driver.execute_script(lost)), "the page's notice")
    assert "is running here" in run_command("--name", name, "tv", "on").stderr
    driver.get("about:blank")
    driver.execute("getLog", {"type": "browser"})
