"""A whole emulated board: ARM1176, Debian's kernel for it, and an initramfs of busybox, the init
script and the board's build of the service."""

import shutil
import subprocess
from pathlib import Path

import machine

from simulation.station import Station

CACHE = machine.CACHE / "arm"
BUILD = machine.TOP / "build" / "armv6-board"
SYSROOT = machine.TOP / "build" / "armv6-sysroot" / "usr" / "lib" / "arm-linux-gnueabi"
HOST_LIBRARIES = Path("/usr/arm-linux-gnueabi/lib")

ADDRESS = "10.87.33.60"
HARDWARE_ADDRESS = "52:54:00:12:34:60"

MODULES = ("vivid", "softdog", "cdc_ether")
LIBRARIES = ("ld-linux.so.3", "libc.so.6", "libm.so.6", "libstdc++.so.6", "libgcc_s.so.1")
# The paths where the service looks for its tools.
TOOLS = ("/sbin/udhcpc", "/sbin/reboot", "/sbin/ifconfig", "/bin/date", "/bin/mount")
USER_TOOLS = ("/usr/bin/killall", "/usr/bin/wget", "/usr/bin/lsusb")

DIRECTORIES = (
    *("bin", "sbin", "usr/bin", "usr/sbin", "lib", "proc", "sys", "dev", "tmp"),
    *("etc/init.d", "etc/udhcpc", "var/www"),
)

INITTAB = """\
::sysinit:/etc/init.d/rcS
ttyAMA0::respawn:/bin/sh
::respawn:/etc/init.d/S90hdtv respawn
"""

# The emulated board's own watchdog resets the board when it is opened, so the kernel's is used.
# The first of the two CEC adapters is the television's. It starts by scanning the bus: a unit that
# claims its address during the scan may lose it to that traffic.
RCS = """\
#!/bin/sh
mount -t proc proc /proc
mount -t sysfs sys /sys
mount -t devtmpfs dev /dev
mkdir -p /dev/pts /dev/shm /var/run /var/log
mount -t devpts devpts /dev/pts
for module in $(cat /modules/list); do insmod /modules/$module; done
ln -sf watchdog1 /dev/watchdog
mv /dev/cec0 /dev/cec-television
mv /dev/cec1 /dev/cec0
syslogd -O /var/log/messages
ip link set lo up
until [ -e /sys/class/net/usb0 ]; do sleep 0.1; done
ip link set usb0 name eth0
ip link set eth0 address {hardware_address}
ip link set eth0 up
{address_command}
cec-ctl -d /dev/cec-television --tv >/var/log/television 2>&1
cec-follower -d /dev/cec-television -v {follower} >>/var/log/television 2>&1 &
until grep -q 'Initial Event' /var/log/television; do sleep 0.1; done
{service_command}
echo {up} >/dev/ttyAMA0
"""

# The tests need not wait a minute for it.
DEFAULTS = "UPKEEP_PERIOD=2\n"

UDHCPC_SCRIPT = """\
#!/bin/sh
[ "$1" != bound ] || ifconfig "$interface" "$ip" netmask "${subnet:-255.255.255.0}"
"""


def make_initramfs(root: Path, address: str | None, follower: str, starts: bool) -> Path:
    for name in DIRECTORIES:
        (root / name).mkdir(parents=True)
    install_busybox(root)
    machine.install_modules(root, CACHE, MODULES)
    for library in LIBRARIES:
        shutil.copy(HOST_LIBRARIES / library, root / "lib" / library)
    shutil.copy(next(SYSROOT.glob("libevent_core-2.1.so.7")), root / "lib")
    for tool in ("cec-ctl", "cec-follower", "v4l2-ctl"):
        shutil.copy(CACHE / "usr" / "bin" / tool, root / "usr" / "bin")
    for library in ("libv4l2.so.0", "libv4lconvert.so.0", "libjpeg.so.62"):
        shutil.copy(CACHE / "usr" / "lib" / "arm-linux-gnueabi" / library, root / "lib")
    shutil.copy(BUILD / "hdtv" / "hdtv", root / "usr" / "sbin")
    machine.write_program(
        root / "etc/init.d/S90hdtv", (machine.TOP / "board/package/hdtv/S90hdtv").read_text()
    )
    (root / "usr/lib/hdtv").mkdir(parents=True)
    shutil.copy(machine.TOP / "board" / "package" / "hdtv" / "upkeep", root / "usr/lib/hdtv")
    machine.write_program(root / "usr/bin/qt-webkit-kiosk", "#!/bin/sh\nexec sleep 1000000\n")
    machine.write_program(root / "etc/udhcpc/default.script", UDHCPC_SCRIPT)
    (root / "etc/default").mkdir()
    (root / "etc/default/hdtv").write_text(DEFAULTS)
    (root / "etc/inittab").write_text(INITTAB)
    (root / "var/www/config.json").write_text('{"comm_gw":"10.87.33.20","rotation":"0"}')
    script = RCS.format(
        hardware_address=HARDWARE_ADDRESS,
        address_command=f"ip address add {address}/24 dev eth0" if address else "",
        follower=follower,
        service_command="/etc/init.d/S90hdtv start" if starts else "touch /var/run/hdtv.stopped",
        up=machine.UP,
    )
    machine.write_program(root / "etc/init.d/rcS", script)
    return machine.pack(root)


def install_busybox(root: Path) -> None:
    shutil.copy(CACHE / "bin" / "busybox", root / "bin")
    applets = subprocess.run(["busybox", "--list"], check=True, capture_output=True, text=True)
    for applet in applets.stdout.split():
        if applet != "busybox":
            (root / "bin" / applet).symlink_to("busybox")
    for tool in (*TOOLS, *USER_TOOLS, "/sbin/init"):
        if not (root / tool.lstrip("/")).is_symlink():
            (root / tool.lstrip("/")).symlink_to("/bin/busybox")


class ArmBoard(machine.Machine):
    def __init__(
        self,
        station: Station,
        directory: Path,
        address: str | None = ADDRESS,
        follower: str = "",
        starts: bool = True,
    ) -> None:
        archive = make_initramfs(directory / "root", address, follower, starts)
        version = machine.kernel_version(CACHE)
        command = [
            # Ties its clock to its instructions: the emulated timer misses an alarm that is set too
            # late, as happens when this machine is busy, and then never fires again.
            *("qemu-system-arm", "-M", "raspi0", "-icount", "shift=auto"),
            *("-kernel", str(CACHE / "boot" / f"vmlinuz-{version}")),
            *("-dtb", str(CACHE / f"usr/lib/linux-image-{version}/bcm2835-rpi-zero.dtb")),
            *("-initrd", str(archive)),
            "-append",
            "console=ttyAMA0,115200 quiet panic=1 rdinit=/sbin/init"
            " initcall_blacklist=bcm2835_power_driver_init",
            *("-device", "usb-net,netdev=n0"),
        ]
        super().__init__(station, directory, command)

    def log(self) -> str:
        """What the service has printed."""
        return self.run("cat /var/log/messages")

    def wait_for_log(self, text: str) -> None:
        self.wait_for_output("cat /var/log/messages", text)
