"""The example board: its configuration in the tree, and its files beside the tree's own."""

import json
import re
import subprocess
from pathlib import Path

from buildroot import EXTERNAL, PLACE, TOP, Failure, Tree, options

BOARD = "raspberrypi0"
NAME = f"station_display_{BOARD}_defconfig"
FILES = EXTERNAL / "station_display"

# What it has otherwise than the tree's configuration of that board.
OWN = {
    "BR2_PACKAGE_RPI_FIRMWARE_CONFIG_FILE",
    "BR2_PACKAGE_RPI_FIRMWARE_INSTALL_DTB_OVERLAYS",
    "BR2_ROOTFS_POST_BUILD_SCRIPT",
    "BR2_TARGET_ROOTFS_EXT2_SIZE",
}

# A unit's parts that an image has to have.
PARTS = {
    *("hdtv", "station-web", "lighttpd", "busybox", "alsa-utils", "ifupdown-scripts"),
    *("qt-webkit-kiosk", "fontconfig", "dejavu", "liberation", "wqy-zenhei", "tzdata"),
}


def check(tree: Tree) -> None:
    check_configuration(tree)
    check_against_the_boards_own(tree)
    check_named_files(tree)
    check_file_systems(tree)
    check_busybox(tree)
    check_inittab(tree)
    check_boot_files(tree)
    check_information(tree)


def check_configuration(tree: Tree) -> None:
    tree.make("board", NAME)
    chosen = tree.configuration("board")
    for name, value in options((EXTERNAL / "configs" / NAME).read_text()).items():
        if chosen.get(name, "n") != value:
            raise Failure(f"{NAME}: {name}={value} became {chosen.get(name, 'an unknown option')}")
    if chosen.get("BR2_LEGACY") == "y":
        raise Failure(f"{NAME}: an option of an earlier Buildroot is chosen")
    tree.make("board", "olddefconfig")
    for name, value in tree.configuration("board").items():
        if chosen.get(name) != value:
            raise Failure(f"{NAME}: make olddefconfig changes {name} to {value}")


def check_against_the_boards_own(tree: Tree) -> None:
    own = tree.path / "configs" / f"{BOARD}_defconfig"
    ours = options((EXTERNAL / "configs" / NAME).read_text())
    for name, value in options(own.read_text()).items():
        if name not in OWN and ours.get(name) != value:
            raise Failure(f"{own.name} of this Buildroot has {name}={value}, but {NAME} does not")


def check_named_files(tree: Tree) -> None:
    for name, value in tree.configuration("board").items():
        for word in value.strip('"').split():
            path = re.sub(r"^\$\(BR2_EXTERNAL_STATION_DISPLAY_PATH\)", str(EXTERNAL), word)
            if path.startswith(("board/", str(EXTERNAL))) and not (tree.path / path).exists():
                raise Failure(f"{name}: there is no {word}")


def mounted(fstab: Path) -> dict[str, str]:
    """The types of the file systems."""
    lines = [line.split() for line in fstab.read_text().splitlines() if not line.startswith("#")]
    return {line[1]: line[2] for line in lines if line}


def check_file_systems(tree: Tree) -> None:
    ours = mounted(FILES / "overlay" / "etc" / "fstab")
    skeleton = tree.path / "package" / "skeleton-init-sysv" / "skeleton" / "etc" / "fstab"
    for place, kind in mounted(skeleton).items():
        if ours.get(place) != kind:
            raise Failure(f"overlay/etc/fstab: no {kind} at {place}, as in {skeleton}")


def check_busybox(tree: Tree) -> None:
    known = options((tree.path / "package" / "busybox" / "busybox.config").read_text())
    for name in options((FILES / "busybox.fragment").read_text()):
        if name not in known:
            raise Failure(f"busybox.fragment: this Buildroot's busybox has no {name}")


def check_inittab(tree: Tree) -> None:
    """The script leaves what is there, and adds its line."""
    target = PLACE / "inittab"
    inittab = target / "etc" / "inittab"
    inittab.parent.mkdir(parents=True)
    before = (tree.path / "package" / "busybox" / "inittab").read_text()
    inittab.write_text(before)
    subprocess.run([FILES / "post-build.sh", target], check=True)
    after = inittab.read_text()
    if not after.startswith(before) or after.count("\n::respawn:/etc/init.d/S90hdtv ") != 1:
        raise Failure(f"post-build.sh: no line for the service in {inittab}")


def check_boot_files(tree: Tree) -> None:
    ours = options((FILES / "config.txt").read_text())
    for name, value in options(
        (tree.path / "board" / BOARD / "config_default.txt").read_text()
    ).items():
        if name in ("start_file", "fixup_file", "kernel") and ours.get(name) != value:
            raise Failure(f"config.txt: this Buildroot's board has {name}={value}")


def check_information(tree: Tree) -> None:
    said = tree.make("board", "-s", "show-info").splitlines()
    packages = json.loads(next(line for line in said if line.startswith("{")))
    if missing := PARTS - set(packages):
        raise Failure(f"show-info: not in the image: {', '.join(sorted(missing))}")
    for name in ("hdtv", "station-web"):
        check_package(name, packages[name])


def check_package(name: str, facts: dict[str, object]) -> None:
    protocol = (TOP / "hdtv" / "protocol.h").read_text()
    (version,) = re.findall(r"^constexpr int version = (\d+);$", protocol, re.MULTILINE)
    expected = {
        "version": version,
        "licenses": "PROPRIETARY",
        "license_files": ["board/debian/copyright"],
        "redistributable": False,
        "install_target": True,
    }
    for key, value in expected.items():
        if facts.get(key) != value:
            raise Failure(f"show-info: {name}: {key} is {facts.get(key)}, not {value}")
