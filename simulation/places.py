"""Where things lie: in a unit, on its network, and in this checkout."""

import os
from pathlib import Path

GATEWAY_ADDRESSES = ("10.87.33.1", "10.87.33.20", "10.87.33.21")
UNIT_ADDRESS = "10.87.33.50"
HARDWARE_ADDRESS = "02:00:0a:57:21:32"
CONFIG = "/var/www/config.json"
DOCUMENT = "/dev/shm/alerts.json"
ALERT_LOG = "/tmp/alerts.log"
LIVENESS_FILE = "/dev/shm/web_watchdog"
STATION_WEB = "/var/www/station_web"
SERVICE_VERSION = "/usr/share/hdtv/version"
WEB_PORT = 80
GATEWAY_FILE = "/dev/shm/current_gateway"
LOUDSPEAKER = "/tmp/loudspeaker.wav"  # where the player's sound goes

REAL = "/run/station/real"
BIN = "/run/station/bin"
JOURNAL = "/run/station/journal"  # of the stand-ins


def top_directory() -> Path:
    return Path(__file__).resolve().parent.parent


def build_directory() -> Path:
    return Path(os.environ.get("HDTV_BUILD") or top_directory() / "build" / "release").resolve()


def host_build_directory() -> Path:
    """The build whose programs run on this machine, whatever the service is built for."""
    own = build_directory()
    return own if (own / "simulation").is_dir() else top_directory() / "build" / "release"
