"""A controller's own files and mount namespace: its state directory, the
shell logger, /run, /home, the /etc overlay, /proc files and /dev.  A part of
Sandbox (see sandbox.py), whose bookkeeping it uses."""

import os
import shutil
import stat
import traceback

from .naming import (BASE, DEVLOG, DISPLAY_SECONDS, DISPLAY_SETTING, GATEWAY, NAMESERVER, NETMASK,
                     SIM, SYSLOGSERVER, TIMESERVER, ctrl_addr, ctrl_mac)
from .syscalls import (CLONE_NEWNS, MNT_DETACH, MS_BIND, MS_MOVE, MS_PRIVATE, MS_REC, sys_mount,
                       sys_setns, sys_umount, sys_unshare)
from .util import read_text, write_text


class Controller:
    def make_shell_logger(self):
        bindir = self.dir / "bin"
        bindir.mkdir(exist_ok=True)
        real = bindir / "dash.real"
        shutil.copy2("/usr/bin/dash", real)
        text = (SIM / "shlog.in").read_text().replace("@DASH@", str(real))
        (bindir / "shlog").write_text(text)
        (bindir / "shlog").chmod(0o755)

    def make_controller_state(self, k):
        c = self.ctrl(k)
        d = self.cdir(k)
        p = c["platform"]
        v = d / "sim"
        for sub in ("sim/uboot", "sim/get", "fault", "run", "home", "etc.upper", "etc.work",
                    "proc", "dev.stage", "root"):
            (d / sub).mkdir(parents=True, exist_ok=True)
        values = {
            "platform": p,
            "sdk": c["sdk"],
            "mac": ctrl_mac(k),
            "mac1": ctrl_mac(k),
            "mac2": "02:4c:43:01:%02x:%02x" % (k >> 8, k & 0xFF),
            "ipscheme": "STATIC",
            "ip": ctrl_addr(k),
            "netmask": NETMASK,
            "gateway": GATEWAY,
            "hostname": "%s-%03d" % (p, k),
            "ntpsync": "yes",
            "ntppeer": TIMESERVER,
            "sdusage": "" if p == "qmt" else "%d%%" % (30 + k % 60),
            "sdkversion": "4.2.%d" % (k % 10),
            "clock_offset": "0",
            "iface": c["iface"],
            "ifaces": c["iface"],
            "apply_iface": c["iface"],
            "nameserver": NAMESERVER,
            "get/" + DISPLAY_SETTING: DISPLAY_SECONDS,
        }
        if p == "qmt":
            del values["sdusage"]
        etc = d / "etc.upper"
        if p == "generic":
            values["uboot/timeserver"] = TIMESERVER
            values["uboot/serverip"] = SYSLOGSERVER
        elif p in ("imx", "qmt"):
            values["syslogserver"] = SYSLOGSERVER
            if p == "imx":
                values["timeserver"] = TIMESERVER
            else:
                write_text(etc / "systemd/timesyncd.conf", "[Time]\nNTP=%s\n" % TIMESERVER)
        else:
            write_text(etc / "tarnsetup.d/timeserver", TIMESERVER + "\n")
            write_text(etc / "tarnsetup.d/syslogserver", SYSLOGSERVER + "\n")
        for key, value in values.items():
            write_text(v / key, value + "\n")
        write_text(etc / "tarn/ConfigurationFiles/HardCodedHSSets.xml",
                   '<?xml version="1.0" encoding="UTF-8"?>\n<HardCodedHSSets>\n'
                   '  <HSSet name="HS_REALTIME_SEC_SINCE_1970_BEFORE" value="%s"/>\n'
                   '  <HSSet name="HS_OTHER_SETTING" value="1"/>\n</HardCodedHSSets>\n'
                   % DISPLAY_SETTING)
        write_text(d / "run/controller", "CTRL-%03d\n" % k)
        write_text(d / "run/housenames", "Hall A,Hall B\n")
        write_text(d / "run/.lcfd-sim", self.name + "\n")
        (d / "home/etc/tarnsetup.d").mkdir(parents=True, exist_ok=True)
        if c["iface"] != "br0":
            write_text(d / "home/etc/tarnsetup.d/lcfd_interface", c["iface"] + "\n")
        write_text(d / "proc/uptime", "3605.21 7011.40\n")
        write_text(d / "proc/loadavg", "0.08 0.03 0.01 1/87 1234\n")
        for log in ("shell.log", "sim.log", "stdout", "stderr", "syslog"):
            write_text(d / log, "")

    def make_mount_namespaces(self, ks):
        """Each controller's mount namespace, built by one helper process that creates
        them one after the other and pins each to its controller's mnt.ns file."""
        helper = os.fork()
        if helper == 0:
            status = 0
            try:
                home = os.open("/proc/self/ns/mnt", os.O_RDONLY)
                for k in ks:
                    self.enter_new_mount_namespace(k)
                    made = os.open("/proc/self/ns/mnt", os.O_RDONLY)
                    sys_setns(home, CLONE_NEWNS)
                    sys_mount("/proc/self/fd/%d" % made, str(self.cdir(k) / "mnt.ns"), None,
                              MS_BIND)
                    os.close(made)
            except BaseException:  # the helper must end here, whatever happened
                traceback.print_exc()
                status = 1
            os._exit(status)
        _, status = os.waitpid(helper, 0)
        if status != 0:
            raise RuntimeError("could not build the controllers' mount namespaces")

    def enter_new_mount_namespace(self, k):
        d = self.cdir(k)
        (d / "mnt.ns").touch()
        sys_unshare(CLONE_NEWNS)
        sys_mount(None, "/", None, MS_REC | MS_PRIVATE)
        # The new namespace started as a copy of this one, with the files that pin
        # network namespaces and the sandboxes' controller mount namespaces. Detach
        # those subtrees (each sandbox directory is a bind mount of itself, so its
        # content stays visible) so that this namespace keeps none of them alive.
        base = str(BASE) + "/"
        for line in read_text("/proc/self/mountinfo").splitlines():
            point = line.split()[4]
            if (point.startswith(base) and "/" not in point[len(base):]) or point == "/run/netns":
                try:
                    sys_umount(point, MNT_DETACH)
                except OSError:
                    pass  # already gone with a parent
        sys_mount(str(d / "run"), "/run", None, MS_BIND)
        sys_mount(str(d / "home"), "/home", None, MS_BIND)
        sys_mount("lcfd-etc", "/etc", "overlay", 0,
                  "lowerdir=/etc,upperdir=%s,workdir=%s" % (d / "etc.upper", d / "etc.work"))
        sys_mount(str(d / "proc/uptime"), "/proc/uptime", None, MS_BIND)
        sys_mount(str(d / "proc/loadavg"), "/proc/loadavg", None, MS_BIND)
        self.make_dev(d)
        sys_mount(str(self.dir / "bin/shlog"), "/usr/bin/dash", None, MS_BIND)

    DEVICES = (("null", 1, 3), ("zero", 1, 5), ("full", 1, 7), ("random", 1, 8),
               ("urandom", 1, 9), ("tty", 5, 0))

    @classmethod
    def make_dev(cls, d):
        """The controller's /dev: the device nodes a daemon and its commands use, and
        /dev/log leading to the socket the syslog receiver listens on for it (nothing,
        for a controller without syslog)."""
        stage = d / "dev.stage"
        sys_mount("lcfd-dev", str(stage), "tmpfs", 0, "mode=755")
        for name, major, minor in cls.DEVICES:
            os.mknod(stage / name, stat.S_IFCHR | 0o666, os.makedev(major, minor))
            os.chmod(stage / name, 0o666)
        for link, target in (("fd", "/proc/self/fd"), ("stdin", "/proc/self/fd/0"),
                             ("stdout", "/proc/self/fd/1"), ("stderr", "/proc/self/fd/2"),
                             ("log", str(d / DEVLOG))):
            os.symlink(target, stage / link)
        (stage / "pts").mkdir()
        (stage / "shm").mkdir()
        sys_mount("/dev/pts", str(stage / "pts"), None, MS_BIND)
        sys_mount("lcfd-shm", str(stage / "shm"), "tmpfs", 0, "mode=1777")
        sys_mount(str(stage), "/dev", None, MS_MOVE)
