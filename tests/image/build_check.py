"""Both packages, built and installed by the tree's own rules, with Debian's cross compiler."""

import csv
import fnmatch
import re
import shutil
import subprocess
from collections.abc import Callable
from pathlib import Path

from buildroot import PLACE, TOP, Failure, Tree

TRIPLET = "arm-linux-gnueabi"
DEBIAN = Path("/usr") / TRIPLET
SYSROOT = TOP / "build" / "armv6-sysroot" / "usr"
TOOLCHAIN = PLACE / "toolchain"
LIBEVENT = PLACE / "libevent"
NOTHING = PLACE / "nothing"
TARGET = PLACE / "build" / "target"
SYSTEMD_TARGET = PLACE / "build" / "target-systemd"

# Buildroot takes no compiler that looks for libraries in its own system: this one has a directory
# for them, and says so.
COMPILER = """\
#!/bin/sh
case " $* " in
*" -print-file-name=libc.a "*) echo {sysroot}/usr/lib/libc.a ;;
*" -v "*) {program} "$@" 2>&1 | sed 's,--with-sysroot=/ ,--with-sysroot={sysroot} ,' >&2 ;;
*) exec {program} --sysroot={sysroot} "$@" ;;
esac
"""

CONFIGURATION = """\
BR2_arm=y
BR2_arm1176jz_s=y
BR2_TOOLCHAIN_EXTERNAL=y
BR2_TOOLCHAIN_EXTERNAL_CUSTOM=y
BR2_TOOLCHAIN_EXTERNAL_PREINSTALLED=y
BR2_TOOLCHAIN_EXTERNAL_PATH="{toolchain}"
BR2_TOOLCHAIN_EXTERNAL_CUSTOM_PREFIX="{triplet}"
BR2_TOOLCHAIN_EXTERNAL_GCC_{gcc}=y
BR2_TOOLCHAIN_EXTERNAL_HEADERS_{headers}=y
BR2_TOOLCHAIN_EXTERNAL_CUSTOM_GLIBC=y
# BR2_TOOLCHAIN_EXTERNAL_INET_RPC is not set
BR2_TOOLCHAIN_EXTERNAL_CXX=y
BR2_TOOLCHAIN_EXTERNAL_OPENMP=y
BR2_BACKUP_SITE=""
BR2_PRIMARY_SITE="file:///nonexistent"
BR2_PRIMARY_SITE_ONLY=y
BR2_PACKAGE_OVERRIDE_FILE="{overrides}"
BR2_PACKAGE_HDTV=y
BR2_PACKAGE_STATION_WEB=y
"""

SCRIPTS = {"etc/init.d/S80station-web", "etc/init.d/S90hdtv", "usr/lib/hdtv/upkeep"}
UNITS = {"hdtv.service", "hdtv-upkeep.service", "hdtv-upkeep.timer", "station-web.service"}


def check(tree: Tree) -> None:
    make_toolchain()
    make_libevent()
    (NOTHING / "doc" / "systemd").mkdir(parents=True)
    (NOTHING / "doc" / "systemd" / "lighttpd.service").touch()
    configuration = CONFIGURATION.format(
        toolchain=TOOLCHAIN,
        triplet=TRIPLET,
        gcc=compiler_version(),
        headers=headers_version(),
        overrides=Path(__file__).with_name("overrides.mk"),
    )
    tree.configure("build", *configuration.splitlines())
    build(tree)
    check_program()
    check_target()
    check_licenses()
    check_systemd_target(tree)


def make_toolchain() -> None:
    programs, libraries = TOOLCHAIN / "bin", TOOLCHAIN / "sysroot"
    programs.mkdir(parents=True)
    for program in Path("/usr/bin").glob(f"{TRIPLET}-*[!0-9]"):
        (programs / program.name).symlink_to(program)
    for name in ("gcc", "g++"):
        program = programs / f"{TRIPLET}-{name}"
        program.unlink()
        program.write_text(COMPILER.format(program=f"/usr/bin/{TRIPLET}-{name}", sysroot=libraries))
        program.chmod(0o755)
    static, shared = libraries / "usr" / "lib", libraries / "lib"
    shutil.copytree(DEBIAN / "include", libraries / "usr" / "include", symlinks=True)
    shutil.copytree(DEBIAN / "lib", static, symlinks=True, ignore=but("*.[ao]"))
    shutil.copytree(DEBIAN / "lib", shared, symlinks=True, ignore=but("*.so*"))
    script = shared / "libc.so"
    text = script.read_text().replace(f"{DEBIAN}/lib/libc_", "/usr/lib/libc_")
    script.unlink()
    (static / "libc.so").write_text(text.replace(f"{DEBIAN}/lib/", "/lib/"))


def but(pattern: str) -> Callable[[str, list[str]], set[str]]:
    """What is left out when only such files are copied."""
    return lambda _, names: set(names) - set(fnmatch.filter(names, pattern))


def make_libevent() -> None:
    """Debian's directory for each architecture is not Buildroot's."""
    libraries = LIBEVENT / "usr" / "lib"
    shutil.copytree(SYSROOT / "include", LIBEVENT / "usr" / "include", symlinks=True)
    shutil.copytree(SYSROOT / "lib" / TRIPLET, libraries, symlinks=True)
    for file in (libraries / "pkgconfig").iterdir():
        file.write_text(file.read_text().replace(f"/lib/{TRIPLET}", "/lib"))


def compiler_version() -> str:
    command = [f"{TRIPLET}-gcc", "-dumpversion"]
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.strip()


def headers_version() -> str:
    """As in the options' names: 6_1."""
    text = (DEBIAN / "include" / "linux" / "version.h").read_text()
    (code,) = re.findall(r"LINUX_VERSION_CODE (\d+)", text)
    return f"{int(code) >> 16}_{int(code) >> 8 & 255}"


def make(tree: Tree, *words: str) -> None:
    # Any tar will do: nothing is unpacked.
    tools = ["BR2_TAR_HOST_DEPENDENCY=", "TAR=tar"]
    tree.make("build", *tools, f"DEBIAN={LIBEVENT}", f"NOTHING={NOTHING}", *words)


def build(tree: Tree) -> None:
    legal = ("legal-info-prepare", "hdtv-legal-info", "station-web-legal-info")
    make(tree, "hdtv", "station-web", *legal)


def check_program() -> None:
    command = [f"{TRIPLET}-readelf", "--file-header", "--dynamic", str(TARGET / "usr/sbin/hdtv")]
    said = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    needed = set(re.findall(r"\(NEEDED\) .*\[(\S+?)\.so", said))
    if "Machine: ARM" not in re.sub(" +", " ", said) or "libevent_core-2.1" not in needed:
        raise Failure(f"usr/sbin/hdtv is not the board's: it needs {sorted(needed)}")
    if more := needed - {"libevent_core-2.1", "libc", "ld-linux"}:
        raise Failure(f"usr/sbin/hdtv needs more than it should: {sorted(more)}")
    (cache,) = (PLACE / "build/build").glob("hdtv-*/CMakeCache.txt")
    if "CEC_PORT:STRING=linux" not in cache.read_text():
        raise Failure("usr/sbin/hdtv does not use the kernel's CEC device")


def require_scripts(target: Path, *names: str) -> None:
    for name in names:
        if not (target / name).is_file():
            raise Failure(f"{target}: there is no {name}")
        if not (target / name).stat().st_mode & 0o111:
            raise Failure(f"{target}: {name} is not executable")


def check_target() -> None:
    require_scripts(TARGET, *SCRIPTS)
    if (TARGET / "etc/init.d/S50lighttpd").exists():
        raise Failure("the web server would be started twice: etc/init.d/S50lighttpd")
    page = TARGET / "var/www/station_web"
    ours = {path.name for path in (TOP / "station_web").iterdir()} - {"CMakeLists.txt"}
    if wrong := ours ^ {path.name for path in page.iterdir()}:
        raise Failure(f"var/www/station_web: missing or too many: {', '.join(sorted(wrong))}")
    require_scripts(page, *(name for name in ours if name.endswith(".cgi")))


def check_licenses() -> None:
    with open(PLACE / "build/legal-info/manifest.csv", newline="", encoding="utf-8") as file:
        found = {row["PACKAGE"]: row for row in csv.DictReader(file)}
    for name in ("hdtv", "station-web"):
        if found.get(name, {}).get("LICENSE") != "PROPRIETARY":
            raise Failure(f"legal-info: {name}: {found.get(name)}")
    if [*(PLACE / "build/legal-info").glob("sources/*")]:
        raise Failure("legal-info: it would give the sources away")


def check_systemd_target(tree: Tree) -> None:
    packages = ("lighttpd-reinstall", "hdtv-reinstall", "station-web-reinstall")
    init = ("BR2_INIT_BUSYBOX=", "BR2_INIT_SYSTEMD=y", f"TARGET_DIR={SYSTEMD_TARGET}")
    make(tree, *init, *packages)
    units = SYSTEMD_TARGET / "usr/lib/systemd/system"
    if wrong := UNITS ^ {path.name for path in units.iterdir()}:
        raise Failure(f"{units}: missing or too many: {', '.join(sorted(wrong))}")
    for unit in units.iterdir():
        named = re.findall(r"(?<=/)usr/lib/hdtv/[\w-]+", unit.read_text())
        require_scripts(SYSTEMD_TARGET, *named)
