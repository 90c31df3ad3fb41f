"""A gateway of one's own: on the station's gateway side, and outside at its door."""

import contextlib
import os
import re
import resource
import shlex
import signal
import socket
import subprocess
from collections.abc import Iterator
from pathlib import Path

import pytest
from command_support import TOP, command_line, environment, read_until_line, running_command
from gatewayctl_support import GATEWAYCTL
from support import StationMaker, busy_service, start

from simulation import door, gateway
from simulation import running as running_stations
from simulation.door import Door, DoorError
from simulation.gateway import HeardRecords
from simulation.places import DOCUMENT, host_build_directory
from simulation.process import Process, dying_with_starter
from simulation.station import Station
from simulation.unit_view import UnitView
from simulation.waiting import DEADLINE, wait_for

# The station does not depend on how the service is built.
pytestmark = pytest.mark.once


class Outside:
    """A gateway on this machine's loopback, with a door to a station."""

    def __init__(self, station: Station, address: str = "127.0.0.1") -> None:
        self.address = address
        self.listening = socket.create_server((address, 0))
        self.listening.settimeout(DEADLINE)
        self.messages: list[tuple[bytes, bool, str]] = []
        self.heard = HeardRecords()
        self.port: int = self.listening.getsockname()[1]
        view = UnitView(station)
        self.problems: list[str] = []
        self.door = Door(
            *(station, view.address, self.port),
            *(self._hear, self.heard.add, self.problems.append),
        )

    def __enter__(self) -> "Outside":
        self.door.__enter__()
        return self

    def __exit__(self, *_: object) -> None:
        self.door.__exit__()
        self.listening.close()

    def _hear(self, message: bytes, is_datagram: bool, peer: str) -> None:
        self.messages.append((message, is_datagram, peer))

    def connect(self) -> socket.socket:
        target = (self.door.address, gateway.COMMAND_PORT)
        return socket.create_connection(target, DEADLINE, source_address=(self.address, 0))

    def send(self, message: bytes) -> bytes:
        """Until the unit closes the connection, which is when it has read the message."""
        with self.connect() as connection:
            connection.sendall(message)
            return connection.recv(1)

    def call_roll(self) -> None:
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            sender.bind((self.address, 0))
            sender.sendto(gateway.roll_call(), (self.door.address, gateway.COMMAND_PORT))

    def take_record(self) -> tuple[int, str]:
        """Its code, and its sender's address."""
        connection, (peer, _) = self.listening.accept()
        with connection:
            parts = b""
            while part := connection.recv(4096):
                parts += part
        return parts[0], peer


@pytest.fixture
def outside(station: Station) -> Iterator[Outside]:
    with Outside(station) as opened:
        yield opened


def shows(station: Station, text: str) -> None:
    wait_for(lambda: station.document().get("alert_area") == text, text)


def test_alert_from_outside_is_shown_and_its_end_of_connection_is_the_units(
    station: Station, service: Process, outside: Outside
) -> None:
    with busy_service(station):
        with outside.connect() as connection:
            connection.sendall(gateway.display_alert("FROM OUTSIDE"))
            # The unit has not read it yet.
            connection.setblocking(False)
            with pytest.raises(BlockingIOError):
                connection.recv(1)
            station.path("/tmp/release").touch()
            connection.settimeout(DEADLINE)
            assert connection.recv(1) == b""
    shows(station, "FROM OUTSIDE")
    assert outside.messages == [(gateway.display_alert("FROM OUTSIDE"), False, "127.0.0.1")]


@pytest.mark.parametrize(
    "address, inside", [("127.0.0.1", gateway.GATEWAY), ("127.0.0.21", gateway.OTHER_GATEWAY)]
)
def test_roll_call_is_answered_where_it_came_from(
    station: Station, service: Process, address: str, inside: str
) -> None:
    with Outside(station, address) as outside:
        for _ in range(2):
            outside.call_roll()
            records = [outside.take_record() for _ in range(3)]
            # In order, and from where the unit is on this machine.
            assert records == [(code, outside.door.address) for code in (2, 39, 47)]
        assert outside.send(gateway.display_alert("FIRE")) == b""
        assert [record[0] for record in outside.heard.records()] == 2 * [2, 39, 47]
    # The unit closes the connection before it writes this.
    view = UnitView(station)
    wait_for(lambda: f'"gateway_addr": "{inside}"' in view.current_gateway(), inside)


def test_records_before_any_message_go_to_the_first_address(
    station: Station, outside: Outside
) -> None:
    station.write_config(f'{{"comm_gw":"{gateway.GATEWAY}"}}')
    start(station)
    assert outside.take_record() == (2, outside.door.address)


def test_unit_that_does_not_listen_resets_the_connection(outside: Outside) -> None:
    """A plain end would mean that the unit has taken the message."""
    with pytest.raises(ConnectionError):
        outside.send(b"\0")
    assert outside.problems[0].startswith("the unit cannot be reached: [Errno 111]")


def test_unit_without_an_address_is_out_of_reach(station: Station, outside: Outside) -> None:
    start(station)
    station.run("ip", "address", "flush", "dev", "eth0")
    outside.call_roll()
    with pytest.raises(ConnectionError):
        outside.send(b"\0")
    assert outside.problems == ["the unit cannot be reached: it has no address"]
    station.run("ip", "address", "add", "10.87.33.77/24", "dev", "eth0")
    assert outside.send(gateway.display_alert("ELSEWHERE")) == b""
    shows(station, "ELSEWHERE")


def test_message_that_is_given_up_outside_never_arrives(
    station: Station, service: Process, outside: Outside
) -> None:
    with busy_service(station):
        # It takes the one place in the unit's queue.
        waiting = outside.connect()
        waiting.sendall(gateway.display_alert("FIRST"))
        wait_for(lambda: station.listen_queue(gateway.COMMAND_PORT), "the first in the queue")
        given_up = outside.connect()
        given_up.sendall(gateway.display_alert("GIVEN UP"))
        wait_for(lambda: len(outside.messages) == 2, "the second at the door")
        gateway.reset(given_up)
    assert waiting.recv(1) == b""
    waiting.close()
    # Whatever would still be on its way arrives before this one.
    assert outside.send(gateway.display_alert("LAST")) == b""
    shows(station, "LAST")
    assert "GIVEN UP" not in station.path("/tmp/alerts.log").read_text()


def test_message_that_waits_when_the_station_ends_is_reset(
    station: Station, service: Process
) -> None:
    """A plain end would mean that the unit has taken it."""
    with busy_service(station):
        with Outside(station) as outside:
            waiting = outside.connect()
            waiting.sendall(gateway.display_alert("WAITS"))
            wait_for(lambda: outside.messages, "the message at the door")
        with waiting, pytest.raises(ConnectionResetError):
            waiting.recv(1)


def test_door_stays_open_after_a_connection_that_it_could_not_accept(
    station: Station, service: Process, outside: Outside
) -> None:
    with socket.socket() as connection:
        connection.settimeout(DEADLINE)
        limits = resource.getrlimit(resource.RLIMIT_NOFILE)
        lowest = os.dup(0)
        os.close(lowest)
        resource.setrlimit(resource.RLIMIT_NOFILE, (lowest, limits[1]))
        try:
            connection.connect((outside.door.address, gateway.COMMAND_PORT))
            refused = "a connection cannot be accepted: [Errno 24] Too many open files"
            wait_for(lambda: refused in outside.problems, refused)
        finally:
            resource.setrlimit(resource.RLIMIT_NOFILE, limits)
        connection.sendall(gateway.display_alert("LATER"))
        assert connection.recv(1) == b""
    shows(station, "LATER")


def test_records_that_nobody_takes_do_not_matter(
    station: Station, service: Process, outside: Outside
) -> None:
    outside.listening.close()
    outside.call_roll()
    assert outside.send(gateway.display_alert("FIRE")) == b""
    shows(station, "FIRE")
    lost = f"nobody listens on port {outside.port}: a record is lost"
    wait_for(lambda: outside.problems == 3 * [lost], "three lost records")
    with socket.create_server(("127.0.0.1", outside.port)) as listening:
        listening.settimeout(DEADLINE)
        outside.listening = listening
        outside.call_roll()
        assert outside.take_record()[0] in (2, 39, 47)


def test_each_station_has_an_address_of_its_own_until_none_is_left(
    station: Station, outside: Outside
) -> None:
    with contextlib.ExitStack() as stack:
        taken = []
        for address in door.OUTSIDE_ADDRESSES:
            with contextlib.suppress(OSError):
                taken.append(stack.enter_context(socket.create_server((address, 4000))))
        assert len(taken) < len(door.OUTSIDE_ADDRESSES)
        with pytest.raises(DoorError) as refused:
            Outside(station)
    assert str(refused.value) == (
        "Port 4000 of this machine's loopback is taken at 127.0.0.1 to 127.0.0.9: the unit cannot"
        " be reached there."
    )


def own_gateway_lines() -> list[str]:
    """The commands of "Try an alert", up to those for a unit on a network."""
    section = (TOP / "docs" / "operations.md").read_text().partition("## Try an alert")[2]
    text = section.partition("\n## ")[0].replace("\\\n", " ")
    return [line.strip() for line in text.splitlines() if line.startswith("    gatewayctl ")]


# What the document then shows.
EFFECTS = {
    "detail-alert": "DRILL",
    "stop-turnout": '"stop_turnout"',
    "end-alert": '"alert_type":"hdtv_alert", "show_turnout_timer":"1", "alert_time":"0"',
}


def inside(name: str, *command: str) -> list[str]:
    return command_line("--name", name, "exec", "--gateway", *command)


def run(command: list[str]) -> str:
    result = subprocess.run(
        command,
        cwd=TOP,
        env=environment(),
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        timeout=60,
    )
    assert result.returncode == 0, result.stdout + result.stderr
    return result.stdout


@contextlib.contextmanager
def serving(command: list[str]) -> Iterator[subprocess.Popen[str]]:
    """It ends with all that it has started: what it runs inside would go on listening there."""
    with subprocess.Popen(
        command,
        cwd=TOP,
        env=environment(),
        stdout=subprocess.PIPE,
        text=True,
        start_new_session=True,
    ) as server:
        try:
            yield server
        finally:
            os.killpg(server.pid, signal.SIGKILL)


@pytest.mark.browser
def test_gateways_side_is_free_for_all_of_try_an_alert() -> None:
    name = f"test-{os.getpid()}-own"
    lines = own_gateway_lines()
    assert "gatewayctl roll-call --broadcast 10.87.33.255" in lines
    assert all(any(word in line for line in lines) for word in EFFECTS)
    with running_command("--name", name, "--no-gateway", "--console", "0") as running:
        read_until_line(running, "the station is yours")
        assert '"heard": false' in run(command_line("--name", name, "state"))
        unit = running_stations.find_station(name)["sides"][1]
        document = Path(f"/proc/{unit['pid']}/root{DOCUMENT}")
        for line in lines:
            output = run(inside(name, GATEWAYCTL, *shlex.split(line)[1:]))
            if "roll-call" in line:
                assert "10.87.33.50" in output and "02:00:0a:57:21:32" in output
            for word, text in EFFECTS.items():
                if word in line.split():
                    wait_for(lambda: text in document.read_text(), text)
        options = ["serve", "--roll-call", "10.87.33.255", "--every", "500ms"]
        with serving(inside(name, GATEWAYCTL, *options)) as server:
            read_until_line(server, "has taken the date")
            read_until_line(server, "has taken the rotation 0")
        running.send_signal(signal.SIGINT)
        assert running.wait(20) == 130


def documented_lines() -> list[str]:
    """What the guides and the help tell to run on the gateway's side."""
    texts = [(TOP / "docs" / name).read_text() for name in ("workbench.md", "operations.md")]
    text = "\n".join([*texts, run(command_line("--help"))]).replace("\\\n", " ")
    return re.findall(r"^ +\./scripts/station (exec --gateway build/.*)$", text, re.MULTILINE)


def test_documented_lines_work_as_written_from_this_directory(make_station: StationMaker) -> None:
    """With relative paths: of the program, and in its arguments."""
    name = f"test-{os.getpid()}-written"
    station = make_station(name=name)
    start(station)
    lines = documented_lines()
    assert len(lines) == 3
    own = os.path.relpath(host_build_directory(), TOP)
    for line in lines:
        words = shlex.split(line.replace("build/release", own))
        if "serve" not in words:
            run(command_line("--name", name, *words))
            shows(station, "DRILL\n1200 MAIN ST")
            continue
        with serving(command_line("--name", name, *words)) as server:
            wait_for(lambda: is_listening(station), "the gateway")
            gateway.send_datagram(station, gateway.roll_call())
            read_until_line(server, "10.87.33.50      is up")
        wait_for(lambda: not is_listening(station), "the gateway's end")
    listing = run(inside(name, "ls", "docs/operations.md"))
    assert listing == "docs/operations.md\n"


def is_listening(station: Station) -> bool:
    table = Path(f"/proc/{station.gateway_pid}/net/tcp").read_text()
    return f":{gateway.RECORD_PORT:04X} 00000000:0000 0A" in table


@pytest.mark.browser
def test_gateway_on_this_machine_calls_the_roll_is_answered_and_alerts(tmp_path: Path) -> None:
    name = f"test-{os.getpid()}-outside"
    recording = tmp_path / "recording.py"
    # In a network of its own, whose loopback has all its ports free.
    script = 'ip link set lo up && exec "$@"'
    network = ["unshare", "--net", "--", "sh", "-c", script, "sh"]
    arguments = ["--name", name, "--record", str(recording), "--forward"]
    with running_command(*arguments, prefix=network) as running:
        read_until_line(
            running,
            "for a gateway on this machine: the unit is at 127.0.0.1:4000 (TCP, UDP),"
            " its records go to 127.0.0.1:5000",
        )
        here = ["nsenter", f"--target={running.pid}", "--net", "--", GATEWAYCTL]
        options = ["serve", "--roll-call", "127.0.0.1", "--every", "500ms"]
        with serving(dying_with_starter([*here, *options])) as server:
            read_until_line(server, "127.0.0.1        is up, version 47 (02:00:0a:57:21:32)")
            read_until_line(server, "127.0.0.1        has taken the date")
            read_until_line(server, "127.0.0.1        has taken the rotation 0")
            alert = ["detail-alert", "--text", "FROM OUTSIDE", "--unit", "E1:2"]
            run([*here, "--to", "127.0.0.1", *alert])
        read_until_line(running, "gateway   received: roll-call reply")
        read_until_line(running, "gateway   sends: detail alert (from 127.0.0.1)")
        read_until_line(running, 'E1:2, "FROM OUTSIDE"')
        running.send_signal(signal.SIGINT)
        assert running.wait(20) == 130
    assert re.search(r"gateway\.detail_alert\(\s*'FROM OUTSIDE'", recording.read_text())


@pytest.mark.parametrize("option", ["--no-gateway", "--forward"])
@pytest.mark.parametrize("other", [["--once"], ["run", "incident"]])
def test_scenarios_need_the_stations_own_gateway(option: str, other: list[str]) -> None:
    port = ["5000"] if option == "--forward" else []
    result = subprocess.run(
        command_line(option, *port, *other),
        cwd=TOP,
        env=environment(),
        capture_output=True,
        text=True,
        timeout=60,
    )
    assert result.returncode == 2
    assert f"{option} does not go with a scenario" in result.stderr
