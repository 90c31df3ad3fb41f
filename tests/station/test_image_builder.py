"""The image builder's packages, in a small model of the image builder."""

import re
import subprocess
from pathlib import Path

import pytest

from simulation.gateway import VERSION
from simulation.places import top_directory

pytestmark = pytest.mark.once

TOP = top_directory()
BOARD = TOP / "board"

# What the packages require of the toolchain and the board, and what they select.
OPTIONS = """\
mainmenu "image"
config BR2_EXTERNAL_STATION_DISPLAY_PATH
	string
	option env="BR2_EXTERNAL_STATION_DISPLAY_PATH"
config BR2_INSTALL_LIBSTDCPP
	bool "C++"
	default y
config BR2_TOOLCHAIN_HAS_THREADS
	def_bool y
config BR2_TOOLCHAIN_GCC_AT_LEAST_10
	def_bool y
config BR2_TOOLCHAIN_HEADERS_AT_LEAST_4_19
	def_bool y
config BR2_USE_MMU
	def_bool y
config BR2_STATIC_LIBS
	bool "static"
config BR2_arm
	def_bool y
config BR2_HOST_CMAKE_AT_LEAST_3_25
	bool
config BR2_TARGET_TZ_INFO
	bool
config BR2_PACKAGE_CLI11
	bool
config BR2_PACKAGE_LIBEVENT
	bool
config BR2_PACKAGE_CLI11
	bool
config BR2_PACKAGE_RPI_USERLAND
	bool "the board's libraries"
config BR2_PACKAGE_QT5BASE_GUI
	bool "browser"
config BR2_PACKAGE_QT5BASE_FONTCONFIG
	bool
config BR2_PACKAGE_LIGHTTPD
	bool
config BR2_PACKAGE_LIBERATION
	bool
config BR2_PACKAGE_DEJAVU
	bool
config BR2_PACKAGE_WQY_ZENHEI
	bool
source "$BR2_EXTERNAL_STATION_DISPLAY_PATH/Config.in"
"""

# The parts used here of its rules for both kinds of packages.
RULES = """\
INSTALL = install
SED = sed -i -e
include .config
HDTV_PKGDIR = $(BR2_EXTERNAL_STATION_DISPLAY_PATH)/package/hdtv
STATION_WEB_PKGDIR = $(BR2_EXTERNAL_STATION_DISPLAY_PATH)/package/station-web
cmake-package = CMAKE_PACKAGES += hdtv
generic-package = GENERIC_PACKAGES += station-web
include $(BR2_EXTERNAL_STATION_DISPLAY_PATH)/external.mk

configure:
	test "$(CMAKE_PACKAGES)" = hdtv -a "$(GENERIC_PACKAGES)" = station-web
	cmake -S $(HDTV_SITE) -B build -DCMAKE_INSTALL_PREFIX=/usr $(HDTV_CONF_OPTS)
	echo dependencies: $(HDTV_DEPENDENCIES)

$(HDTV_SITE)/install:
	$(HDTV_INSTALL_INIT_$(INIT))
	$(STATION_WEB_INSTALL_TARGET_CMDS)
	$(STATION_WEB_INSTALL_INIT_$(INIT))

install: $(HDTV_SITE)/install

users:
	$(info $(STATION_WEB_USERS))
"""


FONTS = {f"BR2_PACKAGE_{name}=y" for name in ("LIBERATION", "DEJAVU", "WQY_ZENHEI")}
SYSTEMD_UNITS = {"hdtv.service", "hdtv-upkeep.service", "hdtv-upkeep.timer", "station-web.service"}


class ImageBuilder:
    def __init__(self, directory: Path) -> None:
        self.directory = directory
        self.target = directory / "target"
        (directory / "Config.in").write_text(OPTIONS)
        (directory / "Makefile").write_text(RULES)

    def run(self, *command: str) -> str:
        environment = {
            "PATH": "/usr/sbin:/usr/bin:/sbin:/bin",
            "BR2_EXTERNAL_STATION_DISPLAY_PATH": str(BOARD),
            "TARGET_DIR": str(self.target),
            "CONFIG_": "",  # the options' common prefix
        }
        result = subprocess.run(
            command,
            cwd=self.directory,
            env=environment,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            timeout=120,
        )
        assert result.returncode == 0, result.stdout
        return result.stdout

    def choose(self, *lines: str) -> set[str]:
        """The resulting selection."""
        (self.directory / "chosen").write_text("".join(line + "\n" for line in lines))
        said = self.run("kconfig-conf", "--defconfig=chosen", "Config.in")
        assert "warning" not in said
        return set((self.directory / ".config").read_text().splitlines())


@pytest.fixture
def builder(tmp_path: Path) -> ImageBuilder:
    return ImageBuilder(tmp_path)


def test_service_takes_the_kernels_television_unless_told_otherwise(builder: ImageBuilder) -> None:
    chosen = builder.choose("BR2_PACKAGE_HDTV=y")
    assert {"BR2_PACKAGE_HDTV_CEC_LINUX=y", "BR2_PACKAGE_LIBEVENT=y"} <= chosen
    assert {"BR2_HOST_CMAKE_AT_LEAST_3_25=y", "BR2_TARGET_TZ_INFO=y"} <= chosen
    said = builder.run("make", "configure")
    assert "dependencies: host-pkgconf libevent\n" in said
    assert "not used by the project" not in said
    cache = (builder.directory / "build" / "CMakeCache.txt").read_text()
    assert "CEC_PORT:STRING=linux" in cache
    assert "HDTV_TESTS:BOOL=OFF" in cache
    assert {"HDTV_TOOLS:BOOL=OFF", "HDTV_DOCTOR:BOOL=OFF"} <= set(cache.splitlines())


def test_doctor_is_an_option(builder: ImageBuilder) -> None:
    chosen = builder.choose("BR2_PACKAGE_HDTV=y", "BR2_PACKAGE_HDTV_DOCTOR=y")
    assert "BR2_PACKAGE_CLI11=y" in chosen
    said = builder.run("make", "configure")
    assert "dependencies: host-pkgconf libevent cli11\n" in said
    cache = (builder.directory / "build" / "CMakeCache.txt").read_text()
    assert {"HDTV_TOOLS:BOOL=OFF", "HDTV_DOCTOR:BOOL=ON"} <= set(cache.splitlines())


def test_service_can_take_the_boards_libraries(builder: ImageBuilder) -> None:
    wanted = ("BR2_PACKAGE_HDTV=y", "BR2_PACKAGE_HDTV_CEC_VIDEOCORE=y")
    builder.choose(*wanted, "BR2_PACKAGE_RPI_USERLAND=y")
    said = builder.run("make", "--dry-run", "configure")
    assert "-DCEC_PORT=videocore" in said
    assert "rpi-userland" in said


def test_boards_libraries_are_not_asked_for_where_they_are_gone(builder: ImageBuilder) -> None:
    """Where the package was removed, its option is a trap: nothing selects it."""
    chosen = builder.choose("BR2_PACKAGE_HDTV=y", "BR2_PACKAGE_HDTV_CEC_VIDEOCORE=y")
    assert "BR2_PACKAGE_HDTV_CEC_LINUX=y" in chosen
    assert "BR2_PACKAGE_RPI_USERLAND=y" not in chosen
    assert (
        "# the board's host interface libraries need rpi-userland (up to Buildroot 2025.11)"
        in chosen
    )


def test_tools_are_an_option(builder: ImageBuilder) -> None:
    builder.choose("BR2_PACKAGE_HDTV=y")
    assert "-DHDTV_TOOLS=OFF" in builder.run("make", "--dry-run", "configure")
    chosen = builder.choose("BR2_PACKAGE_HDTV=y", "BR2_PACKAGE_HDTV_TOOLS=y")
    assert "BR2_PACKAGE_CLI11=y" in chosen
    said = builder.run("make", "--dry-run", "configure")
    assert "-DHDTV_TOOLS=ON" in said
    assert "dependencies: host-pkgconf libevent cli11\n" in said.replace('"', "")


def test_image_without_shared_libraries_has_the_service_alone(builder: ImageBuilder) -> None:
    """The web server needs them."""
    wanted = ("BR2_PACKAGE_HDTV=y", "BR2_PACKAGE_STATION_WEB=y")
    chosen = builder.choose(*wanted, "BR2_STATIC_LIBS=y")
    assert "BR2_PACKAGE_STATION_WEB=y" not in chosen
    assert "# station-web needs a toolchain w/ dynamic library" in chosen
    assert "-DHDTV_STATIC=ON" in builder.run("make", "--dry-run", "configure")


def test_service_needs_a_toolchain_with_cpp(builder: ImageBuilder) -> None:
    chosen = builder.choose("BR2_PACKAGE_HDTV=y", "# BR2_INSTALL_LIBSTDCPP is not set")
    assert "BR2_PACKAGE_HDTV=y" not in chosen


def test_page_and_init_scripts_come_onto_the_board(builder: ImageBuilder) -> None:
    chosen = builder.choose("BR2_PACKAGE_HDTV=y", "BR2_PACKAGE_STATION_WEB=y")
    assert "BR2_PACKAGE_LIGHTTPD=y" in chosen
    assert FONTS <= chosen
    init = builder.target / "etc" / "init.d"
    init.mkdir(parents=True)
    (init / "S50lighttpd").touch()
    builder.run("make", "install", "INIT=SYSV")
    assert {file.name for file in init.iterdir()} == {"S80station-web", "S90hdtv"}
    upkeep = builder.target / "usr/lib/hdtv/upkeep"
    assert f"\nUPKEEP=/{upkeep.relative_to(builder.target)}\n" in (init / "S90hdtv").read_text()
    assert all(file.stat().st_mode & 0o111 for file in [*init.iterdir(), upkeep])
    page = {file.name for file in (builder.target / "var/www/station_web").iterdir()}
    assert page == {file.name for file in (TOP / "station_web").iterdir()} - {"CMakeLists.txt"}
    version = (builder.target / "var/www/station_web/version.js").read_text()
    assert version == f"var page_version = '{VERSION}';\n"


def test_units_for_systemd_come_onto_the_board(builder: ImageBuilder) -> None:
    builder.choose("BR2_PACKAGE_HDTV=y", "BR2_PACKAGE_STATION_WEB=y")
    units = builder.target / "usr/lib/systemd/system"
    units.mkdir(parents=True)
    (units / "lighttpd.service").touch()
    builder.run("make", "install", "INIT=SYSTEMD")
    assert {file.name for file in units.iterdir()} == SYSTEMD_UNITS
    assert "\nUser=station-web\nGroup=station-web\n" in (units / "station-web.service").read_text()
    # What they refer to.
    texts = "".join(file.read_text() for file in units.iterdir())
    scripts = set(re.findall(r"/usr/lib/hdtv/[A-Za-z0-9]+", texts))
    assert scripts == {"/usr/lib/hdtv/S90hdtv", "/usr/lib/hdtv/upkeep"}
    assert all((builder.target / path.lstrip("/")).stat().st_mode & 0o111 for path in scripts)
    setting = (builder.target / "usr/lib/sysctl.d/60-hdtv.conf").read_text()
    assert "\nnet.ipv4.tcp_syn_retries = 1\n" in setting


def test_browser_of_an_image_finds_the_fonts(builder: ImageBuilder) -> None:
    assert "BR2_PACKAGE_QT5BASE_FONTCONFIG=y" not in builder.choose("BR2_PACKAGE_STATION_WEB=y")
    chosen = builder.choose("BR2_PACKAGE_STATION_WEB=y", "BR2_PACKAGE_QT5BASE_GUI=y")
    assert "BR2_PACKAGE_QT5BASE_FONTCONFIG=y" in chosen


def test_image_can_do_without_the_largest_font(builder: ImageBuilder) -> None:
    left_out = "# BR2_PACKAGE_STATION_WEB_CJK is not set"
    chosen = builder.choose("BR2_PACKAGE_STATION_WEB=y", left_out)
    assert FONTS - chosen == {"BR2_PACKAGE_WQY_ZENHEI=y"}


def test_web_servers_account_comes_onto_the_board(builder: ImageBuilder) -> None:
    builder.choose("BR2_PACKAGE_STATION_WEB=y")
    # Name, number, group, its number, password, home, shell, groups, comment.
    fields = builder.run("make", "users").split("\n")[0].split(maxsplit=8)
    assert fields[:4] == ["station-web", "-1", "station-web", "-1"]
    assert fields[4:8] == ["*", "-", "-", "-"]
    script = (builder.directory / BOARD / "package/station-web/S80station-web").read_text()
    assert f"\nACCOUNT={fields[0]} " in script


def test_init_of_the_example_board_keeps_the_service_alive(tmp_path: Path) -> None:
    script = BOARD / "station_display" / "post-build.sh"
    subprocess.run([script, tmp_path], check=True)  # not with systemd
    assert not list(tmp_path.iterdir())
    inittab = tmp_path / "etc" / "inittab"
    inittab.parent.mkdir()
    inittab.write_text("::sysinit:/etc/init.d/rcS\n")
    for _ in range(2):  # with every image that is built
        subprocess.run([script, tmp_path], check=True)
        (line,) = [x for x in inittab.read_text().splitlines() if "hdtv" in x]
        assert line == "::respawn:/etc/init.d/S90hdtv respawn"
        operations = (TOP / "docs" / "operations.md").read_text()
        assert f"    {line}\n" in operations


def test_example_board_has_the_settings_and_file_systems_of_a_unit() -> None:
    overlay = BOARD / "station_display" / "overlay"
    settings = (overlay / "var/www/config.json").read_text()
    assert settings == (BOARD / "debian" / "config.json").read_text()
    lines = [line.split() for line in (overlay / "etc/fstab").read_text().splitlines()]
    types = {line[1]: (line[2], line[3]) for line in lines if line[0] != "#"}
    for directory in ("/tmp", "/dev/shm"):
        kind, options = types[directory]
        assert kind == "tmpfs" and "size=" in options


@pytest.mark.parametrize(
    ("words", "status", "answer"),
    [
        ((), 2, "usage: ./scripts/image-check TREE [STEP...]"),
        (("--steps",), 2, "usage: ./scripts/image-check TREE [STEP...]"),
        (("--help",), 0, "usage: ./scripts/image-check TREE [STEP...]"),
    ],
)
def test_check_of_a_whole_tree_tells_how_to_call_it(
    words: tuple[str, ...], status: int, answer: str
) -> None:
    command = [str(TOP / "scripts" / "image-check"), *words]
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    said = result.stderr if status else result.stdout
    assert (result.returncode, said.splitlines()[0]) == (status, answer)


@pytest.mark.parametrize(
    ("words", "answer"),
    [
        (("/no/such/tree",), "/no/such/tree: no such directory or archive"),
        ((str(TOP),), f"{TOP}: not a Buildroot tree"),
        ((str(TOP), "paint"), "there is no step paint, only checker, board, options, build"),
    ],
)
def test_check_of_a_whole_tree_needs_one(words: tuple[str, ...], answer: str) -> None:
    command = ["/usr/bin/python3", str(TOP / "tests/image/image_check.py"), *words]
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    assert (result.returncode, result.stderr) == (2, f"image-check: {answer}\n")
