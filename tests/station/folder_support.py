"""The folder of the pages, opened as anybody would: a plain web server and a browser."""

import contextlib
import subprocess
from collections.abc import Iterator

from browser_support import Browser, open_driver

from simulation.places import top_directory
from simulation.process import dying_with_starter

FOLDER = top_directory() / "station_web"


class Folder(Browser):
    """A browser that shows the folder's pages."""

    def open(self, page: str, width: int = 1280, height: int = 720, ratio: float = 1) -> None:
        """It remembers nothing of the pages before."""
        self.forget()
        self.resize(width, height, ratio)
        self._driver.get(f"{self.origin}/{page}")


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
    with plain_web_server() as port, open_driver() as driver:
        yield Folder(driver, port)
