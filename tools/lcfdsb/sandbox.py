"""The Sandbox: its bookkeeping (meta.json), building it, tearing it down and
showing it; and the sweep of sandboxes left behind.  Building the segment, a
controller's files and namespaces and starting the daemons are in the parts
it is made of: segment.py, controller.py, daemons.py."""

import json
import os
import re
import shutil
import signal
import subprocess
import sys
import time

from .controller import Controller
from .cpuorder import CpuOrder
from .daemons import Daemons
from .naming import (BASE, NS_PREFIX, PREFIX_LEN, SIM, ctrl_mac, ns_name, tool_addr, tool_host_addr,
                     tool_host_ns, tool_iface)
from .segment import Segment
from .syscalls import MS_BIND, MS_PRIVATE, sys_mount
from .util import Phases, die, pid_alive, read_text


# Building and running a sandbox are parts of this class in modules of their
# own (segment, controller, daemons); the state they share is kept here.
class Sandbox(Segment, Controller, Daemons):
    verbose = False

    def __init__(self, name):
        if not re.fullmatch(r"[A-Za-z0-9_-]{1,40}", name):
            die("bad sandbox name %r (letters, digits, _ and -, at most 40)" % name)
        self.name = name
        self.dir = BASE / name
        self.meta_path = self.dir / "meta.json"
        self.meta = None

    # -- bookkeeping --------------------------------------------------------
    def load(self, must=True):
        try:
            self.meta = json.loads(self.meta_path.read_text())
        except (OSError, ValueError):
            if must:
                die("no sandbox %r (is it up?)" % self.name)
            self.meta = None
        return self.meta

    def save(self):
        tmp = self.meta_path.with_suffix(".tmp")
        tmp.write_text(json.dumps(self.meta, indent=1))
        os.replace(tmp, self.meta_path)

    def cdir(self, k):
        return self.dir / ("c%d" % k)

    def controllers(self):
        return range(1, len(self.meta["controllers"]) + 1)

    def ctrl(self, k):
        if k < 1 or k > len(self.meta["controllers"]):
            die("no controller %d in sandbox %r" % (k, self.name))
        return self.meta["controllers"][k - 1]

    def sim_env(self, k):
        d = self.cdir(k)
        return {
            "PATH": "%s:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin" % (SIM / "bin"),
            "LCFD_SIM_STATE": str(d),
            "LC_ALL": "C",
            "TZ": self.ctrl(k)["tz"],
            "HOME": "/root",
        }

    # -- building -----------------------------------------------------------
    def up(self, boards, lcfd, owner_pid, start, wait, lcfd_prefix=(), loss=0, cpu_order=True,
           crosstalk=True, tool_hosts=1):
        if self.meta_path.exists() or any(self.own_netns()):
            self.down(quiet=True)
        self.dir.mkdir(parents=True, exist_ok=True)
        self.meta = {"name": self.name, "lcfd": lcfd, "owner_pid": owner_pid,
                     "created": time.time(), "controllers": boards, "syslogd_pid": None,
                     "lcfd_prefix": list(lcfd_prefix), "loss": loss, "cpu_order": cpu_order,
                     "crosstalk": crosstalk, "supervisors": [], "tool_hosts": tool_hosts}
        self.save()
        # The namespace files of the controllers' mount namespaces are bind
        # mounts, which need a mount point that does not propagate.
        sys_mount(str(self.dir), str(self.dir), None, MS_BIND)
        sys_mount(None, str(self.dir), None, MS_PRIVATE)
        ks = list(self.controllers())
        phase = Phases(self.verbose)
        self.make_shell_logger()
        self.make_segment()
        phase.done("segment")
        for k in ks:
            self.make_controller_state(k)
        phase.done("state files")
        self.make_controller_nets(ks)
        phase.done("network namespaces")
        self.make_mount_namespaces(ks)
        phase.done("mount namespaces")
        if cpu_order:
            self.cpu_order().build()
        self.start_syslogd()
        phase.done("CPU order, syslog receiver")
        if start:
            self.start(ks, 0)
            phase.done("daemons started")
            if wait:
                self.wait_ready(ks, wait)
                phase.done("every daemon listening")

    def cpu_order(self):
        return CpuOrder(self.name, len(self.meta["controllers"]))

    # -- teardown -----------------------------------------------------------
    def own_netns(self):
        try:
            names = os.listdir("/run/netns")
        except OSError:
            return []
        pat = re.compile(re.escape(NS_PREFIX + self.name + ".") + r"(seg|tool\d*|c\d+)$")
        return sorted(n for n in names if pat.match(n))

    def down(self, quiet=False):
        self.load(must=False)
        if self.meta:
            try:
                self.stop(list(self.controllers()))
            except Exception as e:  # keep tearing down whatever happens
                if not quiet:
                    sys.stderr.write("lcfd-sandbox: stopping: %s\n" % e)
            pid = self.meta.get("syslogd_pid")
            if pid and pid_alive(pid) and "_syslogd" in read_text("/proc/%d/cmdline" % pid):
                os.kill(pid, signal.SIGTERM)
            for pid in self.meta.get("supervisors", []):
                # Its daemons are gone, so it is ending; one that is not is ended.
                deadline = time.monotonic() + 3
                while pid_alive(pid) and "_supervise" in read_text("/proc/%d/cmdline" % pid):
                    if time.monotonic() > deadline:
                        os.kill(pid, signal.SIGKILL)
                    time.sleep(0.01)
        if self.dir.exists():
            files = [str(f) for f in sorted(self.dir.glob("c*/mnt.ns"))]
            for i in range(0, len(files), 100):
                subprocess.run(["umount"] + files[i:i + 100], capture_output=True)
        # Delete the controllers' namespaces first, the switch last.
        names = sorted(self.own_netns(), key=lambda n: (n.endswith(".seg"), n))
        if names:
            subprocess.run(["ip", "-force", "-batch", "-"], capture_output=True, text=True,
                           input="".join("netns del %s\n" % n for n in names))
        for name, root in CpuOrder.roots():
            if name == self.name:
                CpuOrder.remove(root)
        if self.dir.exists():
            subprocess.run(["umount", "-l", str(self.dir)], capture_output=True)
            shutil.rmtree(self.dir, ignore_errors=True)

    # -- inspection ---------------------------------------------------------
    def status(self):
        print("sandbox %s  dir %s  lcfd %s" % (self.name, self.dir, self.meta["lcfd"]))
        if self.meta.get("loss"):
            print("segment: drops %d%% of the datagrams to and from each controller"
                  % self.meta["loss"])
        if not self.meta.get("crosstalk", True):
            print("segment: controllers do not hear one another's replies")
        print("tool: netns %s, %s" % (ns_name(self.name, "tool"), ", ".join(
            "address %s/%d on %s" % (tool_addr(n), PREFIX_LEN, tool_iface(n)) for n in self.segments())))
        for h in range(2, self.meta.get("tool_hosts", 1) + 1):
            print("tool host %d: netns %s, address %s/%d on %s" % (
                h, ns_name(self.name, tool_host_ns(h)), tool_host_addr(h), PREFIX_LEN, tool_iface(1)))
        print("%-4s %-8s %-6s %-15s %-17s %-8s %s" % ("id", "platform", "iface", "address", "mac", "pid", "state"))
        for k in self.controllers():
            c = self.ctrl(k)
            d = self.cdir(k)
            pid = c.get("pid")
            if pid and pid_alive(pid):
                state = "running"
            elif (d / "exit").exists():
                state = "exited %s" % read_text(d / "exit").strip()
            else:
                state = "stopped"
            ip = read_text(d / "sim/ip").strip()
            print("%-4d %-8s %-6s %-15s %-17s %-8s %s" % (k, c["platform"], c["iface"], ip,
                                                        ctrl_mac(k).upper(), pid or "-", state))

    def exec_cmd(self, k, cmd, tool_host=1):
        if k is None:
            if tool_host < 1 or tool_host > self.meta.get("tool_hosts", 1):
                die("no tool host %d in sandbox %r" % (tool_host, self.name))
            argv = ["nsenter", "--net=/run/netns/%s" % ns_name(self.name, tool_host_ns(tool_host)),
                    "--"] + cmd
        else:
            d = self.cdir(k)
            env = ["%s=%s" % kv for kv in self.sim_env(k).items()]
            argv = ["nsenter", "--mount=%s" % (d / "mnt.ns"),
                    "--net=/run/netns/%s" % ns_name(self.name, "c%d" % k), "--wd=%s" % d, "--",
                    "env"] + env + cmd
        os.execvp(argv[0], argv)


def gc_all():
    """Tear down sandboxes whose owner process is gone (left by a crashed
    test run), and network namespaces of sandboxes whose directory is gone."""
    if BASE.exists():
        for meta in BASE.glob("*/meta.json"):
            try:
                owner = json.loads(meta.read_text()).get("owner_pid")
            except (OSError, ValueError):
                continue
            if owner and not pid_alive(owner):
                Sandbox(meta.parent.name).down(quiet=True)
        # A directory without its meta.json is what a teardown cut short left
        # (a sandbox being built writes it first thing).
        for directory in BASE.iterdir():
            try:
                stale = (directory.is_dir() and not (directory / "meta.json").exists()
                         and time.time() - directory.stat().st_mtime > 60)
            except OSError:
                continue
            if stale:
                Sandbox(directory.name).down(quiet=True)
    try:
        names = os.listdir("/run/netns")
    except OSError:
        names = []
    for n in names:
        m = re.fullmatch(re.escape(NS_PREFIX) + r"([A-Za-z0-9_-]+)\.(seg|tool\d*|c\d+)", n)
        if m and not (BASE / m.group(1)).exists():
            subprocess.run(["ip", "netns", "del", n], capture_output=True)
    for name, root in CpuOrder.roots():
        if not (BASE / name).exists():
            CpuOrder.remove(root)
