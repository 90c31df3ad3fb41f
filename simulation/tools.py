"""The board's tools that stand-ins replace, and what a unit sees of this machine's own."""

import os
from typing import Any

from simulation import dangers
from simulation.places import REAL

# Every tool that the service starts, or that would harm this machine, and what its stand-in does.
# An empty behavior exits at once with status 0.
STAND_INS: dict[str, str] = {
    "/usr/bin/qt-webkit-kiosk": "stay",
    "/sbin/reboot": "",
    "/sbin/poweroff": "",
    "/sbin/halt": "",
    "/bin/date": "",
    "/bin/mount": "",
    "/bin/umount": "",
    "/usr/bin/amixer": "",
    "/usr/bin/tvservice": "",
    "/usr/bin/lsusb": "",
    "/etc/init.d/S40network": "",
    "/sbin/ifconfig": f"exec {REAL}/usr/sbin/ifconfig",
    "/sbin/udhcpc": f"exec {REAL}/usr/sbin/udhcpc",
    "/usr/bin/killall": f"exec {REAL}/usr/bin/killall",
    "/usr/bin/wget": f"exec {REAL}/usr/bin/wget",
    "/usr/bin/aplay": f"exec {REAL}/usr/bin/aplay",
}


# Additional tools for a unit with a board's root. The service's own mounts still have no effect.
BOARD_TOOLS: dict[str, str] = {"/usr/bin/unshare": f"exec {REAL}/usr/bin/unshare"}
BOARD_MOUNT = "/usr/bin/mount"


def real_programs(is_board_root: bool) -> dict[str, str]:
    """The programs that stand-ins exec, by the paths that they use."""
    behaviours = [*STAND_INS.values(), *(BOARD_TOOLS.values() if is_board_root else [])]
    words = [behaviour.partition(f"exec {REAL}")[2] for behaviour in behaviours]
    words += [BOARD_MOUNT] if is_board_root else []
    return {path: os.path.realpath(path) for path in words if path and os.path.exists(path)}


def machine_settings(is_board_root: bool) -> dict[str, Any]:
    """What to keep away from a unit on this machine."""
    return {
        "dangerous_names": sorted(dangers.DANGEROUS),
        "dangerous_programs": dangers.dangerous_programs(),
        "busybox": dangers.masked_busybox(),
        "hidden": dangers.hidden_paths(),
        "real": real_programs(is_board_root),
    }
