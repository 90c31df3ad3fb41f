"""gatewayctl for many units at once: sockets on this machine's loopback, each with an address of its own.

Nothing here depends on the service; that it takes what is sent is tested beside this.
"""

import contextlib
import json
import os
import pty
import signal
import socket
import subprocess
import threading
from collections.abc import Iterator, Sequence
from pathlib import Path
from typing import Any

import pytest
from gatewayctl_support import GATEWAYCTL, Result
from gatewayctl_support import run as run_command

from simulation import gateway
from simulation.waiting import wait_for

pytestmark = [pytest.mark.tool, pytest.mark.once]


class Fleet:
    """Units that take what is sent, in a thread that serves one connection after the other."""

    def __init__(self, directory: Path, count: int) -> None:
        self.messages: list[tuple[str, bytes]] = []
        self.file = directory / "units"
        self._sockets = [
            socket.create_server((f"127.0.1.{number + 1}", 0), backlog=0) for number in range(count)
        ]
        self.addresses = ["{}:{}".format(*unit.getsockname()) for unit in self._sockets]
        self.file.write_text(
            "".join(
                f"u{number} {address} {'even' if number % 2 == 0 else 'odd'} # at {number}\n"
                for number, address in enumerate(self.addresses)
            )
        )
        self._threads = [threading.Thread(target=self._serve, args=[s]) for s in self._sockets]
        for thread in self._threads:
            thread.start()

    def _serve(self, unit: socket.socket) -> None:
        with contextlib.suppress(OSError):
            while True:
                connection, _ = unit.accept()
                with connection:
                    self.messages.append(
                        ("{}:{}".format(*unit.getsockname()), connection.recv(4095))
                    )

    def stop(self, number: int) -> None:
        """From now on it refuses connections."""
        self._sockets[number].shutdown(socket.SHUT_RDWR)
        self._threads[number].join()
        self._sockets[number].close()

    def close(self) -> None:
        for number, thread in enumerate(self._threads):
            if thread.is_alive():
                self.stop(number)


@pytest.fixture
def fleet(tmp_path: Path) -> Iterator[Fleet]:
    with contextlib.closing(Fleet(tmp_path, 5)) as units:
        yield units


@pytest.fixture(autouse=True)
def no_defaults(monkeypatch: pytest.MonkeyPatch, tmp_path: Path) -> Path:
    """Neither this machine's defaults nor its environment count; returns the home directory."""
    home = tmp_path / "home"
    (home / ".config").mkdir(parents=True)
    monkeypatch.setenv("HOME", str(home))
    for name in ("GATEWAYCTL_TO", "GATEWAYCTL_UNITS"):
        monkeypatch.delenv(name, raising=False)
    return home


def run(*arguments: str | Path) -> Result:
    return run_command(GATEWAYCTL, *map(str, arguments))


ALERT = ("display-alert", "--text", "FIRE")
MESSAGE = gateway.display_alert("FIRE")
REFUSED = "Connection refused (the machine is up, but the service is not running)"


def test_inventory_gets_a_message_and_a_line_for_each_unit(fleet: Fleet) -> None:
    result = run("--units", fleet.file, *ALERT)
    assert (result.returncode, result.stderr) == (0, "")
    *lines, summary = result.stdout.splitlines()
    assert sorted(line.split() for line in lines) == [
        [f"u{number}", address, "taken"] for number, address in enumerate(fleet.addresses)
    ]
    assert summary == "10 bytes taken by 5 of 5; TCP does not prove that they are units"
    assert sorted(fleet.messages) == [(address, MESSAGE) for address in sorted(fleet.addresses)]


def units_of(result: Result) -> list[str]:
    """The units that have taken a message, by the lines."""
    return sorted(line.split()[0] for line in result.stdout.splitlines() if line.endswith("taken"))


@pytest.mark.parametrize(
    "arguments, expected",
    [
        (["--group", "even"], ["u0", "u2", "u4"]),
        (["--to", "u3", "--to", "u1"], ["u1", "u3"]),
        (["--parallel", "1"], ["u0", "u1", "u2", "u3", "u4"]),
    ],
)
def test_part_of_the_inventory(fleet: Fleet, arguments: list[str], expected: list[str]) -> None:
    result = run("--units", fleet.file, *arguments, *ALERT)
    assert result.returncode == 0
    assert units_of(result) == expected
    assert len(fleet.messages) == len(expected)


def test_single_unit_by_its_name_is_told_of_as_ever(fleet: Fleet) -> None:
    result = run("--units", fleet.file, "--to", "u2", *ALERT)
    assert result.stdout == (
        f"10 bytes taken by {fleet.addresses[2]}; TCP does not prove that it is a unit\n"
    )


def test_failed_units_are_the_next_run_s_inventory(fleet: Fleet, tmp_path: Path) -> None:
    fleet.stop(1)
    fleet.stop(4)
    failed = tmp_path / "failed"
    result = run("--units", fleet.file, "--failed-to", failed, *ALERT)
    assert (result.returncode, result.stderr) == (1, "")
    assert f"FAILED: cannot connect to {fleet.addresses[1]}: {REFUSED}\n" in result.stdout
    assert result.stdout.splitlines()[-1].startswith("10 bytes taken by 3 of 5, 2 failed; ")
    assert len(fleet.messages) == 3
    with socket.create_server(("127.0.1.2", int(fleet.addresses[1].split(":")[1]))) as again:
        with subprocess.Popen(
            [GATEWAYCTL, "--units", failed, "--failed-to", failed, *ALERT],
            stdout=subprocess.PIPE,
            text=True,
        ) as second:
            connection, _ = again.accept()
            assert connection.recv(4095) == MESSAGE
            connection.close()
            output, _ = second.communicate(timeout=30)
    assert second.returncode == 1
    assert output.splitlines()[-1].startswith("10 bytes taken by 1 of 2, 1 failed; ")
    assert failed.read_text().splitlines() == [
        "# Units that have not taken a message: 1",
        f"u4  {fleet.addresses[4]}  even  # at 4",
    ]


def test_json_is_a_line_for_each_unit_and_nothing_else(fleet: Fleet) -> None:
    fleet.stop(0)
    result = run("--units", fleet.file, "--json", *ALERT)
    assert (result.returncode, result.stderr) == (1, "")
    units: dict[str, dict[str, Any]] = {
        unit.pop("name"): unit for unit in map(json.loads, result.stdout.splitlines())
    }
    assert [unit.pop("milliseconds") >= 0 for unit in units.values()] == 5 * [True]
    assert units["u0"] == {
        "address": fleet.addresses[0],
        "result": "failed",
        "attempts": 1,
        "error": f"cannot connect to {fleet.addresses[0]}: {REFUSED}",
    }
    assert units["u1"] == {"address": fleet.addresses[1], "result": "taken", "attempts": 1}
    single = json.loads(run("--to", fleet.addresses[1], "--json", *ALERT).stdout)
    assert (single["name"], single["result"]) == (fleet.addresses[1], "taken")


@pytest.mark.slow
def test_unit_that_refuses_at_first_gets_another_attempt(fleet: Fleet) -> None:
    with socket.socket() as late:
        late.bind(("127.0.1.9", 0))
        address = "{}:{}".format(*late.getsockname())
        with subprocess.Popen(
            [GATEWAYCTL, "--to", address, "--to", fleet.addresses[0], "--retries", "9", *ALERT],
            stdout=subprocess.PIPE,
            text=True,
        ) as tool:
            assert tool.stdout is not None
            assert tool.stdout.readline().endswith("taken\n")  # so the other one was refused
            late.listen()
            connection, _ = late.accept()
            assert connection.recv(4095) == MESSAGE
            connection.close()
            output, _ = tool.communicate(timeout=30)
    assert tool.returncode == 0
    assert "taken (attempt " in output


def test_interrupted_run_says_how_far_it_came(fleet: Fleet, tmp_path: Path) -> None:
    failed = tmp_path / "failed"
    with socket.create_server(("127.0.1.9", 0)) as hanging:
        address = "{}:{}".format(*hanging.getsockname())
        units = ["--to", fleet.addresses[0], "--to", address, "--to", fleet.addresses[1]]
        with subprocess.Popen(
            [GATEWAYCTL, *units, "--timeout", "60min", "--failed-to", str(failed), *ALERT],
            stdout=subprocess.PIPE,
            text=True,
        ) as tool:
            wait_for(lambda: len(fleet.messages) == 2, "what the others take")
            assert tool.stdout is not None
            lines = [tool.stdout.readline(), tool.stdout.readline()]
            tool.send_signal(signal.SIGINT)
            output, _ = tool.communicate(timeout=30)
    assert tool.returncode == 1
    assert all(line.endswith("taken\n") for line in lines)
    line, summary = output.splitlines()
    assert line.endswith("  FAILED: interrupted: sent, not read yet, taken back")
    assert line.split()[:2] == [address, address]
    assert summary.startswith("10 bytes taken by 2 of 3, 1 failed; ")
    assert failed.read_text().splitlines()[1:] == [f"{address}  {address}"]


def test_interrupted_run_takes_back_what_one_unit_has_not_read() -> None:
    with socket.create_server(("127.0.1.9", 0)) as hanging:
        address = "{}:{}".format(*hanging.getsockname())
        with subprocess.Popen(
            [GATEWAYCTL, "--to", address, "--timeout", "60min", *ALERT],
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
        ) as tool:
            connection, _ = hanging.accept()
            with connection:
                assert connection.recv(4095, socket.MSG_PEEK) == MESSAGE
                tool.send_signal(signal.SIGINT)
                output, errors = tool.communicate(timeout=30)
                with pytest.raises(ConnectionResetError):
                    while connection.recv(4095):
                        pass
    assert (tool.returncode, output) == (1, "")
    assert errors == "gatewayctl: interrupted: sent, not read yet, taken back\n"


def test_interrupted_run_tells_of_the_last_attempt(fleet: Fleet) -> None:
    fleet.stop(0)
    units = ["--to", fleet.addresses[0], "--to", fleet.addresses[1]]
    with subprocess.Popen(
        [GATEWAYCTL, *units, "--retries", "1000", *ALERT], stdout=subprocess.PIPE, text=True
    ) as tool:
        assert tool.stdout is not None
        assert tool.stdout.readline().endswith("taken\n")  # after the other one was refused
        tool.send_signal(signal.SIGINT)
        output, _ = tool.communicate(timeout=30)
    assert tool.returncode == 1
    assert f"FAILED: interrupted; the last attempt failed: cannot connect to {units[1]}" in output


# The output or the terminal goes away.


def test_closed_pipe_ends_no_run(fleet: Fleet) -> None:
    with subprocess.Popen(
        [GATEWAYCTL, "--units", str(fleet.file), "--parallel", "1", *ALERT],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    ) as tool:
        assert tool.stdout is not None and tool.stderr is not None
        tool.stdout.close()
        assert tool.stderr.read() == "gatewayctl: standard output could not be written\n"
    assert tool.returncode == 1
    assert len(fleet.messages) == 5


@pytest.mark.parametrize("words", ["--dry-run end-alert", "decode 32", "end-alert"])
def test_full_disk_is_told(fleet: Fleet, words: str) -> None:
    with open("/dev/full", "w") as full:
        result = subprocess.run(
            [GATEWAYCTL, "--to", fleet.addresses[0], *words.split()],
            stdout=full,
            stderr=subprocess.PIPE,
            text=True,
        )
    assert result.returncode == 1
    assert result.stderr == "gatewayctl: standard output could not be written\n"


@pytest.mark.parametrize("launcher", ["env --default-signal=HUP", "nohup"])
def test_terminal_that_is_closed_ends_a_run_unless_that_is_not_wanted(
    fleet: Fleet, tmp_path: Path, launcher: str
) -> None:
    failed = tmp_path / "failed"
    with socket.create_server(("127.0.1.9", 0)) as hanging:
        address = "{}:{}".format(*hanging.getsockname())
        with subprocess.Popen(
            [*launcher.split(), GATEWAYCTL, "--to", address, "--to", fleet.addresses[0]]
            + ["--timeout", "60min", "--failed-to", str(failed), *ALERT],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
            text=True,
        ) as tool:
            connection, _ = hanging.accept()
            assert tool.stdout is not None
            assert tool.stdout.readline().endswith("taken\n")
            tool.send_signal(signal.SIGHUP)
            if launcher == "nohup":
                assert ignores(tool.pid, signal.SIGHUP)
                assert connection.recv(4095) == MESSAGE
                connection.close()
            output, _ = tool.communicate(timeout=30)
            connection.close()
    is_ended = launcher != "nohup"
    assert tool.returncode == int(is_ended)
    assert ("interrupted: sent, not read yet, taken back" in output) == is_ended
    assert failed.read_text().splitlines()[1:] == is_ended * [f"{address}  {address}"]


def ignores(pid: int, number: signal.Signals) -> bool:
    status = Path(f"/proc/{pid}/status").read_text()
    return bool(int(status.partition("SigIgn:")[2].split()[0], 16) & 1 << (number - 1))


def test_progress_is_for_a_terminal(fleet: Fleet) -> None:
    ours, its = pty.openpty()
    with subprocess.Popen(
        [GATEWAYCTL, "--units", str(fleet.file), *ALERT], stdout=subprocess.DEVNULL, stderr=its
    ) as tool:
        os.close(its)
        said = b""
        with contextlib.suppress(OSError):  # its other end is closed
            while part := os.read(ours, 4096):
                said += part
    os.close(ours)
    assert tool.returncode == 0
    assert said.startswith(b"0 of 5\r\x1b[K1 of 5\r\x1b[K2 of 5")
    assert said.endswith(b"4 of 5\r\x1b[K\r\x1b[K")


# Where the units come from, if the command line does not say it.


def test_environment_has_defaults(fleet: Fleet, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("GATEWAYCTL_UNITS", str(fleet.file))
    monkeypatch.setenv("GATEWAYCTL_TO", "")  # as if it were not set
    assert len(units_of(run(*ALERT))) == 5
    assert units_of(run("--group", "odd", *ALERT)) == ["u1", "u3"]
    monkeypatch.setenv("GATEWAYCTL_TO", "u4")
    assert run(*ALERT).stdout.startswith(f"10 bytes taken by {fleet.addresses[4]}; ")
    assert units_of(run("--group", "odd", *ALERT)) == ["u1", "u3"]
    assert len(units_of(run("--units", fleet.file, *ALERT))) == 5
    assert run("--to", "u3", *ALERT).stdout.startswith(f"10 bytes taken by {fleet.addresses[3]}; ")


def write_defaults(home: Path, *lines: str) -> None:
    (home / ".config" / "gatewayctl.conf").write_text("\n".join(lines) + "\n")


def test_file_has_defaults(
    fleet: Fleet, no_defaults: Path, monkeypatch: pytest.MonkeyPatch, tmp_path: Path
) -> None:
    write_defaults(no_defaults, "# ours", f'units="{fleet.file}"', "json=true")
    assert len(run(*ALERT).stdout.splitlines()) == 5
    write_defaults(no_defaults, f"units={fleet.file}", "to=u1")
    assert run(*ALERT).stdout.startswith(f"10 bytes taken by {fleet.addresses[1]}; ")
    assert len(units_of(run("--units", fleet.file, *ALERT))) == 5  # all that it asks for
    assert units_of(run("--group", "even", *ALERT)) == ["u0", "u2", "u4"]
    monkeypatch.setenv("GATEWAYCTL_TO", "u2")
    assert run(*ALERT).stdout.startswith(f"10 bytes taken by {fleet.addresses[2]}; ")
    other = tmp_path / "other"
    other.write_text(f"units={fleet.file}\ngroup=odd\n")
    monkeypatch.delenv("GATEWAYCTL_TO")
    assert units_of(run("--config", other, *ALERT)) == ["u1", "u3"]
    for line in ("units=", "group="):
        other.write_text(f"units={fleet.file}\n{line}\n")
        assert run("--config", other, *ALERT).returncode == 2


def test_default_group_does_not_narrow_what_is_asked_for(
    fleet: Fleet, no_defaults: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    write_defaults(no_defaults, "units=/no/such/file", "group=odd")
    assert len(units_of(run("--units", fleet.file, *ALERT))) == 5
    assert units_of(run("--units", fleet.file, "--group", "even", *ALERT)) == ["u0", "u2", "u4"]
    monkeypatch.setenv("GATEWAYCTL_UNITS", str(fleet.file))
    assert len(units_of(run(*ALERT))) == 5


@pytest.mark.parametrize("line", ["tp=u1", "parallel=0", "retries=many"])
def test_defaults_that_are_wrong_are_refused(no_defaults: Path, line: str) -> None:
    write_defaults(no_defaults, line)
    result = run("--to", "127.0.0.1:1", *ALERT)
    assert (result.returncode, result.stdout) == (2, "")
    assert line.split("=")[0] in result.stderr


@pytest.mark.parametrize(
    "arguments, status, words",
    [
        (["--units", "/no/such/file"], 1, "cannot open /no/such/file: No such file"),
        (["--units", "/dev/null"], 2, "/dev/null names no unit"),
        (["--group", "x"], 2, "--group needs an inventory"),
        (["--to", "h", "--to", "h"], 2, 'the unit "h" is given twice'),
        (["--to", "h", "--parallel", "0"], 2, "--parallel"),
        (["--to", "h", "--retries", "-1"], 2, "--retries"),
        (["--to", "127.0.0.1:1", "--failed-to", "/no/such/file"], 1, "cannot write /no/such/file"),
        (["--config", "/no/such/file"], 2, "/no/such/file"),
    ],
)
def test_what_is_refused_before_anything_is_sent(
    arguments: Sequence[str], status: int, words: str
) -> None:
    result = run(*arguments, *ALERT)
    assert (result.returncode, result.stdout) == (status, "")
    assert words in result.stderr


def test_fault_of_the_inventory_is_named_by_its_line(tmp_path: Path) -> None:
    (tmp_path / "units").write_text("a 127.0.0.1\nb\n")
    result = run("--units", tmp_path / "units", *ALERT)
    assert result.returncode == 2
    assert result.stderr == f'gatewayctl: {tmp_path}/units:2: "b" has no address\n'
