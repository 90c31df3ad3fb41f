"""hdtv-doctor in units that have never been healthy, or that would keep it waiting."""

import pytest
from doctor_support import CONFIG, PROGRAMS, Unit, examine, missing, mount_memory
from support import StationMaker, start

from simulation import gateway
from simulation.television import BUS, Television
from simulation.waiting import wait_for

pytestmark = pytest.mark.tool


@pytest.mark.waits
def test_full_look_at_a_television_that_no_service_has(make_station: StationMaker) -> None:
    station = make_station(programs=PROGRAMS)
    with Television(station, power=1):
        report = examine(station, "--stop-service")
        assert report.of("power status").evidence == "in standby"
        assert report.of("link").evidence == "physical address 1.0.0.0"
    station.path(BUS).unlink()
    for hello, link, evidence in (
        ("hello 4 FFFF", "link", "physical address f.f.f.f: no television is found"),
        ("hello F 1000", "logical address", "none is claimed"),
        ("good day", "adapter", "cannot be joined"),
    ):
        with Television(station, hello=hello):
            assert evidence in examine(station, "--stop-service").failed()[link]
        station.path(BUS).unlink()
    with Television(station) as television:
        television.is_deaf = True
        assert "does not tell it" in examine(station, "--stop-service").failed()["power status"]


def test_bare_machine(make_station: StationMaker) -> None:
    """No service, no web server, no fonts, no room."""
    station = make_station(programs=PROGRAMS, is_board_root=True)
    for place in ("/dev/shm", "/tmp"):
        mount_memory(station, place, "200k")
    station.run("rm", "-rf", "/usr/share/fonts")
    failed = examine(station).failed()
    assert failed["service"] == "no hdtv process"
    assert failed["fonts"] == "no font file begins with liberation"
    assert failed["web server"].startswith("no answer from http://127.0.0.1/")
    assert failed["/dev/shm"] == "204 kB free, needed 1000 kB"
    assert failed["/tmp"] == "204 kB free, needed 4000 kB"
    assert "TCP port 4000" not in failed


def test_another_web_server_in_its_place(make_station: StationMaker) -> None:
    station = make_station(programs=PROGRAMS)
    start(station)
    (station.path("/tmp") / "station_web").mkdir()
    server = ("/usr/bin/python3", "-m", "http.server", "--bind", "127.0.0.1", "-d", "/tmp", "80")
    station.start(*server)
    wait_for(lambda: station.listen_queue(80) is not None, "the other web server")
    failed = examine(station).failed()
    assert failed["headers"] == "Cache-Control is missing"
    assert failed["document served"].startswith("status 404 with ")
    station.path("/tmp/station_web").rmdir()
    assert failed.get("web server") is None
    assert "answers 404" in examine(station).failed()["web server"]


ENDLESS_SERVER = """
import itertools, socket, sys, time
server = socket.create_server(("127.0.0.1", 80))
for _ in itertools.count():
    connection, _ = server.accept()
    connection.recv(4096)
    try:
        connection.sendall(b"HTTP/1.1 200 OK\\r\\nContent-Length: 1000000000\\r\\n\\r\\n")
        while True:
            connection.sendall(b"x" * int(sys.argv[1]))
            time.sleep(float(sys.argv[2]))
    except OSError:
        connection.close()
"""


@pytest.mark.waits
@pytest.mark.parametrize(("size", "pause"), [("1", "0.05"), ("60000", "0")])
def test_web_server_whose_answer_does_not_end(
    make_station: StationMaker, size: str, pause: str
) -> None:
    """Each byte would prolong the wait for the next one, and memory is not without end, either."""
    station = make_station(programs=PROGRAMS)
    station.start("/usr/bin/python3", "-c", ENDLESS_SERVER, size, pause)
    wait_for(lambda: station.listen_queue(80) is not None, "the other web server")
    assert examine(station).failed()["web server"].startswith("no answer from http://127.0.0.1/")


def test_ports_that_another_program_holds(make_station: StationMaker) -> None:
    """And what the service can have only when it starts: its watchdog and its bus."""
    station = make_station(programs=PROGRAMS)
    for kind in ("TCP-LISTEN", "UDP-RECV"):
        station.start("/usr/bin/socat", "-u", f"{kind}:4000", "STDOUT")
    wait_for(lambda: station.listen_queue(4000) is not None, "the other program")
    wait_for(lambda: ":0FA0 " in station.path("/proc/1/net/udp").read_text(), "its other port")
    with missing(Unit(station, station.processes[0]), "/dev/watchdog"):
        start(station)
    with Television(station):
        report = examine(station)
    failed = report.failed()
    assert "LISTEN, socat (process " in failed["TCP port 4000"]
    assert "socat (process " in failed["UDP port 4000"]
    # Only a service that holds the other port is restarted when TCP's becomes free.
    for port in ("TCP port 4000", "UDP port 4000"):
        assert report.of(port).next == "end that program, and restart the service"
    assert "does not hold /dev/watchdog" in failed["watchdog"]
    assert failed["service's adapter"] == "the service is connected to no bus"


def test_port_that_an_ended_connection_holds(make_station: StationMaker) -> None:
    station = make_station(programs=PROGRAMS)
    service = start(station)
    gateway.deliver(station, b"\0")
    service.kill()
    station.start_service()
    station.wait_for_calls("qt-webkit-kiosk", 2)
    report = examine(station)
    waiting = report.of("TCP port 4000")
    assert "does not have it: TIME-WAIT, of a connection with 10.87.33.20" in waiting.evidence
    assert waiting.next == "wait two minutes: retry-port restarts the service when the port is free"
    assert report.of("UDP port 4000").grade == "ok"


def test_more_than_one_service(make_station: StationMaker) -> None:
    station = make_station(programs=PROGRAMS)
    station.write_config(CONFIG)
    for count in (1, 2):
        station.start_service()
        station.wait_for_calls("qt-webkit-kiosk", count)
    assert examine(station).failed()["service"].startswith("more than one hdtv process: ")
