"""A whole emulated machine with a shell on its serial console, on the gateway's network."""

import contextlib
import re
import shutil
import subprocess
from collections.abc import Callable, Iterator, Sequence
from pathlib import Path
from typing import Self, TypeVar

from simulation import waiting
from simulation.places import top_directory
from simulation.process import dying_with_starter
from simulation.station import Station

T = TypeVar("T")

TOP = top_directory()
# What scripts/machine fetched.
CACHE = TOP / "build" / "machine"

UP = "MACHINE-UP"

# An emulated machine may be many times slower than this one, especially when this one is busy.
DEADLINE = 120.0

# Between two looks. Whoever asks an emulated machine all the time keeps it from its work.
PACE = 0.2


def wait_for(condition: Callable[[], T], what: str, pace: float = PACE) -> T:
    return waiting.wait_for(condition, what, DEADLINE, pace)


def kernel_version(cache: Path) -> str:
    (modules,) = (cache / "lib" / "modules").iterdir()
    return modules.name


def install_modules(root: Path, cache: Path, modules: Sequence[str]) -> None:
    """Into the directory "modules", with a list of them in loading order."""
    files: list[str] = []
    for module in modules:
        command = ["modprobe", "-S", kernel_version(cache), "-d", str(cache), "--show-depends"]
        lines = subprocess.run([*command, module], check=True, capture_output=True, text=True)
        files += [line.split()[1] for line in lines.stdout.splitlines() if "insmod" in line]
    unique = list(dict.fromkeys(files))
    (root / "modules").mkdir()
    for file in unique:
        shutil.copy(file, root / "modules")
    names = "".join(Path(file).name + "\n" for file in unique)
    (root / "modules" / "list").write_text(names)


def write_program(path: Path, text: str) -> None:
    path.write_text(text)
    path.chmod(0o755)


def pack(root: Path) -> Path:
    archive = root.with_suffix(".gz")
    subprocess.run(
        f"find . | cpio -o -H newc --quiet | gzip -1 > {archive}", shell=True, check=True, cwd=root
    )
    return archive


class Machine:
    """From power-on to power-off. Use it in a with statement. Its shell prints UP when it is ready;
    its emulator exits when the machine resets."""

    def __init__(self, station: Station, directory: Path, command: Sequence[str]) -> None:
        self.console_path = directory / "console.log"
        enter = dying_with_starter(["nsenter", f"--target={station.gateway_pid}", "--net", "--"])
        network = ("-netdev", "tap,id=n0,ifname=tap0,script=no,downscript=no")
        serial = ("-nodefaults", "-display", "none", "-serial", "stdio", "-no-reboot")
        self._command = [*enter, *command, *serial, *network]
        self.power_on()

    def power_on(self) -> None:
        """The first time, or after it has exited."""
        self._count = 0
        try:
            self._start_emulator()
            wait_for(
                lambda: UP in self.console or self._process.poll() is not None,
                "the machine to be up",
            )
            assert UP in self.console, self.console[-3000:]
            self.run("stty -echo; PS1=")
        except BaseException:
            self._power_off()
            raise

    def _start_emulator(self) -> None:
        """Restarts an emulator that hangs before the kernel prints anything, as some do."""
        for is_last in (False, False, True):
            with open(self.console_path, "wb") as console:
                self._process = subprocess.Popen(
                    self._command, stdin=subprocess.PIPE, stdout=console, stderr=subprocess.STDOUT
                )
            try:
                waiting.wait_for(lambda: self.console, "the kernel's first word", 30)
                return
            except TimeoutError:
                self._power_off()
                if is_last:
                    raise

    def _power_off(self) -> None:
        self._process.kill()
        self._process.wait(20)
        assert self._process.stdin is not None
        with contextlib.suppress(OSError):
            self._process.stdin.close()

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        self._power_off()

    @property
    def console(self) -> str:
        return self._console_from(0)

    def _console_from(self, start: int) -> str:
        with open(self.console_path, "rb") as console:
            console.seek(start)
            return console.read().decode(errors="replace").replace("\r", "")

    def run(self, command: str) -> str:
        """What a command prints on the machine's shell."""
        self._count += 1
        before = self.console_path.stat().st_size
        mark = f"DONE-{self._count}-"
        assert self._process.stdin is not None
        line = f"{command}\necho; echo DONE-{self._count}-$?-\n"
        self._process.stdin.write(line.encode())
        self._process.stdin.flush()
        pattern = re.compile(rf"^{mark}(\d+)-$", re.MULTILINE)
        wait_for(
            lambda: pattern.search(self._console_from(before)), f"the end of {command!r}", pace=0.01
        )
        console = self.console
        found = pattern.search(console)
        assert found is not None
        start = console.rfind(f"DONE-{self._count - 1}-", 0, found.start())
        begin = console.index("\n", start) + 1 if start >= 0 else 0
        return console[begin : found.start() - 1]

    def wait_for_output(self, command: str, text: str) -> None:
        """Repeats a command until its output contains the text."""
        seen = [""]

        def is_there() -> bool:
            seen[0] = self.run(command)
            return text in seen[0]

        try:
            wait_for(is_there, f"{text!r} from {command!r}")
        except TimeoutError as error:
            raise TimeoutError(f"{error}:\n{seen[0]}") from None

    def logical_address(self) -> int:
        """The unit's address on its CEC bus: the first choice is 4, but a busy bus may deny it."""
        pattern = re.compile(r"Logical Address +: (4|8|11) ")
        found = wait_for(lambda: pattern.search(self.run("cec-ctl -d /dev/cec0")), "a claim")
        assert found is not None
        return int(found[1])

    def wait_for_reset(self) -> None:
        wait_for(lambda: self._process.poll() is not None, "the machine's reset")
        assert self._process.returncode == 0


@contextlib.contextmanager
def gateway_network() -> Iterator[Station]:
    """The gateway's side of a station whose unit is an emulated machine."""
    with Station(address=None) as station:
        join_networks(station)
        yield station


def join_networks(station: Station) -> None:
    """A bridge on the gateway's side, with its addresses and a tap for the machine."""
    addresses = "".join(f"ip address add 10.87.33.{n}/24 dev br0\n" for n in (1, 20, 21))
    script = (
        "set -e\nip link add br0 type bridge\nip tuntap add tap0 mode tap\n"
        "ip address flush dev gw0\nip link set gw0 master br0\nip link set tap0 master br0\n"
        f"{addresses}ip link set br0 up\nip link set tap0 up\n"
    )
    command = ["nsenter", f"--target={station.gateway_pid}", "--net", "--", "sh", "-c", script]
    subprocess.run(command, check=True, timeout=20)
