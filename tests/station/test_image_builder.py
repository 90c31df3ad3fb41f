"""The image builder's packages, in a small model of the image builder."""

import subprocess
from pathlib import Path

import pytest

from simulation.gateway import VERSION
from simulation.station import top_directory

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
config BR2_arm
	def_bool y
config BR2_PACKAGE_LIBEVENT
	bool
config BR2_PACKAGE_CLI11
	bool
config BR2_PACKAGE_RPI_USERLAND
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

$(STATION_WEB_SITE)/install:
	$(HDTV_INSTALL_INIT_SYSV)
	$(STATION_WEB_INSTALL_TARGET_CMDS)
	$(STATION_WEB_INSTALL_INIT_SYSV)

install: $(STATION_WEB_SITE)/install

users:
	$(info $(STATION_WEB_USERS))
"""


FONTS = {f"BR2_PACKAGE_{name}=y" for name in ("LIBERATION", "DEJAVU", "WQY_ZENHEI")}


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
    assert "BR2_PACKAGE_RPI_USERLAND=y" not in chosen
    said = builder.run("make", "configure")
    assert "dependencies: host-pkgconf libevent cli11\n" in said
    assert "not used by the project" not in said
    cache = (builder.directory / "build" / "CMakeCache.txt").read_text()
    assert "CEC_PORT:STRING=linux" in cache
    assert "HDTV_TESTS:BOOL=OFF" in cache
    assert {"HDTV_TOOLS:BOOL=OFF", "HDTV_DOCTOR:BOOL=ON"} <= set(cache.splitlines())


def test_image_can_do_without_the_doctor(builder: ImageBuilder) -> None:
    chosen = builder.choose("BR2_PACKAGE_HDTV=y", "# BR2_PACKAGE_HDTV_DOCTOR is not set")
    assert "BR2_PACKAGE_CLI11=y" not in chosen
    said = builder.run("make", "--dry-run", "configure")
    assert "-DHDTV_DOCTOR=ON" not in said and "cli11" not in said


def test_service_can_take_the_boards_libraries(builder: ImageBuilder) -> None:
    chosen = builder.choose("BR2_PACKAGE_HDTV=y", "BR2_PACKAGE_HDTV_CEC_VIDEOCORE=y")
    assert "BR2_PACKAGE_RPI_USERLAND=y" in chosen
    said = builder.run("make", "--dry-run", "configure")
    assert "-DCEC_PORT=videocore" in said
    assert "rpi-userland" in said


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
    builder.run("make", "install")
    assert {file.name for file in init.iterdir()} == {"S80station-web", "S90hdtv"}
    upkeep = builder.target / "usr/lib/hdtv/upkeep"
    assert f"\nUPKEEP=/{upkeep.relative_to(builder.target)}\n" in (init / "S90hdtv").read_text()
    assert all(file.stat().st_mode & 0o111 for file in [*init.iterdir(), upkeep])
    page = {file.name for file in (builder.target / "var/www/station_web").iterdir()}
    assert page == {file.name for file in (TOP / "station_web").iterdir()} - {"CMakeLists.txt"}
    version = (builder.target / "var/www/station_web/version.js").read_text()
    assert version == f"var page_version = '{VERSION}';\n"


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
