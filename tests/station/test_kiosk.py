"""The kiosk browser's process."""

import signal

from support import is_zombie, start

from simulation import gateway
from simulation.gateway import deliver
from simulation.journal import Call
from simulation.process import Process
from simulation.station import Station
from simulation.waiting import wait_for


def test_browser_is_told_to_die_with_the_service(station: Station, service: Process) -> None:
    (browser,) = station.calls("qt-webkit-kiosk")
    assert browser.parent == "hdtv"
    assert browser.death_signal == signal.SIGKILL
    service.kill()
    wait_for(lambda: not station.path(f"/proc/{browser.pid}").exists(), "the browser's end")


def test_start_line_comes_before_the_browsers_own_output(station: Station) -> None:
    station.behave("qt-webkit-kiosk", "print browser output", "stay")
    service = start(station)
    service.wait_for_output("browser output")
    assert "Starting qt-webkit-kiosk without proxy\nbrowser output\n" in service.output


def test_browser_that_died_stays_a_zombie_until_a_wait_takes_it(station: Station) -> None:
    station.behave("qt-webkit-kiosk", "exit 1")
    start(station)
    (browser,) = station.calls("qt-webkit-kiosk")
    wait_for(lambda: is_zombie(station, browser.pid), "the browser's end")
    deliver(station, gateway.display_alert("FIRE"))
    assert is_zombie(station, browser.pid)
    deliver(station, gateway.set_date("now"))
    assert not station.path(f"/proc/{browser.pid}").exists()


def test_browser_that_died_is_reaped_by_the_next_start(station: Station) -> None:
    station.behave("qt-webkit-kiosk", "exit 1")
    start(station)
    (browser,) = station.calls("qt-webkit-kiosk")
    wait_for(lambda: is_zombie(station, browser.pid), "the browser's end")
    deliver(station, gateway.set_page_address("http://example/"))
    station.wait_for_calls("qt-webkit-kiosk", 2)
    assert not station.path(f"/proc/{browser.pid}").exists()


def test_only_one_browser_runs_at_a_time(station: Station, service: Process) -> None:
    for number in range(5):
        deliver(station, gateway.set_page_address(f"http://example/{number}"))
    # A browser may be replaced before it journals its start; the last one is not.
    wait_for(lambda: browsers(station)[-1].argv[-1] == "http://example/4", "the last browser")
    alive = [call for call in browsers(station) if station.path(f"/proc/{call.pid}").exists()]
    assert [call.argv[-1] for call in alive] == ["http://example/4"]


def browsers(station: Station) -> list[Call]:
    return station.calls("qt-webkit-kiosk")


def test_missing_browser_is_no_obstacle(station: Station) -> None:
    # Without its program the child exits with status 0 and remains a zombie.
    station.run("rm", "/usr/bin/qt-webkit-kiosk")
    service = station.start_service()
    service.wait_for_output("Starting qt-webkit-kiosk without proxy")
    deliver(station, gateway.display_alert("FIRE"))
    assert station.document()["alert_area"] == "FIRE"


def test_address_with_a_query_gets_a_second_question_mark(station: Station) -> None:
    station.write_config('{"rotation":"270"}')
    start(station)
    deliver(station, gateway.set_page_address("http://example/?a=b"))
    call = station.wait_for_calls("qt-webkit-kiosk", 2)[1]
    assert call.argv[-1] == "http://example/?a=b?rotation=270"
