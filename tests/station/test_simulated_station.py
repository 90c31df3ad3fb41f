"""The simulated station itself: what it promises to those who test in it."""

import fcntl
import io
import os
import pty
import signal
import subprocess
import sys
import termios
import time
from pathlib import Path

import pytest
from conftest import StationMaker, start

from station import gateway
from station.station import STAND_INS, Station, build_directory, host_build_directory
from station.television import Television
from station.timeline import Timeline
from station.waiting import wait_for

TOP = Path(__file__).resolve().parents[2]


def run_command(*arguments: str, unprivileged: bool = False) -> subprocess.CompletedProcess[str]:
    prefix = ["setpriv", "--bounding-set=-all", "--inh-caps=-all"] if unprivileged else []
    return subprocess.run(
        [*prefix, "/usr/bin/python3", "-m", "station", *arguments],
        cwd=TOP,
        env={**os.environ, "HDTV_BUILD": str(build_directory())},
        capture_output=True,
        text=True,
        timeout=60,
    )


def test_launcher_refuses_to_start_anything_outside() -> None:
    launch = host_build_directory() / "station" / "station-launch"
    result = subprocess.run([launch, "/bin/echo", "ran"], capture_output=True, text=True)
    assert result.returncode == 1
    assert result.stdout == ""
    assert result.stderr == (
        "Refusing to start /bin/echo outside the simulated station: there is no station here.\n"
    )


@pytest.mark.parametrize("tool", ["/sbin/reboot", "/bin/mount", "/bin/date"])
def test_launcher_refuses_where_the_machines_own_tool_lies(station: Station, tool: str) -> None:
    station.run("cp", "/bin/true", tool)
    service = station.start_service()
    assert service.wait() == 1
    assert service.errors.endswith(f"outside the simulated station: {tool} is the machine's own.\n")


@pytest.mark.parametrize("kind", ["pid", "mnt", "net", "ipc", "uts"])
def test_launcher_refuses_in_a_namespace_of_the_machine(station: Station, kind: str) -> None:
    own = station.run("readlink", f"/proc/self/ns/{kind}").strip()
    outside = station.path("/run/station/outside")
    lines = [own if x.startswith(kind) else x for x in outside.read_text().splitlines()]
    outside.write_text("\n".join(lines) + "\n")
    service = station.start_service()
    assert service.wait() == 1
    assert f"its {kind} namespace is not a private one" in service.errors


def test_service_runs_without_the_capabilities_that_reach_the_machine(station: Station) -> None:
    probe = station.start("/bin/grep", "CapEff", "/proc/self/status")
    assert probe.wait() == 0
    capabilities = int(probe.output.split()[1], 16)
    for bit in (25, 21, 16, 17, 22, 26):  # time, admin, module, rawio, boot, tty config
        assert capabilities >> bit & 1 == 0


def test_every_dangerous_tool_is_a_stand_in(station: Station) -> None:
    paths = ["/run/station/bin/stand-in", *STAND_INS]
    sums = {line.split()[0] for line in station.run("sha256sum", *paths).splitlines()}
    assert len(sums) == 1


def test_stand_in_journals_a_call_completely(station: Station) -> None:
    pipe = os.pipe()
    os.set_inheritable(pipe[1], True)
    process = station.start("/bin/sh", "-c", 'exec 7</dev/null; exec /bin/date "a b" "\xe9\n" ""')
    process.wait()
    for fd in pipe:
        os.close(fd)
    (call,) = station.calls("date")
    assert call.argv == ["/bin/date", "a b", "\xc3\xa9\n", ""]
    assert call.descriptors == {"7": "/dev/null"}
    assert call.pid > 1
    assert abs(call.time - time.time()) < 60


def test_stand_in_keeps_the_name_that_it_was_called_by(station: Station) -> None:
    script = "import os; os.execv('/sbin/reboot', ['another name', '-f'])"
    station.start("/usr/bin/python3", "-c", script).wait()
    (call,) = station.calls("reboot")
    assert call.argv == ["another name", "-f"]


def test_stand_in_behaves_as_it_is_told(station: Station) -> None:
    station.behave("tvservice", "print state 0x12", "sleep 0.01", "exit 3")
    process = station.start("/usr/bin/tvservice", "-s")
    assert process.wait() == 3
    assert process.output == "state 0x12\n"


def test_nothing_written_in_the_unit_reaches_the_machine(station: Station) -> None:
    name = f"/etc/written-by-{os.getpid()}"
    station.run("touch", name, "/usr/bin/written", "/var/www/written", "/tmp/written")
    assert station.path(name).exists()
    for path in (name, "/usr/bin/written"):
        assert not Path(path).exists()
    assert "nameserver" not in station.path("/etc/resolv.conf").read_text()


def test_many_stations_run_at_once(make_station: StationMaker) -> None:
    stations = [make_station() for _ in range(5)]
    for station in stations:
        station.start_service()
    for number, station in enumerate(stations):
        station.wait_for_calls("qt-webkit-kiosk")
        gateway.deliver(station, gateway.display_alert(f"STATION {number}"))
    for number, station in enumerate(stations):
        assert station.document()["alert_area"] == f"STATION {number}"


def test_killed_starter_leaves_nothing_behind(tmp_path: Path) -> None:
    script = (
        "import sys, time\n"
        "from station.station import Station\n"
        "station = Station()\n"
        "service = station.start_service()\n"
        "station.wait_for_calls('qt-webkit-kiosk')\n"
        "print(station.gateway_pid, station.unit_pid, service.pid, flush=True)\n"
        "time.sleep(1000)\n"
    )
    environment = {**os.environ, "PYTHONPATH": str(TOP), "HDTV_BUILD": str(build_directory())}
    with subprocess.Popen(
        [sys.executable, "-c", script], env=environment, stdout=subprocess.PIPE, text=True
    ) as starter:
        assert starter.stdout is not None
        pids = [int(pid) for pid in starter.stdout.readline().split()]
        assert len(pids) == 3
        mounts = Path("/proc/self/mounts").read_text()
        starter.send_signal(signal.SIGKILL)
    for pid in pids:
        wait_for(lambda: not Path(f"/proc/{pid}").exists(), f"the end of process {pid}")
    assert Path("/proc/self/mounts").read_text() == mounts


def test_real_downloader_fetches_from_a_real_server_on_the_gateway(
    station: Station, tmp_path: Path
) -> None:
    (tmp_path / "clip.wav").write_bytes(b"RIFF clip")

    with gateway.web_server(station, tmp_path):
        command = "wget -q -O /tmp/play.wav -T 1 http://10.87.33.20/clip.wav"
        assert station.start("/usr/bin/wget", *command.split()[1:]).wait() == 0
    assert station.path("/tmp/play.wav").read_bytes() == b"RIFF clip"
    assert len(station.calls("wget")) == 1


def test_once_plays_the_incident_and_ends_with_status_0() -> None:
    result = run_command("--once", "--pause", "0.1")
    assert result.returncode == 0, result.stdout + result.stderr
    for words in (
        "service   Setting Gateway Address: 10.87.33.20",
        "tool      /usr/bin/qt-webkit-kiosk -u http://127.0.0.1/station_web/",
        "gateway   received: roll-call reply from 02:00:0a:57:21:32, version 47",
        "gateway   sends: roll call",
        "gateway   received: settings request from 02:00:0a:57:21:32",
        "tool      /usr/bin/date -s 2026-03-05 07:04:09",
        "tool      /usr/bin/aplay /tmp/play.wav",
        "gateway   sends: detail alert for E1 and L3",
        'E1:2 L3:5, "STRUCTURE FIRE\\n1200 MAIN ST, CROSS OAK AVE"',
        "map http://10.87.33.20/map.svg?incident=1042",
        "document  stop_turnout",
        'document  hdtv_alert, ""',
        "TV        waking",
        "TV        input 3.0.0.0 \N{RIGHTWARDS ARROW} 1.0.0.0",
        "TV        input 1.0.0.0 \N{RIGHTWARDS ARROW} 3.0.0.0",
        "TV        in standby\n",
        "the incident was observed",
    ):
        assert words in result.stdout
    assert "\033" not in result.stdout  # no colours in a pipe


def test_once_ends_with_status_1_when_the_service_does_not_do_its_work(tmp_path: Path) -> None:
    build = tmp_path / "build"
    (build / "hdtv").mkdir(parents=True)
    (build / "station").symlink_to(host_build_directory() / "station")
    (build / "hdtv" / "hdtv").write_text("#!/bin/sh\nexec sleep 100\n")
    (build / "hdtv" / "hdtv").chmod(0o755)
    result = subprocess.run(
        ["/usr/bin/python3", "-m", "station", "--once"],
        cwd=TOP,
        env={**os.environ, "HDTV_BUILD": str(build)},
        capture_output=True,
        text=True,
    )
    assert result.returncode == 1
    assert "not observed: the station is idle" in result.stdout


def test_help_explains() -> None:
    result = run_command("--help")
    assert result.returncode == 0
    for word in ("--once", "exec", "Ctrl-C", "incident"):
        assert word in result.stdout


def test_without_the_privilege_one_sentence_and_status_1() -> None:
    result = run_command("--once", unprivileged=True)
    assert result.returncode == 1
    assert result.stdout == ""
    assert result.stderr == (
        "The simulated station needs the privilege to make namespaces: run it as root.\n"
    )


def test_second_terminal_runs_programs_inside_the_running_station() -> None:
    name = f"test-{os.getpid()}"
    assert "No station is running here" in run_command("--name", name, "exec", "true").stderr
    environment = {**os.environ, "HDTV_BUILD": str(build_directory()), "PYTHONUNBUFFERED": "1"}
    with subprocess.Popen(
        ["/usr/bin/python3", "-m", "station", "--name", name, "--pause", "0.1"],
        cwd=TOP,
        env=environment,
        stdout=subprocess.PIPE,
        text=True,
    ) as running:
        assert running.stdout is not None
        for line in running.stdout:
            if "keeps running" in line:
                break
        try:
            document = run_command("--name", name, "exec", "cat", "/dev/shm/alerts.json")
            unit = run_command("--name", name, "exec", "hostname")
            gateway_side = run_command("--name", name, "exec", "--gateway", "hostname")
            failing = run_command("--name", name, "exec", "sh", "-c", "exit 7")
        finally:
            running.send_signal(signal.SIGINT)
        assert running.wait(20) == 130
    assert document.stdout.startswith('[{"alert_type":"display_alert"')
    assert (unit.stdout, gateway_side.stdout, failing.returncode) == ("unit\n", "gateway\n", 7)


@pytest.mark.parametrize(
    "map_address, shown",
    [
        (b"\x1b]0;x\x07\x9b31m\xc2\x9b31m\xe2\x80\xae\xff\xe2\x80\xa8", "map ·]0;x··31m·31m···"),
        (b'","alert_type":5,"x":"\x1b', '(not an alert document): [{"alert_type'),
        (b'","alert_time":"\x1b', '(not an alert document): [{"alert_type'),
        (b'","x\x1b":' + b"[" * 3000, '(not valid JSON): [{"alert_type'),
    ],
    ids=["escapes", "no type", "no time", "too deep"],
)
def test_timeline_shows_nothing_raw_whatever_is_sent(
    station: Station, map_address: bytes, shown: str
) -> None:
    out = io.StringIO()
    with gateway.record_listener(station) as records, Television(station) as television:
        service = start(station)
        with Timeline(station, service, records, television, out):
            gateway.deliver(station, gateway.detail_alert("FIRE"))
            gateway.deliver(station, b"\x28" + map_address[:100])
            gateway.deliver(station, b"\x34" + map_address)
            wait_for(lambda: shown in out.getvalue(), shown)
    assert "/date -s " in out.getvalue()
    assert out.getvalue().replace("\n", "").isprintable()


def test_ctrl_c_on_a_terminal_ends_it_quietly_and_in_colour() -> None:
    terminal, inside = pty.openpty()
    environment = {**os.environ, "HDTV_BUILD": str(build_directory())}
    running = subprocess.Popen(
        ["/usr/bin/python3", "-m", "station", "--pause", "0.1"],
        cwd=TOP,
        env=environment,
        stdin=inside,
        stdout=inside,
        stderr=inside,
        preexec_fn=lambda: take(inside),
    )
    os.close(inside)
    text = read_until(terminal, b"Ctrl-C ends it")
    os.write(terminal, b"\x03")
    text += read_until(terminal, b"")
    assert running.wait(20) == 130
    assert b"\033[32mdocument" in text
    assert b"Traceback" not in text
    assert b"the service has ended" not in text
    os.close(terminal)


def take(terminal: int) -> None:
    """Makes the terminal the controlling one of a new session."""
    os.setsid()
    fcntl.ioctl(terminal, termios.TIOCSCTTY, 0)


def read_until(terminal: int, words: bytes) -> bytes:
    """What the terminal shows until these words, or until nobody writes to it any more."""
    text = b""
    while not (words and words in text):
        try:
            text += os.read(terminal, 4096)
        except OSError:
            break
    return text
