"""A whole emulated board: ARM1176, Debian's kernel for it, and an initramfs of busybox, the init
script and the board's build of the service."""

import contextlib
import re
import shutil
import subprocess
from collections.abc import Iterator
from pathlib import Path

from station.station import Station, top_directory
from station.waiting import wait_for

TOP = top_directory()
CACHE = TOP / "build" / "machine" / "arm"
BUILD = TOP / "build" / "armv6-board"
SYSROOT = TOP / "build" / "armv6-sysroot" / "usr" / "lib" / "arm-linux-gnueabi"
HOST_LIBRARIES = Path("/usr/arm-linux-gnueabi/lib")

ADDRESS = "10.87.33.60"
HARDWARE_ADDRESS = "52:54:00:12:34:60"

MODULES = ("vivid", "softdog", "cdc_ether")
LIBRARIES = ("ld-linux.so.3", "libc.so.6", "libm.so.6", "libstdc++.so.6", "libgcc_s.so.1")
# Where the service looks for its tools.
TOOLS = ("/sbin/udhcpc", "/sbin/reboot", "/sbin/ifconfig", "/bin/date", "/bin/mount")
USER_TOOLS = ("/usr/bin/killall", "/usr/bin/wget", "/usr/bin/lsusb")

DIRECTORIES = (
    *("bin", "sbin", "usr/bin", "usr/sbin", "lib", "modules", "proc", "sys", "dev", "tmp"),
    *("etc/init.d", "etc/udhcpc", "var/www"),
)

INITTAB = """\
::sysinit:/etc/init.d/rcS
ttyAMA0::respawn:/bin/sh
::respawn:/etc/init.d/S90hdtv respawn
"""

# The emulated board's own watchdog resets at once when it is opened, so the kernel's takes its place.
# Of the two CEC adapters the first is the television's.
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
{service_command}
echo BOARD-UP >/dev/ttyAMA0
"""

UDHCPC_SCRIPT = """\
#!/bin/sh
[ "$1" != bound ] || ifconfig "$interface" "$ip" netmask "${subnet:-255.255.255.0}"
"""


def kernel_modules() -> Path:
    """Of the kernel that scripts/machine has fetched."""
    (modules,) = (CACHE / "lib" / "modules").iterdir()
    return modules


def make_initramfs(root: Path, address: str | None, follower: str, starts: bool) -> Path:
    modules = kernel_modules()
    for name in (
        "bin",
        "sbin",
        "usr/bin",
        "usr/sbin",
        "lib",
        "proc",
        "sys",
        "dev",
        "tmp",
        "modules",
    ):
        (root / name).mkdir(parents=True)
    for name in ("etc/init.d", "etc/udhcpc", "var/www"):
        (root / name).mkdir(parents=True)
    install_busybox(root)
    install_modules(root, modules.name)
    for library in LIBRARIES:
        shutil.copy(HOST_LIBRARIES / library, root / "lib" / library)
    shutil.copy(next(SYSROOT.glob("libevent_core-2.1.so.7")), root / "lib")
    for tool in ("cec-ctl", "cec-follower"):
        shutil.copy(CACHE / "usr" / "bin" / tool, root / "usr" / "bin")
    shutil.copy(BUILD / "hdtv" / "hdtv", root / "usr" / "sbin")
    shutil.copy(TOP / "board" / "package" / "hdtv" / "S90hdtv", root / "etc" / "init.d")
    write_program(root / "usr/bin/qt-webkit-kiosk", "#!/bin/sh\nexec sleep 1000000\n")
    write_program(root / "etc/udhcpc/default.script", UDHCPC_SCRIPT)
    (root / "etc/inittab").write_text(INITTAB)
    (root / "var/www/config.json").write_text('{"comm_gw":"10.87.33.20","rotation":"0"}')
    script = RCS.format(
        hardware_address=HARDWARE_ADDRESS,
        address_command=f"ip address add {address}/24 dev eth0" if address else "",
        follower=follower,
        service_command="/etc/init.d/S90hdtv start" if starts else "touch /var/run/hdtv.stopped",
    )
    write_program(root / "etc/init.d/rcS", script)
    return pack(root)


def install_busybox(root: Path) -> None:
    shutil.copy(CACHE / "bin" / "busybox", root / "bin")
    applets = subprocess.run(["busybox", "--list"], check=True, capture_output=True, text=True)
    for applet in applets.stdout.split():
        if applet != "busybox":
            (root / "bin" / applet).symlink_to("busybox")
    for tool in (*TOOLS, *USER_TOOLS, "/sbin/init"):
        if not (root / tool.lstrip("/")).is_symlink():
            (root / tool.lstrip("/")).symlink_to("/bin/busybox")


def install_modules(root: Path, version: str) -> None:
    files: list[str] = []
    for module in MODULES:
        command = ["modprobe", "-S", version, "-d", str(CACHE), "--show-depends", module]
        lines = subprocess.run(command, check=True, capture_output=True, text=True).stdout
        files += [line.split()[1] for line in lines.splitlines() if line.startswith("insmod")]
    unique = list(dict.fromkeys(files))
    for file in unique:
        shutil.copy(file, root / "modules")
    names = "".join(Path(file).name + "\n" for file in unique)
    (root / "modules" / "list").write_text(names)


def write_program(path: Path, text: str) -> None:
    path.write_text(text)
    path.chmod(0o755)


def pack(root: Path) -> Path:
    archive = root.with_suffix(".gz")
    subprocess.run(
        f"find . | cpio -o -H newc --quiet | gzip -1 > {archive}", shell=True, check=True, cwd=root
    )
    return archive


def join_networks(station: Station) -> None:
    """A bridge on the gateway's side, with its addresses and a tap for the machine."""
    addresses = "".join(f"ip address add 10.87.33.{n}/24 dev br0\n" for n in (1, 20, 21))
    script = (
        "set -e\nip link add br0 type bridge\nip tuntap add tap0 mode tap\n"
        "ip address flush dev gw0\nip link set gw0 master br0\nip link set tap0 master br0\n"
        f"{addresses}ip link set br0 up\nip link set tap0 up\n"
    )
    command = ["nsenter", f"--target={station.gateway_pid}", "--net", "--", "sh", "-c", script]
    subprocess.run(command, check=True, timeout=20)


class ArmBoard:
    """The board from its power-on to its power-off. Use it in a with statement."""

    def __init__(
        self,
        station: Station,
        directory: Path,
        address: str | None = ADDRESS,
        follower: str = "",
        starts: bool = True,
    ) -> None:
        root = directory / "root"
        archive = make_initramfs(root, address, follower, starts)
        modules = kernel_modules()
        self._console_path = directory / "console.log"
        self._count = 0
        version = modules.name
        self._command = [
            *("nsenter", f"--target={station.gateway_pid}", "--net", "--", "qemu-system-arm"),
            *("-M", "raspi0", "-nodefaults", "-display", "none", "-serial", "stdio", "-no-reboot"),
            *("-kernel", str(CACHE / "boot" / f"vmlinuz-{version}")),
            *("-dtb", str(CACHE / f"usr/lib/linux-image-{version}/bcm2835-rpi-zero.dtb")),
            *("-initrd", str(archive)),
            "-append",
            "console=ttyAMA0,115200 quiet panic=1 rdinit=/sbin/init"
            " initcall_blacklist=bcm2835_power_driver_init",
            *("-netdev", "tap,id=n0,ifname=tap0,script=no,downscript=no"),
            *("-device", "usb-net,netdev=n0"),
        ]
        try:
            self._power_on()
            self.wait_for_console("BOARD-UP", 90)
            self.run("stty -echo; PS1=")
        except BaseException:
            self._power_off()
            raise

    def _power_on(self) -> None:
        """Now and then the emulator does not come to the kernel's first word, and is started again."""
        for is_last in (False, False, True):
            with open(self._console_path, "wb") as console:
                self._process = subprocess.Popen(
                    self._command, stdin=subprocess.PIPE, stdout=console, stderr=subprocess.STDOUT
                )
            try:
                wait_for(lambda: self.console, "the kernel's first word")
                return
            except TimeoutError:
                self._power_off()
                if is_last:
                    raise

    def _power_off(self) -> None:
        self._process.kill()
        self._process.wait(20)
        assert self._process.stdin is not None
        with contextlib.suppress(OSError):
            self._process.stdin.close()

    def __enter__(self) -> "ArmBoard":
        return self

    def __exit__(self, *_: object) -> None:
        self._power_off()

    @property
    def console(self) -> str:
        return self._console_path.read_bytes().decode(errors="replace").replace("\r", "")

    def wait_for_console(self, text: str, deadline: float = 30) -> None:
        wait_for(
            lambda: text in self.console or self._process.poll() is not None,
            f"{text!r} on the console:\n{self.console[-3000:]}",
            deadline,
        )
        assert text in self.console, self.console[-3000:]

    def run(self, command: str, deadline: float = 30) -> str:
        """What a command prints on the board's shell."""
        self._count += 1
        mark = f"DONE-{self._count}-"
        assert self._process.stdin is not None
        line = f"{command}\necho; echo DONE-{self._count}-$?-\n"
        self._process.stdin.write(line.encode())
        self._process.stdin.flush()
        pattern = re.compile(rf"^{mark}(\d+)-$", re.MULTILINE)
        found = wait_for(
            lambda: pattern.search(self.console),
            f"the end of {command!r}:\n{self.console[-3000:]}",
            deadline,
        )
        assert found is not None
        start = self.console.rfind(f"DONE-{self._count - 1}-", 0, found.start())
        begin = self.console.index("\n", start) + 1 if start >= 0 else 0
        return self.console[begin : found.start() - 1]

    def log(self) -> str:
        """What the service has said."""
        return self.run("cat /var/log/messages")

    def wait_for_log(self, text: str, deadline: float = 30) -> None:
        wait_for(lambda: text in self.log(), f"{text!r} in the log:\n{self.log()}", deadline)

    def wait_for_reset(self, deadline: float = 60) -> None:
        """The emulator ends when the machine resets."""
        assert self._process.wait(deadline) == 0


@contextlib.contextmanager
def gateway_network() -> Iterator[Station]:
    """The gateway's side of a station whose unit is a machine."""
    with Station(address=None) as station:
        join_networks(station)
        yield station
