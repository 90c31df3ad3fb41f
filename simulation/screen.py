"""The kiosk browser's screen, seen and driven through its WebDriver."""

from selenium import webdriver
from selenium.common.exceptions import WebDriverException
from selenium.webdriver.remote.webdriver import WebDriver

from simulation import kiosk
from simulation.forward import Forward
from simulation.station import Station
from simulation.waiting import wait_for

_DRIVER = "/usr/bin/chromedriver"
_DRIVER_PORT = 9515


def page_text(document: str) -> str:
    """How the page holds a document's text: it maps bytes above ASCII to private-use characters."""
    content = document.encode(errors="surrogateescape")
    return "".join(chr(byte if byte < 0x80 else 0xF700 + byte) for byte in content)


# What the page has drawn last, in that form.
DRAWN = "typeof station_page === 'object' && station_page.drawn"


class Screen:
    """The station's kiosk must be a real browser. Use it in a with statement."""

    def __init__(self, station: Station) -> None:
        self._station = station
        self._process = station.start(_DRIVER, f"--port={_DRIVER_PORT}")
        wait_for(lambda: station.listen_queue(_DRIVER_PORT) is not None, "the WebDriver")
        self._forward = Forward(station, _DRIVER_PORT)
        self._driver: WebDriver | None = None
        self._browsers = 0

    def __enter__(self) -> "Screen":
        return self

    def __exit__(self, *_: object) -> None:
        self._process.kill()
        self._forward.__exit__()

    @property
    def driver(self) -> WebDriver:
        """Drives the browser that the service started last."""
        browsers = len(self._station.wait_for_calls("qt-webkit-kiosk"))
        if self._driver is None or browsers != self._browsers:
            self._driver = wait_for(self._attach, "the browser")
            self._browsers = browsers
        assert self._driver is not None
        return self._driver

    def _attach(self) -> WebDriver | None:
        if self._station.listen_queue(kiosk.DEBUGGING_PORT) is None:
            return None
        options = webdriver.ChromeOptions()
        options.debugger_address = f"127.0.0.1:{kiosk.DEBUGGING_PORT}"
        try:
            return self._connect(options)
        except WebDriverException:
            return None

    def _connect(self, options: webdriver.ChromeOptions) -> WebDriver:
        address = f"http://127.0.0.1:{self._forward.port}"
        return webdriver.Remote(command_executor=address, options=options)

    def picture(self) -> bytes:
        """A PNG of the current screen."""
        return bytes(self.driver.get_screenshot_as_png())

    def text(self, name: str) -> str:
        """The visible text of a page element; empty while it is hidden."""
        return str(self.driver.find_element("id", name).text)

    def has_drawn_document(self) -> bool:
        """Whether the page has drawn the current alert document."""
        text = page_text(self._station.document_text())
        return bool(self.driver.execute_script("return " + DRAWN) == text)

    def wait_until_drawn(self) -> None:
        wait_for(self.has_drawn_document, f"on the screen: {self._station.document_text()}")

    def wait_for_map(self) -> None:
        script = "return map_panel.is_settled()"
        wait_for(lambda: self.driver.execute_script(script), "the map")

    def render(self, style: str, text: str) -> bytes:
        """A text drawn at screen size by a separate browser, as a PNG."""
        width, height = kiosk.SIZE
        page = f"<div id=card style='width:{width}px;height:{height}px;{style}'>{text}"
        options = webdriver.ChromeOptions()
        options.binary_location = kiosk.BROWSER
        # Larger than the picture: the browser uses part of the window for itself.
        screen = f"--screen-info={{{2 * width}x{2 * height}}}"
        for flag in [*kiosk.FLAGS, "--headless", "--kiosk", screen]:
            options.add_argument(flag)
        driver = self._connect(options)
        try:
            driver.get("data:text/html;charset=utf-8," + page)
            return bytes(driver.find_element("id", "card").screenshot_as_png)
        finally:
            driver.quit()
