"""What the packages ask of the tree, and what they offer under other circumstances."""

import re

from buildroot import EXTERNAL, PLACE, Failure, Tree

# A toolchain of the tree's own; nothing is built with it.
BOARD = ("BR2_arm=y", "BR2_TOOLCHAIN_BUILDROOT_GLIBC=y", "BR2_TOOLCHAIN_BUILDROOT_CXX=y")
PACKAGES = ("BR2_PACKAGE_HDTV=y", "BR2_PACKAGE_STATION_WEB=y")

# Gone from newer trees; asked for only where it is there.
REMOVED = "BR2_PACKAGE_RPI_USERLAND"


def check(tree: Tree) -> None:
    check_names(tree)
    check_selections(tree)
    check_shared_libraries(tree)
    check_language(tree)
    check_television(tree)
    check_systemd(tree)


def description() -> str:
    return "".join(path.read_text() for path in sorted(EXTERNAL.glob("package/*/Config.in")))


def check_names(tree: Tree) -> None:
    """An option that nobody defines is off, without a word."""
    known = set()
    for path in [*tree.path.rglob("Config*.in*"), *EXTERNAL.rglob("Config.in")]:
        known.update(re.findall(r"^\s*(?:menu)?config (\w+)", path.read_text(), re.MULTILINE))
    code = re.sub(r"#.*", "", description())
    for line in re.findall(r"^\s*(?:depends on|select|default) .*(?:\\\n.*)*", code, re.MULTILINE):
        for name in re.findall(r"BR2_\w+", line):
            if name not in known and name != REMOVED:
                raise Failure(f"Config.in: this Buildroot has no option {name}")


def choose(tree: Tree, *lines: str) -> dict[str, str]:
    chosen = tree.configure("options", *BOARD, *lines)
    if chosen.get("BR2_LEGACY") == "y":
        raise Failure("an option of an earlier Buildroot is chosen")
    return chosen


def require(chosen: dict[str, str], *lines: str) -> None:
    for line in lines:
        name, value = line.split("=")
        if chosen.get(name, "n") != value:
            raise Failure(f"{name} is {chosen.get(name, 'not offered')}, not {value}")


def require_comment(words: str) -> None:
    if f"\n# {words}" not in (PLACE / "options" / ".config").read_text():
        raise Failure(f"make menuconfig does not say: {words}")


def check_selections(tree: Tree) -> None:
    wanted = (
        *PACKAGES,
        "BR2_PACKAGE_HDTV_TOOLS=y",
        "BR2_PACKAGE_HDTV_DOCTOR=y",
        "BR2_PACKAGE_QT5=y",
        "BR2_PACKAGE_QT5BASE_GUI=y",
    )
    chosen = choose(tree, *wanted)
    require(chosen, *wanted, "BR2_PACKAGE_HDTV_CEC_LINUX=y")
    for name in re.findall(r"^\tselect (\w+)", description(), re.MULTILINE):
        require(chosen, f"{name}=y")
    for name in dependencies():
        if chosen.get(name) != "y":
            raise Failure(f"{name} is depended on, but not selected")


def dependencies() -> list[str]:
    """What the packages are built with; Buildroot looks only when it builds a whole image."""
    rules = "".join(path.read_text() for path in EXTERNAL.glob("package/*/*.mk"))
    words = " ".join(re.findall(r"_DEPENDENCIES \+?= (.*)", rules)).split()
    names = [f"BR2_PACKAGE_{x.upper().replace('-', '_')}" for x in words if x[:5] != "host-"]
    return [name for name in names if name != REMOVED]


def check_shared_libraries(tree: Tree) -> None:
    static = ("BR2_TOOLCHAIN_BUILDROOT_MUSL=y", "BR2_STATIC_LIBS=y")
    require(choose(tree, *static, *PACKAGES), "BR2_PACKAGE_HDTV=y", "BR2_PACKAGE_STATION_WEB=n")
    require_comment("station-web needs a toolchain w/ dynamic library")


def check_language(tree: Tree) -> None:
    without = "# BR2_TOOLCHAIN_BUILDROOT_CXX is not set"
    require(choose(tree, without, *PACKAGES), "BR2_PACKAGE_HDTV=n", "BR2_PACKAGE_STATION_WEB=y")
    require_comment("hdtv needs a toolchain w/ C++")


def check_television(tree: Tree) -> None:
    libraries = "BR2_PACKAGE_HDTV_CEC_VIDEOCORE=y"
    chosen = choose(tree, *PACKAGES, libraries)
    require(chosen, "BR2_PACKAGE_HDTV_CEC_LINUX=y")
    require_comment("the board's host interface libraries need rpi-userland")
    if tree.has_package("rpi-userland"):
        chosen = choose(tree, *PACKAGES, libraries, f"{REMOVED}=y")
        require(chosen, libraries)


def check_systemd(tree: Tree) -> None:
    require(choose(tree, *PACKAGES, "BR2_INIT_SYSTEMD=y"), *PACKAGES, "BR2_INIT_SYSTEMD=y")
