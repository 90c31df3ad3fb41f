"""The browser's pictures, window and proxy."""

import html
import os
import subprocess
import zlib
from pathlib import Path

import pytest
from command_support import run_command
from page_support import show
from support import StationMaker

from simulation import gateway, kiosk
from simulation.demo.cases import CASES
from simulation.process import dying_with_starter
from simulation.waiting import wait_for

pytestmark = pytest.mark.once


def test_window_without_a_display_is_refused() -> None:
    result = subprocess.run(
        ["/usr/bin/python3", "-m", "simulation.demo", "--window"],
        cwd=Path(kiosk.__file__).parents[1],
        env={key: value for key, value in os.environ.items() if key != "DISPLAY"},
        capture_output=True,
        text=True,
    )
    assert result.returncode == 2
    assert "--window needs a display, and DISPLAY names none" in result.stderr


def pixels(picture: Path) -> set[int]:
    """The byte values in a PNG's rows, without their filter types."""
    content, data, place = picture.read_bytes(), b"", 8
    while place < len(content):
        size = int.from_bytes(content[place : place + 4], "big")
        if content[place + 4 : place + 8] == b"IDAT":
            data += content[place + 8 : place + 8 + size]
        place += 12 + size
    rows, width = zlib.decompress(data), 1 + 3 * kiosk.SIZE[0]
    return {value for row in range(kiosk.SIZE[1]) for value in rows[row * width + 1 :][: width - 1]}


@pytest.mark.browser
def test_pictures_show_what_a_viewer_sees(tmp_path: Path) -> None:
    name = f"pictures-{os.getpid()}"
    result = run_command("--once", "--pause", "0", "--name", name, "--pictures", str(tmp_path))
    assert result.returncode == 0, result.stdout + result.stderr
    pictures = sorted(tmp_path.glob("*.png"))
    steps = int(result.stdout.partition("was observed, all ")[2].partition(" steps")[0])
    assert len(pictures) == steps + len(CASES)
    for picture in pictures:
        assert picture.read_bytes()[16:24] == b"\0\0\x05\0\0\0\x02\xd0"  # 1280 by 720
    by_step = {picture.name[3:].split("-")[0] + picture.name[:2]: picture for picture in pictures}
    assert pixels(by_step["roll02"]) == {0}  # the television is in standby
    other_input = by_step["somebody14"].read_bytes()
    assert by_step["end16"].read_bytes() == other_input
    assert len(pixels(by_step["somebody14"])) > 2
    shown = ("detail09", "map10", "the11", "stop12", "display15", "somebody17")
    cases = pictures[steps:]
    different = [other_input, *(by_step[x].read_bytes() for x in shown)]
    different += [picture.read_bytes() for picture in cases]
    assert len({*different}) == len(different)
    check_sheet(tmp_path, pictures, result.stdout)


def check_sheet(directory: Path, pictures: list[Path], output: str) -> None:
    """Each picture is on it, with the words that were said; a black one says why it is black."""
    sheet = (directory / "index.html").read_text()
    figures = sheet.split("<figure>")[1:]
    words = [html.unescape(x.partition("</b> ")[2].partition("<br>")[0]) for x in figures]
    assert words[-len(CASES) :] == [case.caption for case in CASES]
    for picture, figure, said in zip(pictures, figures, words, strict=True):
        assert f'src="{picture.name}"' in figure
        assert f"  station   {said}\n" in output or f"  gateway   sends: {said}\n" in output
        assert (pixels(picture) == {0}) == ("the television is in standby" in figure), said


@pytest.mark.browser
def test_browser_opens_a_window_where_there_is_a_display(make_station: StationMaker) -> None:
    read, write = os.pipe()
    command = ["Xvfb", "-displayfd", str(write), "-screen", "0", "1400x900x24", "-nolisten", "tcp"]
    with subprocess.Popen(
        # With a signal that leaves it time to remove its files.
        dying_with_starter(command, "TERM"),
        pass_fds=[write],
        stderr=subprocess.DEVNULL,
    ) as server:
        os.close(write)
        try:
            display = ":" + os.read(read, 16).decode().strip()
            for shown in show(make_station(has_display=True), {"DISPLAY": display}):
                shown.deliver(gateway.detail_alert("FIRE"))
                assert shown.text("text") == "FIRE"
                assert shown.script("return [outerWidth, outerHeight]") == list(kiosk.SIZE)
        finally:
            os.close(read)
            server.terminate()


@pytest.mark.browser
def test_proxy_settings_become_the_browsers(make_station: StationMaker) -> None:
    station = make_station()
    settings = "/usr/etc/xdg/QtWebkitKiosk/proxy.ini"
    station.path(settings).write_text("[proxy]\nhost=10.87.33.20\nport=8888\n")
    station.use_real_browser()
    with gateway.accepting_proxy(station):
        station.start_service()
        station.wait_for_calls("qt-webkit-kiosk")
        flag = "--proxy-server=10.87.33.20:8888"
        wait_for(lambda: flag in station.run("ps", "axww", "-o", "args"), "the browser's proxy")
