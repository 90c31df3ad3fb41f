"""The folder of the pages, opened as anybody would: a plain web server and a browser."""

import contextlib
import subprocess
from collections.abc import Iterator
from typing import Any

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

from simulation import kiosk
from simulation.station import dying_with_starter, top_directory

FOLDER = top_directory() / "station_web"


class Folder:
    """A browser that shows the folder's pages, at any size."""

    def __init__(self, driver: webdriver.Chrome, port: int) -> None:
        self._driver = driver
        self._port = port

    def open(self, page: str, width: int = 1280, height: int = 720, ratio: float = 1) -> None:
        """It remembers nothing of the pages before."""
        origin = f"http://127.0.0.1:{self._port}"
        self._driver.execute_cdp_cmd(
            "Storage.clearDataForOrigin", {"origin": origin, "storageTypes": "local_storage"}
        )
        self.resize(width, height, ratio)
        self._driver.get(f"{origin}/{page}")

    def resize(self, width: int, height: int, ratio: float = 1) -> None:
        self._driver.execute_cdp_cmd(
            "Emulation.setDeviceMetricsOverride",
            {"width": width, "height": height, "deviceScaleFactor": ratio, "mobile": False},
        )

    def script(self, text: str, *arguments: object) -> Any:
        return self._driver.execute_script(text, *arguments)

    def text(self, name: str) -> str:
        return str(self._driver.find_element("id", name).text)


@contextlib.contextmanager
def plain_web_server() -> Iterator[int]:
    """The command of the README, on a port of its own choice."""
    command = ["/usr/bin/python3", "-u", "-m", "http.server", "0", "--bind", "127.0.0.1"]
    with subprocess.Popen(
        dying_with_starter([*command, "-d", str(FOLDER)]),
        stdout=subprocess.PIPE,
        stderr=subprocess.DEVNULL,
        text=True,
    ) as server:
        try:
            assert server.stdout is not None
            # "Serving HTTP on 127.0.0.1 port 40123 (…) ..."
            yield int(server.stdout.readline().partition(" port ")[2].split()[0])
        finally:
            server.kill()


@contextlib.contextmanager
def open_folder() -> Iterator[Folder]:
    options = webdriver.ChromeOptions()
    options.binary_location = kiosk.BROWSER
    for flag in [*kiosk.FLAGS, "--headless"]:
        options.add_argument(flag)
    with plain_web_server() as port:
        driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        try:
            yield Folder(driver, port)
        finally:
            driver.quit()
