"""What a unit must not see of this machine: programs that change it or shut it down, and files that
are not world-readable."""

import functools
import itertools
import os
import stat
import subprocess
from pathlib import Path

# Matched with any suffix: mkfs also stands for mkfs.ext4.
DANGEROUS = frozenset(
    # its power and its services
    "reboot poweroff halt shutdown init telinit runlevel linuxrc kexec rtcwake systemctl systemd"
    " systemd-run service loginctl machinectl bootctl busctl initctl"
    # its clock and its name
    " date hwclock rtc timedatectl hostnamectl adjtimex adjtime rdate ntpd ntpdate chronyd chronyc"
    # its kernel
    " insmod rmmod modprobe depmod kmod sysctl dmesg udevadm bpftool chcpu ldattach devmem"
    # its disks and mounts
    " mount umount swapon swapoff mkswap mkfs mke2fs mkdosfs fsck e2fsck resize2fs tune2fs fdisk"
    " sfdisk cfdisk sgdisk gdisk parted losetup blkdiscard blockdev wipefs fsfreeze fstrim hdparm"
    " dmsetup cryptsetup mdadm zramctl fatattr flash_eraseall nanddump nandwrite"
    " freeramdisk"
    # its screen and keyboard
    " chvt openvt deallocvt setfont loadkmap fbset fgconsole kbd_mode"
    # ways out
    " chroot nsenter unshare pivot_root switch_root run-init".split()
)

# Where programs are looked up. Keep in step with simulation/launch.cpp.
_SEARCHED = ("/bin", "/sbin", "/usr/bin", "/usr/sbin", "/usr/local/bin", "/usr/local/sbin")

# What the unit shares of the machine's root.
_SHARED = ("bin", "sbin", "usr", "etc")
_PRIVATE = ("/etc/shadow", "/etc/gshadow", "/etc/ssh", "/etc/ssl/private", "/etc/sudoers")

_MASK = b"~"  # sorts after every letter, so the names stay in order


def _stem(name: str) -> str:
    return name.partition(".")[0]


def _programs() -> list[str]:
    directories = sorted({os.path.realpath(directory) for directory in _SEARCHED})
    existing = [directory for directory in directories if os.path.isdir(directory)]
    return [f"{place}/{name}" for place in existing for name in sorted(os.listdir(place))]


def _busyboxes() -> list[str]:
    return [path for path in _programs() if _stem(os.path.basename(path)) == "busybox"]


@functools.cache
def dangerous_programs() -> list[str]:
    """Those on this machine's search path. All but one busybox count as dangerous."""
    named = [path for path in _programs() if _stem(os.path.basename(path)) in DANGEROUS]
    return named + _busyboxes()[1:]


@functools.cache
def masked_busybox() -> tuple[str, list[int], str] | None:
    """The busybox on this machine's search path, the offsets to patch, and the character to write
    there so that it no longer recognizes its dangerous applets. Stand-ins in place of its links
    would not be enough: its shell runs its own applets no matter where it is installed."""
    found = _busyboxes()
    return (found[0], _applet_ends(Path(found[0])), _MASK.decode()) if found else None


def _applet_ends(busybox: Path) -> list[int]:
    listing = subprocess.run([busybox, "--list"], check=True, capture_output=True, timeout=20)
    names = listing.stdout.split()
    # The names are stored one after another in alphabetical order, which its search relies on.
    table = b"\0".join([b"", *names, b""])
    masked = [name[:-1] + _MASK if name.decode() in DANGEROUS else name for name in names]
    content = busybox.read_bytes()
    if content.count(table) != 1 or masked != sorted(masked):
        raise ValueError(f"{busybox} keeps its programs in an unknown way")
    ends = itertools.accumulate(len(name) + 1 for name in names)
    start = content.index(table)
    return [
        start + end - 1 for end, old, new in zip(ends, names, masked, strict=True) if old != new
    ]


@functools.cache
def hidden_paths() -> list[str]:
    """All but programs, libraries and settings; and the settings that are not world-readable."""
    top = [
        f"/{name}" for name in os.listdir("/") if name not in _SHARED and not name.startswith("lib")
    ]
    return top + _private_settings("/etc")


def _private_settings(directory: str) -> list[str]:
    found = []
    with os.scandir(directory) as entries:
        for entry in entries:
            is_for_all = entry.stat(follow_symlinks=False).st_mode & stat.S_IROTH
            if entry.path in _PRIVATE or not is_for_all:
                found.append(entry.path)
            elif entry.is_dir(follow_symlinks=False):
                found += _private_settings(entry.path)
    return found
