"""The television, over the simulated CEC bus."""

import threading

import pytest
from support import start

from simulation import gateway
from simulation.gateway import deliver, detail_alert, display_alert, send
from simulation.journal import Call
from simulation.process import Process
from simulation.station import Station
from simulation.television import IN_STANDBY, ON, OTHER_PLAYER, TV, Television
from simulation.waiting import wait_for

pytestmark = pytest.mark.television

OWN_SOURCE = "4F:82:10:00"
START_FRAMES = [OWN_SOURCE]
WAKING = ["40:04"]
END = display_alert("")


def started(station: Station, television: Television) -> Process:
    """A service that has announced itself and received the answer."""
    service = start(station)
    television.wait_for_frames(START_FRAMES)
    service.wait_for_output("TV is ")
    return service


def shows(station: Station, text: str) -> None:
    wait_for(lambda: station.document().get("alert_area") == text, f"{text} on the page")


def hears(service: Process, television: Television, line: str, words: str) -> None:
    """The bus says a line; the service has handled it when these words appear."""
    count = service.output.count(words)
    television.say(line)
    service.wait_for_output(words, count + 1)


def switched_to(service: Process, television: Television, address: int) -> None:
    television.switch_input(address)
    service.wait_for_output(f"active source now: {address:04X}\n")


# Startup.


def test_unit_announces_itself_and_takes_the_input(station: Station) -> None:
    with Television(station, tv_input=0x2000) as television:
        service = started(station, television)
        assert television.lines[:8] == [
            *["deregister", "register 82", "register 90", "register 80"],
            *["vendor 18C086", "osd ZELT", "send 40:8F", "send 4F:82:10:00"],
        ]
        assert television.osd_names == {4: "ZELT"}
        assert television.story == ["input 2.0.0.0 \N{RIGHTWARDS ARROW} 1.0.0.0"]
        assert service.output.startswith("logical_address: 0x4\nphysical_address: 0x1000\n")
        # Whole lines. Those of startup itself may be among them.
        for line in (
            "RX: 0 -> 4: 90 00",
            "TV is NOT in standby mode.",
            "TX: 4 -> 0: 8F",
            "TX: 4 -> F: 82 10 00",
        ):
            service.wait_for_output(f"\n{line}\n")


def test_without_a_bus_the_service_says_so_and_goes_on(station: Station) -> None:
    service = start(station)
    assert service.output.startswith("failed to open vchiq instance\n")
    deliver(station, display_alert("FIRE"))
    assert station.document()["alert_area"] == "FIRE"
    deliver(station, END)
    assert station.document()["alert_area"] == ""


@pytest.mark.parametrize(
    "hello", ["welcome 4 1000", "hello 4", "hello 44 1000", "hello g 1000", "hello 4 10000", ""]
)
def test_bus_that_says_anything_but_hello_is_refused(station: Station, hello: str) -> None:
    with Television(station, hello=hello) as television:
        service = start(station)
        assert service.output.startswith("VCHI connection failed\n")
        deliver(station, display_alert("FIRE"))
        assert station.document()["alert_area"] == "FIRE"
        assert television.lines[:8] == []


def test_addresses_are_those_of_the_hello_line(station: Station) -> None:
    with Television(station, hello="hello B 2A00") as television:
        service = start(station)
        assert service.output.startswith("logical_address: 0xb\nphysical_address: 0x2a00\n")
        television.wait_for_frames(["BF:82:2A:00"])


# Around an alert.


def test_television_on_another_input_is_switched_and_handed_back(station: Station) -> None:
    with Television(station) as television:
        service = started(station, television)
        switched_to(service, television, 0x2000)
        deliver(station, display_alert("FIRE"))
        television.wait_for_frames([OWN_SOURCE], since=1)
        assert television.input == 0x1000
        assert "standby_after_alert 0\n" in service.output
        assert "Switching TV to 1000\n" in service.output
        deliver(station, END)
        television.wait_for_frames([OWN_SOURCE, "4F:82:20:00"], since=1)
        assert television.input == 0x2000
        assert television.power == ON


def test_television_in_standby_is_woken_and_put_back(station: Station) -> None:
    with Television(station, power=IN_STANDBY) as television:
        service = started(station, television)
        switched_to(service, television, 0x2000)
        send(station, detail_alert("FIRE"))
        television.wait_for_frames([*WAKING, OWN_SOURCE], since=1)
        shows(station, "FIRE")
        assert "standby_after_alert 1\n" in service.output
        assert "TV on standby, sending ImageViewOn\n" in service.output
        assert (television.power, television.input) == (ON, 0x1000)
        deliver(station, detail_alert(""))
        television.wait_for_frames([*WAKING, OWN_SOURCE, "4F:82:20:00", "40:36"], since=1)
        assert (television.power, television.input) == (IN_STANDBY, 0x2000)


@pytest.mark.slow
def test_waking_goes_on_until_the_television_reports_another_status(station: Station) -> None:
    with Television(station, power=IN_STANDBY) as television:
        service = started(station, television)
        television.standby_reports = 1
        send(station, display_alert("FIRE"))
        shows(station, "FIRE")
        # It reported standby once more, so it was asked to wake twice. It already shows the unit.
        assert television.frames[1:] == WAKING * 2
        first = television.all_frames.index("40:04")
        assert television.all_frames[first : first + 4] == ["40:04", "40:8F"] * 2
        assert service.output.count("TV on standby, sending ImageViewOn\n") == 2


@pytest.mark.slow
def test_slow_television_is_asked_until_its_answer_arrives(station: Station) -> None:
    with Television(station, power=IN_STANDBY, wake_delay=0.2, sleep_delay=0.2) as television:
        service = started(station, television)
        switched_to(service, television, 0x2000)
        television.answer_delay = 1.2  # later than the pause after the question
        send(station, display_alert("FIRE"))
        television.wait_for_frames([*WAKING, *WAKING, OWN_SOURCE], since=1)
        shows(station, "FIRE")
        deliver(station, END)
        wait_for(lambda: television.power == IN_STANDBY, "the television's end")
        assert television.story[1:] == [
            "waking",
            "on",
            "input 2.0.0.0 \N{RIGHTWARDS ARROW} 1.0.0.0",
            "input 1.0.0.0 \N{RIGHTWARDS ARROW} 2.0.0.0",
            "going off",
            "in standby",
        ]


@pytest.mark.slow
def test_deaf_television_holds_the_service_until_it_hears(station: Station) -> None:
    with Television(station, power=IN_STANDBY) as television:
        service = started(station, television)
        television.is_deaf = True
        send(station, display_alert("FIRE"))
        television.wait_for_frames(WAKING, since=1)
        with gateway.connect(station) as connection:
            connection.sendall(b"\0")
            assert station.document()["alert_area"] == "10.87.33.50"
            television.is_deaf = False
            shows(station, "FIRE")
            gateway.wait_until_closed(connection)
        assert service.is_running()
        assert set(television.frames[1:]) == set(WAKING)


def test_standby_is_sent_at_every_ending_message(station: Station) -> None:
    with Television(station, power=IN_STANDBY) as television:
        started(station, television)
        send(station, display_alert("FIRE"))
        shows(station, "FIRE")
        before = len(television.frames)
        deliver(station, END)
        deliver(station, END)
        television.wait_for_frames(["40:36", "40:36"], since=before)


def test_televisions_own_tuner_gets_inactive_source(station: Station) -> None:
    with Television(station) as television:
        service = started(station, television)
        switched_to(service, television, 0x0000)
        deliver(station, display_alert("FIRE"))
        deliver(station, END)
        television.wait_for_frames([OWN_SOURCE, "40:9D:00:00"], since=1)
        assert television.input == 0x0000


def test_unit_that_is_the_source_sends_nothing(station: Station) -> None:
    with Television(station) as television:
        started(station, television)
        deliver(station, display_alert("FIRE"))
        deliver(station, END)
        assert sent(television) == []


def sent(television: Television) -> list[str]:
    """Everything the unit has sent after startup. It answers a request for the active source in
    order, so once the answer is here, nothing else is on its way."""
    count = len(television.frames)
    television.say("rx 0F:85")
    wait_for(lambda: len(television.frames) > count, "the answer")
    assert television.frames[-1] == OWN_SOURCE
    return television.frames[len(START_FRAMES) : -1]


def test_update_and_ignored_message_leave_the_television_alone(station: Station) -> None:
    with Television(station) as television:
        service = started(station, television)
        switched_to(service, television, 0x2000)
        deliver(station, display_alert("FIRE"))
        for message in (display_alert("MORE"), display_alert("", flag=0), gateway.stop_turnout()):
            deliver(station, message)
        assert sent(television) == [OWN_SOURCE]


# What the service hears.


def test_active_source_of_another_device_is_stored_by_its_first_byte(station: Station) -> None:
    with Television(station) as television:
        service = started(station, television)
        hears(service, television, "rx 8F:82:20:00", "active source now: 0020\n")
        deliver(station, END)
        television.wait_for_frames(["4F:82:00:20"], since=1)


def test_power_status_of_another_device_counts(station: Station) -> None:
    with Television(station) as television:
        service = started(station, television)
        television.send(OTHER_PLAYER, 4, 0x90, b"\1")
        service.wait_for_output("RX: 8 -> 4: 90 01\nTV is in standby mode.\n")
        television.send(TV, 4, 0x90, b"\3")
        service.wait_for_output("RX: 0 -> 4: 90 03\nTV is NOT in standby mode.\n")


def test_request_active_source_is_answered_if_it_is_delivered(station: Station) -> None:
    with Television(station) as television:
        started(station, television)
        television.say("rx 0F:85")
        television.wait_for_frames([OWN_SOURCE], since=1)


def test_other_notifications_are_traced(station: Station) -> None:
    with Television(station) as television:
        service = started(station, television)
        hears(
            service, television, "raw 00008004 00000000 00000000 00000000 00000000", "TX: 0 -> 0:\n"
        )
        hears(
            service,
            television,
            "raw AB1F0002 03020104 07060504 0B0A0908 0F0E0D0C",
            "RX: 0 -> 4: 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F\n",
        )


def test_lines_that_are_none_of_the_bus_are_skipped_with_a_message_each(station: Station) -> None:
    bad = [
        *["unknown", "", "hello 4 1000", "rx", "rx ", "rx 4", "rx 4g:90", "rx 04:90:", "rx 04 90"],
        *["rx 04:9O:01", "rx 0f:82", "rx " + ":".join(["00"] * 17), "tx 123", "raw 0 0 0 0 0"],
        *["raw 00000002 00000000 00000000 00000000", "x" * 257, "rx 04:90:01\r"],
    ]
    with Television(station) as television:
        service = started(station, television)
        before = service.output
        for line in bad:
            television.say(line)
        hears(service, television, "rx 04:90:02", "RX: 0 -> 4: 90 02\nTV is NOT in")
        wait_for(lambda: service.errors.count("\n") == len(bad), "the messages")
        assert service.errors.count("CEC bus: skipped the line") == len(bad)
        heard = [x for x in service.output[len(before) :].splitlines() if x.startswith("RX")]
        assert set(heard) <= {"RX: 0 -> 4: 90 02", "RX: 0 -> 4: 90 00"}  # the latter when polled


def test_lines_in_pieces_and_several_at_once_are_understood(station: Station) -> None:
    with Television(station) as television:
        service = started(station, television)
        for piece in (b"rx 0", b"4:90:", b"01\nrx 04:90:00\nrx 04:90:0", b"1\n"):
            television.say_bytes(piece)
        service.wait_for_output("TV is in standby mode.\n", 2)
        assert service.output.count("TV is NOT in standby mode.\n") == 2


def test_longest_line_and_frame_are_accepted(station: Station) -> None:
    with Television(station) as television:
        service = started(station, television)
        frame = "0F:" + ":".join(f"{n:02X}" for n in range(0x40, 0x4F))
        hears(service, television, f"rx {frame}", "RX: 0 -> F: " + frame[3:].replace(":", " "))


# A bus that fails.


def test_bus_that_goes_away_leaves_the_service_running(station: Station) -> None:
    with Television(station) as television:
        service = started(station, television)
        switched_to(service, television, 0x2000)
    for text in ("ONE", "TWO"):
        deliver(station, display_alert(text))
        assert station.document()["alert_area"] == text
        deliver(station, END)
    assert service.is_running()


def test_bus_that_goes_away_lets_the_alert_through_that_waits_for_its_television(
    station: Station,
) -> None:
    with Television(station, power=IN_STANDBY) as television:
        service = started(station, television)
        television.is_deaf = True
        send(station, display_alert("FIRE"))
        television.wait_for_frames(WAKING, since=1)
        assert station.document()["alert_area"] == "10.87.33.50"
    shows(station, "FIRE")
    assert service.errors == "CEC bus: the connection was lost\n"
    assert "NOT in standby" not in service.output
    deliver(station, display_alert("MORE"))
    shows(station, "MORE")


def test_bus_that_does_not_read_does_not_hold_the_service(station: Station) -> None:
    with Television(station) as television:
        service = started(station, television)
        switched_to(service, television, 0x2000)
        television.stop_reading()
        with station.on_gateway():
            for _ in range(1000):
                send(station, display_alert("FIRE"))
                send(station, END)
        deliver(station, display_alert("STILL HERE"))
        assert station.document()["alert_area"] == "STILL HERE"


def test_messages_from_both_threads_never_mix(station: Station) -> None:
    with Television(station) as television:
        service = started(station, television)
        switched_to(service, television, 0x2000)

        def chatter() -> None:
            for _ in range(300):
                television.say("rx 0F:85\nrx 0F:80:10:00:20:00")

        talker = threading.Thread(target=chatter)
        talker.start()
        with station.on_gateway():
            for _ in range(100):
                send(station, display_alert("FIRE"))
                send(station, END)
        talker.join()
        deliver(station, b"\0")
        service.wait_for_output("RX: 0 -> F: 85\n", 300)
        known = {OWN_SOURCE, "4F:82:20:00"}
        assert set(television.frames) == known
        for line in service.output.splitlines():
            if "RX:" in line or "TX:" in line:
                assert line in {
                    *["RX: 0 -> F: 85", "RX: 0 -> F: 80 10 00 20 00", "RX: 0 -> 4: 90 00"],
                    *["TX: 4 -> F: 82 10 00", "TX: 4 -> F: 82 20 00", "TX: 4 -> 0: 8F"],
                    "RX: 0 -> F: 80 10 00 20 00",
                    "RX: 0 -> F: 80 00 00 20 00",
                }


def test_browser_inherits_no_bus(station: Station) -> None:
    with Television(station) as television:
        started(station, television)
        browser: Call = station.calls("qt-webkit-kiosk")[0]
        assert browser.descriptors == {}
