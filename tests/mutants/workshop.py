"""A copy of the tree, in which mutants are built and judged. The checkout itself is never changed."""

import contextlib
import fcntl
import itertools
import os
import shutil
import subprocess
from pathlib import Path

from mutant_list import TOP, ListError, Mutant, Rings

STATION_PROGRAMS = (
    "hdtv",
    "hdtv-doctor",
    "gatewayctl",
    "station-standin",
    "station-launch",
    "station-clock",
)
WITHOUT_PROGRAMS = ("test_dissector.py",)

# A mutant may do anything, also what the service does: away from this machine's networks and processes,
# and from the names of its devices.
CONFINED = ("unshare", "--net", "--pid", "--fork", "--kill-child", "--mount-proc", "sh", "-c")
# Not in its first process, which signals do not end.
CONFINED_START = (
    "mount --rbind /dev /dev && mount -o remount,bind,ro /dev && "
    'ip link set lo up && "$0" "$@"; exit $?'
)

UNIT_LIMIT = 60  # seconds; whatever takes longer hangs
STATION_LIMIT = 400


class BuildError(Exception):
    """It does not compile; the text is the compiler's."""


def tracked_files() -> list[str]:
    command = ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"]
    names = subprocess.run(command, cwd=TOP, check=True, capture_output=True).stdout
    return [name for name in names.decode().split("\0") if name and (TOP / name).is_file()]


class Workshop:
    """The first that no other run is using."""

    def __init__(self) -> None:
        place = TOP / "build" / "mutants"
        place.mkdir(parents=True, exist_ok=True)
        for number in itertools.count(1):
            self.lock = (place / f"{number}.lock").open("w")
            with contextlib.suppress(BlockingIOError):
                fcntl.flock(self.lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
                self.top = place / str(number)
                break
            self.lock.close()
        self.build_directory = self.top / "build" / "release"
        self.refresh()

    def refresh(self) -> None:
        """Makes the copy like the checkout, with the time of what is the same left as it is."""
        wanted = tracked_files()
        for name in wanted:
            source, copy = TOP / name, self.top / name
            if not copy.exists() or copy.read_bytes() != source.read_bytes():
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(source, copy)
            shutil.copymode(source, copy)
        known = {self.top / name for name in wanted}
        for path in self.top.rglob("*"):
            is_built = (self.top / "build") in path.parents
            if path.is_file() and path not in known and not is_built:
                path.unlink()

    def build(self, targets: tuple[str, ...]) -> None:
        if not (self.build_directory / "build.ninja").exists():
            # Compiling is most of the work, so nothing is optimized.
            configure = [
                "cmake",
                "-G",
                "Ninja",
                "-S",
                str(self.top),
                "-B",
                str(self.build_directory),
            ]
            options = ["-DCMAKE_BUILD_TYPE=Mutants", "-DCMAKE_CXX_FLAGS=-O0 -w"]
            self.run([*configure, *options, "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"])
        self.run(["ninja", "-C", str(self.build_directory), *targets])

    def run(self, command: list[str]) -> None:
        # The copies differ in nothing but their place, and most mutants are built again and again.
        cache = {
            "CCACHE_DIR": str(TOP / "build" / "mutants" / "cache"),
            "CCACHE_BASEDIR": str(self.top),
            "CCACHE_NOHASHDIR": "1",
        }
        environment = {**os.environ, **cache}
        result = subprocess.run(command, capture_output=True, text=True, env=environment)
        if result.returncode != 0:
            raise BuildError(result.stdout + result.stderr)

    def ring_that_fails(self, rings: Rings) -> str:
        """The first ring that fails: "unit" or "station"; else empty."""
        if rings.unit:
            self.build(rings.unit)
            if not all(self.unit_test_passes(name) for name in rings.unit):
                return "unit"
        if rings.station:
            if rings.station[0] not in WITHOUT_PROGRAMS:
                self.build(STATION_PROGRAMS)
            if not self.station_test_passes(rings.station):
                return "station"
        return ""

    def unit_test_passes(self, name: str) -> bool:
        program = self.build_directory / "tests" / "unit" / name
        return passes([*CONFINED, CONFINED_START, str(program)], UNIT_LIMIT, self.top)

    def station_test_passes(self, arguments: tuple[str, ...]) -> bool:
        tests = self.top / "tests" / "station"
        placed = [str(tests / word) if word.endswith(".py") else word for word in arguments]
        command = ["/usr/bin/python3", "-m", "pytest", "-q", "-x", *placed]
        return passes(command, STATION_LIMIT, self.top, HDTV_BUILD=str(self.build_directory))

    def judge(self, mutant: Mutant) -> str:
        """The ring that catches it; empty if it survives."""
        file = self.top / mutant.file
        before = file.read_text()
        file.write_text(mutant.applied_to(before))
        try:
            return self.ring_that_fails(mutant.rings)
        except BuildError as error:
            raise ListError(f"{mutant.place}: {mutant} does not compile:\n{error}") from error
        finally:
            file.write_text(before)


def passes(command: list[str], limit: float, directory: Path, **variables: str) -> bool:
    environment = dict(os.environ, PYTHONDONTWRITEBYTECODE="1", **variables)
    # With a session of its own, so that all of it can be ended.
    with subprocess.Popen(
        command,
        cwd=directory,
        env=environment,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
    ) as process:
        try:
            return process.wait(limit) == 0
        except subprocess.TimeoutExpired:
            process.kill()  # what it has started dies with it
            return False
