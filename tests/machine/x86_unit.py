"""A whole emulated unit that runs Debian: its own kernel and systemd, this machine's root file system
read-only under a disk of its own."""

import re
import shutil
import subprocess
from pathlib import Path

import machine

from simulation.station import Station

CACHE = machine.CACHE / "x86"
(PACKAGE,) = (machine.TOP / "build" / "debian").glob("hdtv_*.deb")
INSTALL = f"dpkg --force-unsafe-io -i {PACKAGE}"

ADDRESS = "10.87.33.60"
HARDWARE_ADDRESS = "52:54:00:87:33:60"

MODULES = (
    *("virtio_pci", "virtio_net", "virtio_blk", "9pnet_virtio", "9p", "overlay", "ext4"),
    *("i6300esb", "vivid", "snd-hda-codec-generic", "snd-hda-intel", "xhci_pci"),
)
APPLETS = ("sh", "mount", "insmod", "mkdir", "mv", "cp", "rm", "ln", "cat", "ip", "switch_root")

# The first of the two CEC adapters is the television's.
INIT = """\
#!/bin/sh
echo starting
mount -t proc proc /proc
mount -t sysfs sys /sys
mount -t devtmpfs dev /dev
for module in $(cat /modules/list); do insmod /modules/$module; done
mv /dev/cec0 /dev/cec-television
mv /dev/cec1 /dev/cec0
ip link set eth0 address {hardware_address}
ip link set eth0 up
ip address add {address}/24 dev eth0
mount -t 9p -o trans=virtio,version=9p2000.L,ro,msize=262144,cache=loose host /lower
mount -t ext4 /dev/vda /upper
[ -e /upper/root ] || first=yes
mkdir -p /upper/root /upper/work
mount -t overlay -o lowerdir=/lower,upperdir=/upper/root,workdir=/upper/work root /root
for directory in proc sys dev; do mount --move /$directory /root/$directory; done
[ -z "$first" ] || . /first
exec switch_root /root /lib/systemd/systemd
"""

# What this machine starts and mounts does not belong in the unit.
FIRST = """\
rm -rf /root/etc/systemd/system /root/etc/rc?.d /root/var/lib/dpkg /root/var/lib/man-db/auto-update
rm -f /root/etc/resolv.conf /root/etc/machine-id /root/.dockerenv /root/usr/sbin/policy-rc.d
: >/root/etc/fstab
cp /root/usr/bin/aplay /root/usr/bin/aplay-now
cp -r /install/. /root
"""

MASKED = (
    *("systemd-udevd", "systemd-udev-trigger", "systemd-tmpfiles-setup", "systemd-sysusers"),
    *("systemd-logind", "systemd-journal-flush", "serial-getty@ttyS0", "getty@tty1"),
)

SHELL_UNIT = """\
[Unit]
After=multi-user.target
[Service]
Type=idle
ExecStart=/bin/bash -c 'stty -echo; echo {up}; exec /bin/bash --norc --noprofile'
Environment=TERM=dumb
StandardInput=tty
StandardOutput=tty
StandardError=tty
TTYPath=/dev/ttyS0
KillSignal=SIGHUP
[Install]
WantedBy=multi-user.target
"""

# The card's own volume is left alone; players open a device whose volume has the board's name.
ASOUND = """\
pcm.!default {
    type softvol
    slave.pcm "plughw:0"
    control { name "PCM Playback Volume" card 0 }
}
"""

# The service starts the player as soon as any child exits, even before the download is done. This
# player waits for the clip, so that the sound does not depend on the emulator's speed.
APLAY = """\
#!/bin/sh
if [ "$1" = /tmp/play.wav ]; then
    while [ ! -s "$1" ] || ps -C wget -o stat= | grep -qv Z; do sleep 0.1; done
fi
exec /usr/bin/aplay-now "$@"
"""

# Shows nothing, but its command line is visible. A sandboxed browser needs namespaces.
KIOSK = """\
#!/bin/bash
setpriv --reuid 65534 --regid 65534 --clear-groups unshare --user --pid --net --fork \
    echo "the browser's namespaces are there"
exec -a "$*" sleep 1000000
"""


def make_initramfs(root: Path) -> Path:
    for name in ("bin", "proc", "sys", "dev", "lower", "upper", "root"):
        (root / name).mkdir(parents=True)
    shutil.copy("/bin/busybox", root / "bin")
    for applet in APPLETS:
        (root / "bin" / applet).symlink_to("busybox")
    machine.install_modules(root, CACHE, MODULES)
    make_installation(root / "install")
    script = INIT.format(hardware_address=HARDWARE_ADDRESS, address=ADDRESS)
    machine.write_program(root / "init", script)
    machine.write_program(root / "first", FIRST)
    return machine.pack(root)


def make_installation(root: Path) -> None:
    """What the unit has in addition to what this machine has."""
    units = root / "etc/systemd/system"
    wants = units / "multi-user.target.wants"
    wants.mkdir(parents=True)
    (units / "console-shell.service").write_text(SHELL_UNIT.format(up=machine.UP))
    (wants / "console-shell.service").symlink_to("../console-shell.service")
    (units / "default.target").symlink_to("/lib/systemd/system/multi-user.target")
    for name in MASKED:
        (units / f"{name}.service").symlink_to("/dev/null")
    (root / "etc/machine-id").write_text("0123456789abcdef" * 2 + "\n")
    (wants / "lighttpd.service").symlink_to("/lib/systemd/system/lighttpd.service")
    (root / "etc/asound.conf").write_text(ASOUND)
    make_package_database(root / "var/lib/dpkg")
    (root / "usr/bin").mkdir(parents=True)
    (root / "usr/bin/tvservice").symlink_to("/bin/true")
    machine.write_program(root / "usr/bin/qt-webkit-kiosk", KIOSK)
    machine.write_program(root / "usr/bin/aplay", APLAY)


def make_package_database(root: Path) -> None:
    """Only what the package needs. Reading the whole status in the emulator would take minutes."""
    command = ["dpkg-deb", "--field", str(PACKAGE), "Depends"]
    needs = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    names = [need.split()[0] for need in needs.split(",")]
    (root / "info").mkdir(parents=True)
    (root / "updates").mkdir()
    with open(root / "status", "w", encoding="utf-8") as status:
        subprocess.run(["dpkg-query", "--status", *names], check=True, stdout=status)
    for name in names:
        for pattern in (f"{name}.list", f"{name}:*.list"):
            for file in Path("/var/lib/dpkg/info").glob(pattern):
                shutil.copy(file, root / "info")


def make_former_package(directory: Path) -> Path:
    """What the package is an upgrade of: the same with the version that all of them once had."""
    root, package = directory / "former", directory / "hdtv_47.deb"
    subprocess.run(["dpkg-deb", "--raw-extract", str(PACKAGE), str(root)], check=True)
    control = root / "DEBIAN" / "control"
    text = re.sub("^Version: .*", "Version: 47", control.read_text(), flags=re.MULTILINE)
    control.write_text(text)
    build = ["dpkg-deb", "--root-owner-group", "-Znone", "--build", str(root), str(package)]
    subprocess.run(build, check=True, stdout=subprocess.DEVNULL)
    return package


def make_disk(path: Path) -> Path:
    with open(path, "wb") as file:
        file.truncate(1 << 30)
    subprocess.run(["mkfs.ext4", "-q", str(path)], check=True)
    return path


class X86Unit(machine.Machine):
    """The contents of its disk survive until its next power-on."""

    def __init__(self, station: Station, directory: Path) -> None:
        archive = make_initramfs(directory / "initramfs")
        disk = make_disk(directory / "disk")
        self.former_package = make_former_package(directory)
        version = machine.kernel_version(CACHE)
        self.recording = directory / "sound.wav"
        host = "local,path=/,mount_tag=host,security_model=none,readonly=on,multidevs=remap"
        command = [
            *("qemu-system-x86_64", "-accel", "tcg,thread=multi", "-cpu", "max", "-smp", "2"),
            *("-m", "1024", "-no-user-config", "-action", "watchdog=reset"),
            *("-kernel", str(CACHE / "boot" / f"vmlinuz-{version}"), "-initrd", str(archive)),
            "-append",
            "console=ttyS0 panic=-1 net.ifnames=0 loglevel=2 mitigations=off systemd.show_status=no",
            *("-virtfs", host, "-drive", f"file={disk},if=virtio,format=raw,cache=unsafe"),
            *("-device", "i6300esb", "-device", "virtio-net-pci,netdev=n0"),
            *("-audiodev", f"wav,id=a0,path={self.recording}"),
            *("-device", "intel-hda", "-device", "hda-output,audiodev=a0"),
            *("-device", "qemu-xhci", "-device", "usb-tablet"),
        ]
        super().__init__(station, directory, command)
