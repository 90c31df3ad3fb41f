"""A Buildroot tree, and how its commands are run: without this machine's settings or downloads."""

import re
import shutil
import subprocess
from dataclasses import dataclass
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
EXTERNAL = TOP / "board"
PLACE = TOP / "build" / "image"


class Failure(Exception):
    """What is not as it should be."""


class NoTree(Exception):
    """Why there is nothing to try the packages in."""


@dataclass(frozen=True)
class Tree:
    path: Path
    version: str

    def make(self, name: str, *words: str) -> str:
        """In build/image/NAME, with this external tree. Returns what it said."""
        log = PLACE / f"{name}.log"
        command = ["make", f"O={PLACE / name}", f"BR2_EXTERNAL={EXTERNAL}", *words]
        return run(command, self.path, log)

    def configure(self, name: str, *lines: str) -> dict[str, str]:
        """From the defaults and these lines."""
        wanted = PLACE / f"{name}_defconfig"
        wanted.write_text("".join(line + "\n" for line in lines))
        self.make(name, f"BR2_DEFCONFIG={wanted}", "defconfig")
        return self.configuration(name)

    def configuration(self, name: str) -> dict[str, str]:
        return options((PLACE / name / ".config").read_text())

    def has_package(self, name: str) -> bool:
        return (self.path / "package" / name).is_dir()


def open_tree(source: str) -> Tree:
    path = Path(source).resolve()
    if not path.exists():
        raise NoTree("no such directory or archive")
    if path.is_dir() and not (path / "Makefile").is_file():
        raise NoTree("not a Buildroot tree")
    shutil.rmtree(PLACE, ignore_errors=True)
    PLACE.mkdir(parents=True)
    if path.is_file():
        path = unpack(path)
    makefile = path / "Makefile"
    text = makefile.read_text() if makefile.is_file() else ""
    version = re.search(r"^export BR2_VERSION := (\S+)$", text, re.MULTILINE)
    if not version or not (path / "utils" / "check-package").exists():
        raise NoTree("not a Buildroot tree")
    return Tree(path, version[1])


def unpack(archive: Path) -> Path:
    directory = PLACE / "tree"
    directory.mkdir()
    command = ["tar", "-xf", str(archive), "-C", str(directory), "--strip-components=1"]
    if subprocess.run(command, stderr=subprocess.DEVNULL, check=False).returncode != 0:
        raise NoTree("not an archive of a directory")
    return directory


def run(command: list[str], directory: Path, log: Path) -> str:
    environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/nonexistent", "LC_ALL": "C"}
    result = subprocess.run(
        command,
        cwd=directory,
        env=environment,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        check=False,
    )
    log.write_text(f"{' '.join(command)}\n{result.stdout}")
    if result.returncode != 0:
        end = "".join(f"    {line}\n" for line in result.stdout.splitlines()[-15:])
        raise Failure(f"{' '.join(command)} failed, see {log}:\n{end}")
    return result.stdout


def options(text: str) -> dict[str, str]:
    """By name; one that is off has the value "n"."""
    found = {}
    for line in text.splitlines():
        if match := re.fullmatch(r"(?:# )?(\w+)(?:=(.*)| is not set)", line):
            found[match[1]] = "n" if match[2] is None else match[2]
    return found
