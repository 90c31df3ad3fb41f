"""What the Debian package does to a modified machine: its scripts, run on their own."""

import subprocess
from pathlib import Path

import pytest
from support import StationMaker

from simulation import gateway
from simulation.places import STATION_WEB, top_directory
from simulation.station import Station

pytestmark = pytest.mark.once

DEBIAN = top_directory() / "board" / "debian"
CMAKE = top_directory() / "cmake"
PAGE = "/usr/share/hdtv/station_web"
USER = "hdtv-kiosk"


@pytest.fixture
def machine(make_station: StationMaker) -> Station:
    """With the package's files, and without those that a station lends."""
    scripts = {"postinst": DEBIAN / "postinst", "postrm": DEBIAN / "postrm"}
    station = make_station(programs=scripts, is_board_root=True, has_page=False)
    station.run("mkdir", "--parents", PAGE)
    station.run("touch", f"{PAGE}/index.html")
    station.path("/usr/share/hdtv/config.json").write_bytes((DEBIAN / "config.json").read_bytes())
    return station


def install(machine: Station) -> None:
    machine.run("/run/station/bin/postinst", "configure")


def check_page_and_settings(machine: Station) -> None:
    settings = machine.run("cat", "/var/www/config.json")
    assert settings == (DEBIAN / "config.json").read_text()
    assert machine.run("ls", f"{STATION_WEB}/") == "index.html\n"


@pytest.mark.parametrize(
    "arrangement",
    [
        "",
        "ln -s /nowhere /var/www/station_web",
        "ln -s /nowhere/config.json /var/www/config.json",
        "ln -s /var/lib/config.json /var/www/config.json",
        "rmdir /var/www; mkdir /srv/web; ln -s /srv/web /var/www",
        "rmdir /var/www; ln -s /srv/not/there /var/www",
        "rm -r /var/www",
        "mkdir /var/www/html",
    ],
)
def test_links_in_the_place_of_its_files_are_no_obstacle(
    machine: Station, arrangement: str
) -> None:
    machine.run("sh", "-ec", "rm -rf /var/www/*; " + arrangement)
    links = "find /var/www -type l ! -name station_web"
    before = machine.run("sh", "-c", f"{links} 2>/dev/null; true")
    install(machine)
    check_page_and_settings(machine)
    assert machine.run("sh", "-c", links) == before
    install(machine)
    check_page_and_settings(machine)


def test_page_and_settings_of_the_machines_own_are_left_alone(machine: Station) -> None:
    machine.run(
        "sh", "-ec", "rm -rf /var/www/*; mkdir /srv/page; ln -s /srv/page /var/www/station_web"
    )
    machine.path("/var/www/config.json").write_text("own")
    install(machine)
    assert machine.run("readlink", STATION_WEB) == "/srv/page\n"
    assert machine.run("cat", "/var/www/config.json") == "own"
    machine.run("/run/station/bin/postrm", "remove")
    assert machine.run("readlink", STATION_WEB) == "/srv/page\n"


def test_browsers_user_comes_and_goes_with_the_package(machine: Station) -> None:
    install(machine)
    name, _, number, _, _, home, shell = machine.run("getent", "passwd", USER).strip().split(":")
    assert (name, home, shell) == (USER, "/nonexistent", "/usr/sbin/nologin")
    assert 100 <= int(number) < 1000
    groups = machine.run("id", "--name", "--groups", USER).split()
    assert set(groups) <= {USER, "render"}
    install(machine)
    assert machine.run("id", "--user", USER).strip() == number
    machine.run("/run/station/bin/postrm", "remove")
    assert machine.run("id", "--user", USER).strip() == number
    machine.run("/run/station/bin/postrm", "purge")
    assert USER not in machine.path("/etc/passwd").read_text()
    assert USER not in machine.path("/etc/group").read_text()


def test_wget_of_the_service_takes_no_option_for_an_address(make_station: StationMaker) -> None:
    station = make_station(programs={"wget": DEBIAN / "wget"})
    station.path("/run/hdtv").mkdir()
    station.run("cp", "/run/station/bin/stand-in", "/run/hdtv/wget")
    station.behave("wget")
    fixed = ("-O", "/tmp/play.wav", "-T", "1")
    for option in ("--config=/tmp/play.wav", "-o/root/x.wav", "-\x1b[2J\n\xff.wav", "-"):
        process = station.start("/run/station/bin/wget", *fixed, option)
        assert process.wait() == 2
        assert process.errors.startswith("wget: not an address: -")
        assert process.errors.count("\n") == 1 and process.errors.rstrip("\n").isprintable()
    assert station.calls("wget") == []
    for address in ("http://x/a.wav", "10.87.33.20/a b.wav", "$(id)`id`.wav"):
        assert station.start("/run/station/bin/wget", *fixed, address).wait() == 0
        assert station.calls("wget")[-1].argv[1:] == [*fixed, address]


class Upgrade:
    """A running service in a unit whose package has just been replaced. What would restart its units
    says so instead."""

    def __init__(self, station: Station) -> None:
        self.station = station
        self.service = station.start_service()
        station.wait_for_calls("qt-webkit-kiosk")
        station.run("mkdir", "--parents", "/usr/lib/hdtv", "/tmp/fakes")
        script = station.path("/usr/lib/hdtv/S90hdtv")
        script.write_bytes((DEBIAN.parent / "package" / "hdtv" / "S90hdtv").read_bytes())
        script.chmod(0o755)
        (pid,) = station.run("pidof", "hdtv").split()
        self._fake(
            "systemctl", f'case "$*" in show*) echo {pid} ;; *is-active*) exec $TIMER ;; esac'
        )
        self._fake("deb-systemd-invoke", 'echo "$@" >>/tmp/restarts')

    def _fake(self, name: str, script: str) -> None:
        path = self.station.path(f"/tmp/fakes/{name}")
        path.write_text(f"#!/bin/sh\n{script}\n")
        path.chmod(0o755)

    def renew(self, *words: str, timer: str = "true") -> str:
        path = "PATH=/tmp/fakes:/usr/sbin:/usr/bin:/sbin:/bin"
        return self.station.run("env", path, f"TIMER={timer}", "/run/station/bin/renew", *words)

    def restarts(self) -> list[str]:
        path = self.station.path("/tmp/restarts")
        return path.read_text().splitlines() if path.exists() else []

    def show(self, text: str) -> None:
        """Over UDP, so that no connection is left."""
        gateway.send_datagram(self.station, gateway.display_alert(text))
        self.service.wait_for_output(f'"alert_area":"{text}"')


@pytest.fixture
def upgrade(make_station: StationMaker) -> Upgrade:
    return Upgrade(make_station(programs={"renew": DEBIAN / "renew"}, is_board_root=True))


BOTH = "try-restart station-web.service hdtv.service"


def test_upgrade_on_a_quiet_unit_restarts_what_runs_at_once(upgrade: Upgrade) -> None:
    assert upgrade.renew() == "" and upgrade.restarts() == []
    assert upgrade.renew("begin") == ""
    assert upgrade.restarts() == [BOTH]
    upgrade.renew()
    assert upgrade.restarts() == [BOTH]


def test_upgrade_during_an_alert_waits_for_its_end_however_long(upgrade: Upgrade) -> None:
    upgrade.show("FIRE")
    said = upgrade.renew("begin")
    assert "an alert is shown" in said and "(hdtv-upkeep.timer)" in said
    assert said.endswith("hdtv:   systemctl restart station-web hdtv\n")
    assert "by hand" in upgrade.renew("begin", timer="false")
    upgrade.station.run("touch", "--date=2 days ago", "/run/hdtv.renew")
    assert upgrade.renew() == ""
    assert upgrade.restarts() == []
    upgrade.show("")
    assert upgrade.renew() == ""
    assert upgrade.restarts() == [BOTH]


def test_upgrade_waits_an_hour_for_a_free_port(upgrade: Upgrade) -> None:
    gateway.deliver(upgrade.station, gateway.display_alert(""))
    assert "a message has just come" in upgrade.renew("begin")
    upgrade.station.run("touch", "--date=59 minutes ago", "/run/hdtv.renew")
    upgrade.renew()
    assert upgrade.restarts() == []
    upgrade.station.run("touch", "--date=62 minutes ago", "/run/hdtv.renew")
    upgrade.renew()
    assert upgrade.restarts() == [BOTH]


def test_upgrade_leaves_a_service_alone_that_already_runs_the_new_version(upgrade: Upgrade) -> None:
    """Because it died in the meantime, or somebody restarted it."""
    program = upgrade.station.service_command[0]
    upgrade.station.run("cp", "--remove-destination", program, "/usr/sbin/hdtv")
    new = upgrade.station.start("/usr/sbin/hdtv")
    new.wait_for_output("Starting qt-webkit-kiosk")
    pids = upgrade.station.run("pidof", "hdtv").split()
    upgrade._fake("systemctl", f"echo {pids[0]}")
    upgrade.renew("begin")
    assert upgrade.restarts() == ["try-restart station-web.service"]


DAY = "2026-11-22T23:30:00Z"
AUTHOR = ["-c", "user.name=n", "-c", "user.email=n@example"]


def git(directory: Path, *words: str) -> str:
    """Its commits are made late in the evening (UTC), which elsewhere is the next day."""
    return subprocess.run(
        ["git", "-C", str(directory), *AUTHOR, *words],
        env={"PATH": "/usr/bin:/bin", "GIT_COMMITTER_DATE": DAY, "HOME": str(directory)},
        capture_output=True,
        text=True,
        check=True,
    ).stdout.strip()


def package_version(sources: Path) -> str:
    script = str(CMAKE / "commit.cmake")
    where = [f"-DPROJECT_SOURCE_DIR={sources}", "-DPROJECT_VERSION=47"]
    result = subprocess.run(
        ["cmake", *where, "-P", script],
        env={"PATH": "/usr/bin:/bin", "TZ": "Pacific/Auckland"},
        capture_output=True,
        text=True,
        check=True,
    )
    return result.stdout.splitlines()[-1].removeprefix("-- Package version ")


def make_sources(path: Path) -> Path:
    (path / "cmake").mkdir(parents=True)
    (path / "cmake" / "commit").write_bytes((CMAKE / "commit").read_bytes())
    (path / ".gitattributes").write_bytes((CMAKE.parent / ".gitattributes").read_bytes())
    return path


def test_version_of_the_package_names_the_commit(tmp_path: Path) -> None:
    sources = make_sources(tmp_path / "sources")
    assert package_version(sources) == "47+0.unknown"
    git(sources, "init", "--quiet")
    git(sources, "add", ".")
    git(sources, "commit", "--quiet", "--message=first")
    version = "47+20261122." + git(sources, "rev-parse", "HEAD")[:10]
    assert package_version(sources) == version
    (sources / "new.html").touch()
    assert package_version(sources) == version + "+modified"


def test_version_of_the_package_is_known_without_git(tmp_path: Path) -> None:
    sources = make_sources(tmp_path / "sources")
    git(sources, "init", "--quiet")
    git(sources, "add", ".")
    git(sources, "commit", "--quiet", "--message=first")
    version = package_version(sources)
    archive, unpacked = str(tmp_path / "sources.tar"), tmp_path / "other" / "unpacked"
    git(sources, "archive", "--output", archive, "HEAD")
    unpacked.mkdir(parents=True)
    subprocess.run(["tar", "-xf", archive, "-C", str(unpacked)], check=True)
    assert package_version(unpacked) == version
    # The commit of what it happens to lie in is another project's.
    git(tmp_path / "other", "init", "--quiet")
    assert package_version(unpacked) == version


@pytest.mark.parametrize(
    "earlier, later",
    [
        ("47", "47+0.unknown"),
        ("47+0.unknown", "47+20261122.0000000000"),
        ("47+20261122.ffffffffff", "47+20261123.0000000000"),
        ("47+20261122.ffffffffff", "47+20261122.ffffffffff+modified"),
        ("47+20261122.ffffffffff+modified", "47+20261123.0000000000"),
        ("47+20261231.0000000000+modified", "48+20270101.0000000000"),
    ],
)
def test_later_package_is_an_upgrade(earlier: str, later: str) -> None:
    subprocess.run(["dpkg", "--compare-versions", earlier, "lt", later], check=True)
