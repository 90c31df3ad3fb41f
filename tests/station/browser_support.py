"""A real browser without a station, for pages that any web server serves."""

import contextlib
from collections.abc import Iterator
from typing import Any

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.remote.webdriver import WebDriver

from simulation import kiosk


class Browser:
    """A window of any size, on the pages of a web server at this port of this machine."""

    def __init__(self, driver: WebDriver, port: int) -> None:
        self._driver = driver
        self.origin = f"http://127.0.0.1:{port}"

    def command(self, name: str, arguments: dict[str, object]) -> None:
        """Of the DevTools protocol."""
        self._driver.execute("executeCdpCommand", {"cmd": name, "params": arguments})

    def resize(self, width: int, height: int, ratio: float = 1) -> None:
        self.command(
            "Emulation.setDeviceMetricsOverride",
            {"width": width, "height": height, "deviceScaleFactor": ratio, "mobile": False},
        )

    def forget(self) -> None:
        """What pages have stored."""
        self.command(
            "Storage.clearDataForOrigin", {"origin": self.origin, "storageTypes": "local_storage"}
        )

    def script(self, text: str, *arguments: object) -> Any:
        return self._driver.execute_script(text, *arguments)

    def text(self, name: str) -> str:
        return str(self._driver.find_element("id", name).text)

    def complaints(self) -> list[str]:
        """The browser's, about the page's scripts."""
        log = self._driver.execute("getLog", {"type": "browser"})["value"]
        return [entry["message"] for entry in log if entry["source"] == "javascript"]

    def picture(self) -> bytes:
        return bytes(self._driver.get_screenshot_as_png())


@contextlib.contextmanager
def open_driver(*more_flags: str) -> Iterator[WebDriver]:
    options = webdriver.ChromeOptions()
    options.binary_location = kiosk.BROWSER
    for flag in [*kiosk.FLAGS, *more_flags, "--headless"]:
        options.add_argument(flag)
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    try:
        yield driver
    finally:
        driver.quit()
