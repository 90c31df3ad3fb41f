"""A disk with a bare Debian, and what becomes of it when somebody follows the chapter about it."""

import re
import shlex
import subprocess
from pathlib import Path

import machine

# What scripts/chapter fetched: Debian's minimal system, with a kernel and GRUB.
BARE = machine.CACHE / "bare-debian.tar"
(PACKAGE,) = (machine.TOP / "build" / "debian").glob("hdtv_*.deb")

# What Debian's installer leaves. The unit's interface has a name that depends on its place.
INSTALLED = """\
tar -xf {bare} -C {root}
echo unit >{root}/etc/hostname
echo "UUID=$(blkid -s UUID -o value {image}) / ext4 errors=remount-ro 0 1" >{root}/etc/fstab
cat >{root}/etc/network/interfaces <<'END'
source /etc/network/interfaces.d/*

auto lo
iface lo inet loopback

allow-hotplug enp0s3
iface enp0s3 inet dhcp
END
"""

# In a root that is not running yet nothing is started; systemctl knows that by itself. The disk is a disk
# here, too: GRUB asks what a loop device is made of.
PREPARED = """\
set -e
loop=$(losetup --find --show {image})
mount -t tmpfs dev {devices}
cp -a /dev/null /dev/zero /dev/full /dev/random /dev/urandom /dev/tty {devices}
ln -s /proc/self/fd {devices}/fd
mknod {devices}/vda b $(stat -c '0x%t 0x%T' $loop)
cp -a $loop {devices}
mkdir {devices}/shm
mount --move {devices} /dev
mount /dev/vda {root}
losetup --detach $loop  # it ends with the mount
{installed}
mount --rbind /dev {root}/dev
mount --rbind /sys {root}/sys
mount -t proc proc {root}/proc
mount -t tmpfs run {root}/run
cp --remove-destination /etc/resolv.conf {root}/etc
printf '#!/bin/sh\\nexit 101\\n' >{root}/usr/sbin/policy-rc.d
chmod 755 {root}/usr/sbin/policy-rc.d
cp {package} {root}/tmp
env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive \
    chroot {root} /bin/bash -ex <{script}
rm {root}/usr/sbin/policy-rc.d
cp {root}/boot/grub/grub.cfg {root}/boot/vmlinuz-* {root}/boot/initrd.img-* {boot}
umount --recursive {root}
"""


class DebianRoot:
    """The disk's image after these commands; the boot directory has what its boot loader loads."""

    def __init__(self, directory: Path, commands: list[str]) -> None:
        self.image = directory / "disk"
        self._boot = directory / "boot"
        root, devices, script = (directory / name for name in ("root", "devices", "commands"))
        for path in (self._boot, root, devices):
            path.mkdir()
        script.write_text("".join(f"{command} </dev/null\n" for command in commands))
        self._make_disk()
        places = {"root": root, "devices": devices, "image": self.image, "boot": self._boot}
        places["script"] = script
        words = {name: shlex.quote(str(path)) for name, path in places.items()}
        installed = INSTALLED.format(bare=BARE, **words)
        steps = PREPARED.format(installed=installed, package=PACKAGE, **words)
        self.log = directory / "commands.log"
        with open(self.log, "wb") as log:
            unshare = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--uts", "--ipc"]
            result = subprocess.run(
                [*unshare, "/bin/sh", "-c", steps],
                stdout=log,
                stderr=subprocess.STDOUT,
                check=False,
            )
        assert result.returncode == 0, f"{self.log}:\n{self.log.read_text()[-3000:]}"

    def _make_disk(self) -> None:
        with open(self.image, "wb") as file:
            file.truncate(6 << 30)
        subprocess.run(["mkfs.ext4", "-q", str(self.image)], check=True)

    def boot_options(self) -> list[str]:
        """For the emulator: what the boot loader would do by its configuration."""
        text = (self._boot / "grub.cfg").read_text()
        linux = re.search(r"^\s*linux\s+\S*/(vmlinuz\S*) (.*)$", text, re.MULTILINE)
        initrd = re.search(r"^\s*initrd\s+\S*/(initrd\S*)$", text, re.MULTILINE)
        assert linux and initrd
        kernel, ram_disk = self._boot / linux[1], self._boot / initrd[1]
        return ["-kernel", str(kernel), "-initrd", str(ram_disk), "-append", linux[2]]
