"""A program in a station: the command lines that enter it, and the running one with its output."""

import contextlib
import fcntl
import os
import signal
import subprocess
from collections.abc import Mapping, Sequence
from pathlib import Path

from simulation.places import BIN
from simulation.waiting import DEADLINE, wait_for


def has_own_users(pid: int) -> bool:
    """Whether the process is in another user namespace, outside which its root has no rights."""
    return os.readlink(f"/proc/{pid}/ns/user") != os.readlink("/proc/self/ns/user")


def enter_command(pid: int, *command: str) -> list[str]:
    """The command line that runs a command in the process's namespaces, root and working
    directory."""
    users = ["user"] if has_own_users(pid) else []
    kinds = [f"--{kind}" for kind in (*users, "mount", "uts", "ipc", "net", "pid", "root", "wd")]
    return ["nsenter", f"--target={pid}", *kinds, "--", *command]


def launch_command(pid: int, *command: str) -> list[str]:
    """The command line that runs a command on the side of a station whose first process this is,
    with the station's capabilities and no more. Only the program that enters has others."""
    options = ["--board-root"] if has_own_users(pid) else []
    return enter_command(pid, f"{BIN}/launch", *options, *command)


def dying_with_starter(command: Sequence[str], by_signal: str = "KILL") -> list[str]:
    """The command line that runs a command that does not outlive its parent."""
    return ["setpriv", f"--pdeathsig={by_signal}", "--", *command]


def _open_log(name: str) -> int:
    """A memory file in append mode: otherwise two writers, such as the service and the browser it
    just forked, could overwrite each other."""
    fd = os.memfd_create(name)
    fcntl.fcntl(fd, fcntl.F_SETFL, os.O_APPEND)
    return fd


class Process:
    """A program that runs in the station, with its output captured."""

    def __init__(
        self, command: Sequence[str], environment: Mapping[str, str], is_waited_for: bool = True
    ) -> None:
        """The command execs the program, or waits for it if it has to enter a PID namespace."""
        self._is_waited_for = is_waited_for
        self._output = _open_log("output")
        self._errors = _open_log("errors")
        self._process = subprocess.Popen(
            dying_with_starter(command),
            stdin=subprocess.DEVNULL,
            stdout=self._output,
            stderr=self._errors,
            env=dict(environment),
            cwd="/",
            start_new_session=True,
        )

    @staticmethod
    def _read(fd: int) -> bytes:
        return os.pread(fd, os.fstat(fd).st_size, 0)

    @property
    def written(self) -> int:
        """How many bytes of output and errors there are."""
        return os.fstat(self._output).st_size + os.fstat(self._errors).st_size

    @property
    def output_bytes(self) -> bytes:
        return self._read(self._output)

    @property
    def output(self) -> str:
        return self.output_bytes.decode("utf-8", "backslashreplace")

    @property
    def errors(self) -> str:
        return self._read(self._errors).decode("utf-8", "backslashreplace")

    @property
    def pid(self) -> int:
        """The program's own process id on this machine. Raises ProcessLookupError if it is gone."""
        if not self._is_waited_for:
            return self._process.pid
        children = Path(f"/proc/{self._process.pid}/task/{self._process.pid}/children")
        while self.is_running():
            with contextlib.suppress(TimeoutError, FileNotFoundError):
                return int(wait_for(lambda: children.read_text().split(), "its start", 0.1)[0])
        raise ProcessLookupError(f"process {self._process.pid} has ended")

    def is_running(self) -> bool:
        return self._process.poll() is None

    def wait(self, deadline: float = DEADLINE) -> int:
        return self._process.wait(deadline)

    def suspend(self) -> None:
        os.kill(self.pid, signal.SIGSTOP)

    def resume(self) -> None:
        # The waiting process stops along with the program and must be resumed too.
        os.kill(self.pid, signal.SIGCONT)
        os.kill(self._process.pid, signal.SIGCONT)

    def kill(self) -> None:
        """Ends the program at once. It may be gone already; only the waiting process is ours."""
        if self.is_running():
            with contextlib.suppress(ProcessLookupError):
                os.kill(self.pid, signal.SIGKILL)
                os.kill(self._process.pid, signal.SIGCONT)  # it stopped along with the program
            self._process.wait(DEADLINE)

    def wait_for_output(self, text: str, count: int = 1, deadline: float = DEADLINE) -> None:
        wait_for(
            lambda: self.output.count(text) >= count or not self.is_running(),
            f"{text!r} in the output:\n{self.output}",
            deadline,
        )
        assert self.output.count(text) >= count, self.output + self.errors

    def close(self) -> None:
        self.kill()
        os.close(self._output)
        os.close(self._errors)
        self._output = self._errors = -1  # the numbers may soon be other files
