"""What the Debian package does to a modified machine: its scripts, run on their own."""

import pytest
from support import StationMaker

from simulation.station import STATION_WEB, Station, top_directory

pytestmark = pytest.mark.once

DEBIAN = top_directory() / "board" / "debian"
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
