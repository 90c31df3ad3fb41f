"""What no program of a simulated station may be able to do."""

# What only this machine's root may do, and what is locked for a unit's root.
ATTEMPTS = """
import ctypes, os, time
libc = ctypes.CDLL(None, use_errno=True)
remount, bind = 32, 4096

def refused(result):
    return result == -1 and ctypes.get_errno() == 1

def mount(target, kind, flags):
    return libc.mount(b"none", target, kind, flags, None)

assert refused(libc.reboot(0))
assert refused(libc.swapoff(b"/etc/passwd"))
assert refused(libc.adjtimex(ctypes.create_string_buffer(b"\\1" + bytes(300))))
for path in (b"/proc/sys", b"/proc/irq", b"/sys", b"/run/station/bin/hdtv"):
    assert refused(mount(path, None, remount | bind)), path
    assert libc.umount2(path, 2) == -1, path
for kind in (b"proc", b"sysfs", b"devtmpfs", b"debugfs"):
    assert refused(mount(b"/mnt", kind, 0)), kind
try:
    os.mknod("/tmp/disk", 0o060600, os.makedev(8, 0))
except PermissionError:
    print("out of reach")
"""
