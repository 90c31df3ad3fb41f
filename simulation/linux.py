"""The few system calls that the standard library of Python 3.11 does not offer."""

import ctypes
import fcntl
import os
import signal
import socket
import struct
from typing import Final

CLONE_NEWNS: Final = 0x00020000
CLONE_NEWUTS: Final = 0x04000000
CLONE_NEWIPC: Final = 0x08000000
CLONE_NEWUSER: Final = 0x10000000
CLONE_NEWPID: Final = 0x20000000
CLONE_NEWNET: Final = 0x40000000
NEW_WORLD: Final = CLONE_NEWNS | CLONE_NEWUTS | CLONE_NEWIPC | CLONE_NEWPID | CLONE_NEWNET

MS_RDONLY: Final = 1
MS_REMOUNT: Final = 32
MS_BIND: Final = 4096
MS_MOVE: Final = 8192
MS_REC: Final = 16384
MS_PRIVATE: Final = 1 << 18

_PR_SET_PDEATHSIG: Final = 1
_MNT_DETACH: Final = 2
_AT_FDCWD: Final = -100
_IN_OPEN: Final = 0x20
_AT_RECURSIVE: Final = 0x8000
_MOUNT_ATTR_RDONLY: Final = 1
_SIOCETHTOOL: Final = 0x8946
_ETHTOOL_STSO: Final = 0x1F
_ETHTOOL_SGRO: Final = 0x2C
_SYS_MOUNT_SETATTR: Final = 442  # the same on every architecture
_libc = ctypes.CDLL(None, use_errno=True)


def _check(result: int, what: str) -> None:
    if result != 0:
        error = ctypes.get_errno()
        raise OSError(error, os.strerror(error), what)


def unshare(flags: int) -> None:
    _check(_libc.unshare(flags), "unshare")


def setns(fd: int, kind: int) -> None:
    _check(_libc.setns(fd, kind), "setns")


def mount(source: str, target: str, kind: str = "", flags: int = 0, data: str = "") -> None:
    _check(
        _libc.mount(
            source.encode(),
            target.encode(),
            kind.encode(),
            ctypes.c_ulong(flags),
            data.encode(),
        ),
        target,
    )


def make_read_only(path: str) -> None:
    """The mount at this path and all those below it, in this mount namespace."""
    attributes = struct.pack("QQQQ", _MOUNT_ATTR_RDONLY, 0, 0, 0)
    _check(
        _libc.syscall(
            ctypes.c_long(_SYS_MOUNT_SETATTR),
            ctypes.c_long(_AT_FDCWD),
            path.encode(),
            ctypes.c_long(_AT_RECURSIVE),
            attributes,
            ctypes.c_long(len(attributes)),
        ),
        "mount_setattr",
    )


def pivot_root(new_root: str) -> None:
    """Makes the mount at this path the root of this mount namespace and detaches the old one."""
    os.chdir(new_root)
    _check(_libc.pivot_root(b".", b"."), "pivot_root")
    _check(_libc.umount2(b".", _MNT_DETACH), "umount")
    os.chdir("/")


def watch_for_opens(path: str) -> int:
    """A descriptor that is readable once anybody has opened the file since."""
    fd = int(_libc.inotify_init1(os.O_CLOEXEC | os.O_NONBLOCK))
    _check(min(fd, 0), "inotify_init1")
    _check(min(_libc.inotify_add_watch(fd, path.encode(), ctypes.c_uint32(_IN_OPEN)), 0), path)
    return fd


def sethostname(name: str) -> None:
    _check(_libc.sethostname(name.encode(), len(name)), "sethostname")


def give_own_receive_queue(interface: str) -> None:
    """To one end of a pair of virtual interfaces; both ends need it. Otherwise all interfaces of the
    machine share one queue for each processor, which a broadcast to many overflows. The queue comes
    with coalescing what arrives, for a sender that does not segment."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        for command, value in ((_ETHTOOL_STSO, 0), (_ETHTOOL_SGRO, 1)):
            setting = ctypes.create_string_buffer(struct.pack("II", command, value))
            request = struct.pack("16sP16x", interface.encode(), ctypes.addressof(setting))
            fcntl.ioctl(any_socket, _SIOCETHTOOL, request)


def open_standard_descriptors() -> None:
    """If the parent closed any of the first three, opens /dev/null there, so that no later file
    takes their place."""
    for fd in range(3):
        try:
            os.fstat(fd)
        except OSError:
            os.set_inheritable(os.open(os.devnull, os.O_RDWR), True)


def die_with_parent() -> None:
    """SIGKILL for this process when the thread that started it ends."""
    _check(_libc.prctl(_PR_SET_PDEATHSIG, int(signal.SIGKILL), 0, 0, 0), "prctl")


def receive_with_pid(channel: socket.socket) -> tuple[bytes, int]:
    """One message, and its sender's process id as seen from here; b"" and 0 at the end."""
    size = struct.calcsize("iII")
    message, ancillary, _, _ = channel.recvmsg(4096, socket.CMSG_SPACE(size))
    for level, kind, content in ancillary:
        if level == socket.SOL_SOCKET and kind == socket.SCM_CREDENTIALS:
            return message, struct.unpack("iII", content[:size])[0]
    return b"", 0


def resize_tmpfs(mount_namespace: str, target: str, size: str) -> None:
    """Only in a process that does nothing else: it stays in that mount namespace."""
    fd = os.open(mount_namespace, os.O_RDONLY)
    setns(fd, CLONE_NEWNS)
    os.close(fd)
    mount("none", target, flags=MS_REMOUNT, data=f"size={size}")
