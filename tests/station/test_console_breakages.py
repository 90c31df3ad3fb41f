"""What breaks in the unit by a request to the console, and how it is mended."""

import os
from collections.abc import Callable

import pytest
from console_support import Bench, bench, shared, wait_for_document

from simulation.handle_error import HandleError
from simulation.places import UNIT_ADDRESS
from simulation.waiting import wait_for

__all__ = ["bench", "shared"]  # fixtures

# The station does not depend on how the service is built.
pytestmark = pytest.mark.once


def test_unit_is_broken_and_mended(bench: Bench) -> None:
    view = bench.handles.view
    bench.do("/unit/address", state="lost")
    assert view.address() is None
    assert bench.post("/unit/address", state="lost").status == 409
    bench.do("/unit/address", state="back")
    assert view.address() == UNIT_ADDRESS
    bench.do("/unit/browser", state="hung")
    (browser,) = [x for x in view.processes() if x.name == "qt-webkit-kiosk"]
    assert browser.state == "T"
    bench.do("/unit/browser", state="back")
    wait_for(lambda: [x.state for x in view.processes() if x.pid == browser.pid] == ["S"], "it")
    bench.do("/unit/browser", state="killed")
    assert view.find_processes("qt-webkit-kiosk") == []
    started = len(bench.station.calls("qt-webkit-kiosk"))
    bench.do("/unit/browser", state="back")
    bench.station.wait_for_calls("qt-webkit-kiosk", started + 1)
    bench.do("/unit/web-server", state="killed")
    wait_for(lambda: not view.find_processes("lighttpd"), "the end of the web server")
    bench.do("/unit/web-server", state="back")
    assert view.find_processes("lighttpd")
    left = view.kicks_left()
    assert left is not None and 0 < left <= 900
    assert bench.state()["unit"]["broken"] == {}


def test_documents_that_need_more_memory_are_cut_off_while_it_is_full(bench: Bench) -> None:
    view = bench.handles.view
    bench.do("/gateway/send", message="display-alert", text="SHORT")
    wait_for_document(bench, alert_area="SHORT")
    bench.do("/unit/memory", state="full")
    # Its page is free while it is written anew.
    bench.do("/gateway/send", message="display-alert", text="AS SHORT")
    wait_for_document(bench, alert_area="AS SHORT")
    new = bench.station.path("/dev/shm/new")
    with pytest.raises(OSError, match="No space left"):
        new.write_bytes(b"x")
    assert new.read_bytes() == b""
    new.unlink()
    alert = {"message": "display-alert", "text": 4000 * '"'}
    bench.do("/gateway/send", **alert)
    cut = os.sysconf("SC_PAGE_SIZE")
    wait_for(lambda: len(view.document_text()) == cut, "a document that is cut off")
    assert view.document() == {}
    bench.do("/unit/memory", state="free")
    bench.do("/gateway/send", **alert)
    wait_for_document(bench, alert_area=4000 * "&quot;")
    bench.do("/gateway/incident", name="end")


def test_tools_fail_or_are_slow_until_they_are_mended(bench: Bench) -> None:
    usual = bench.station.behavior("wget")
    bench.do("/unit/tool", tool="wget", state="fails", status=4)
    assert bench.station.start("/usr/bin/wget", "--version").wait() == 4
    bench.do("/unit/tool", tool="wget", state="slow", seconds=0.5)
    assert bench.station.behavior("wget") == ["sleep 0.5", *usual]
    assert bench.state()["unit"]["broken"] == {"wget": "wget takes 0.5 s"}
    bench.do("/unit/tool", tool="wget", state="back")
    assert bench.station.behavior("wget") == usual
    usual = bench.station.behavior("amixer")
    bench.do("/unit/tool", tool="amixer", state="fails")
    bench.do("/undo")
    assert bench.station.behavior("amixer") == usual
    assert bench.state()["unit"]["broken"] == {}


def test_undo_mends_what_a_message_needs_before_it_sends_one(bench: Bench) -> None:
    bench.do("/unit/browser", state="killed")
    bench.do("/unit/address", state="lost")
    started = len(bench.station.calls("qt-webkit-kiosk"))
    bench.do("/undo")
    bench.station.wait_for_calls("qt-webkit-kiosk", started + 1)
    assert bench.handles.view.address() == UNIT_ADDRESS
    assert bench.state()["unit"]["broken"] == {}


def test_undo_mends_all_that_can_be_mended(bench: Bench, monkeypatch: pytest.MonkeyPatch) -> None:
    def refuse(words: str) -> Callable[[], None]:
        def raise_error() -> None:
            raise HandleError(words)

        return raise_error

    bench.do("/unit/browser", state="hung")
    bench.do("/unit/web-server", state="killed")
    bench.do("/unit/tool", tool="wget", state="fails")
    bench.do("/unit/dhcp")
    with monkeypatch.context() as context:
        context.setattr(bench.handles.unit, "restore_browser", refuse("No browser."))
        context.setattr(bench.handles.unit, "restore_web_server", refuse("No server."))
        answer = bench.post("/undo")
    assert (answer.status, answer.error) == (409, "No server. No browser.")
    unit = bench.state()["unit"]
    assert sorted(unit["broken"]) == ["browser", "web-server"] and not unit["dhcp"]


def test_clock_of_the_unit_is_set(bench: Bench) -> None:
    bench.do("/unit/clock", offset=-86400)
    bench.do("/gateway/send", message="display-alert", text="YESTERDAY")
    wait_for_document(bench, alert_area="YESTERDAY")
    yesterday = int(bench.handles.view.document()["alert_time"])
    bench.do("/gateway/incident", name="end")
    bench.do("/unit/clock", offset=0)
    bench.do("/gateway/send", message="display-alert", text="TODAY")
    wait_for_document(bench, alert_area="TODAY")
    assert int(bench.handles.view.document()["alert_time"]) - yesterday >= 86400
    bench.do("/gateway/incident", name="end")


@pytest.mark.slow
def test_unit_resets_and_asks_for_an_address(bench: Bench) -> None:
    """With all that it had forgotten; the console goes on."""
    # Whose connection would keep the service from its port.
    bench.do("/gateway/send", message="display-alert", text="BEFORE")
    bench.do("/unit/dhcp")
    bench.do("/unit/address", state="lost")
    bench.do("/unit/memory", state="full")
    started = len(bench.station.calls("qt-webkit-kiosk"))
    bench.do("/unit/reset")
    bench.station.wait_for_calls("qt-webkit-kiosk", started + 1)
    wait_for(lambda: bench.handles.view.address() == "10.87.33.77", "the lease")
    wait_for_document(bench, alert_area="10.87.33.77")
    bench.do("/gateway/send", message="display-alert", text="FIRE")
    wait_for_document(bench, alert_area="FIRE")
    unit = bench.state()["unit"]
    assert unit["running"] and "memory" not in unit["broken"]
    bench.do("/gateway/incident", name="end")
    bench.do("/unit/dhcp", on=False)
    assert not bench.handles.unit.is_dhcp_on


@pytest.mark.slow
def test_nothing_is_kept_open_of_what_has_been_replaced(bench: Bench) -> None:
    def replace_all() -> None:
        bench.do("/unit/dhcp")
        bench.do("/unit/dhcp", on=False)
        bench.do("/unit/web-server", state="killed")
        bench.do("/unit/web-server", state="back")
        bench.do("/unit/reset")

    def descriptors() -> int:
        return len(os.listdir("/proc/self/fd"))

    replace_all()
    kept, processes = descriptors(), len(bench.station.processes)
    replace_all()
    assert len(bench.station.processes) == processes
    wait_for(lambda: descriptors() <= kept, f"{kept} descriptors")
