"""System calls the sandbox makes itself: building a controller's mount
namespace and starting its daemon inside its namespaces take a handful of
calls each, where the programs that make them (unshare, mount, nsenter)
would cost a process each; with hundreds of controllers that is most of
the time "up" takes."""

import ctypes
import os

_libc = ctypes.CDLL(None, use_errno=True)
_libc.mount.argtypes = [ctypes.c_char_p, ctypes.c_char_p, ctypes.c_char_p, ctypes.c_ulong,
                        ctypes.c_char_p]
CLONE_NEWNS = 0x00020000
CLONE_NEWNET = 0x40000000
MS_BIND = 0x1000
MS_MOVE = 0x2000
MS_REC = 0x4000
MS_PRIVATE = 0x40000
MNT_DETACH = 2


def _bytes(text):
    return None if text is None else os.fsencode(text)


def _checked(result, what):
    if result != 0:
        error = ctypes.get_errno()
        raise OSError(error, "%s: %s" % (what, os.strerror(error)))


def sys_mount(source, target, fstype=None, flags=0, data=None):
    _checked(_libc.mount(_bytes(source), _bytes(target), _bytes(fstype), flags, _bytes(data)),
             "mount %s on %s" % (source, target))


def sys_umount(target, flags=0):
    _checked(_libc.umount2(_bytes(target), flags), "umount %s" % target)


def sys_unshare(flags):
    _checked(_libc.unshare(flags), "unshare")


def sys_setns(fd, nstype):
    _checked(_libc.setns(fd, nstype), "setns")
