"""The controllers' daemons: started by a supervisor inside their namespaces
and control groups, waited for, stopped; and the syslog receiver started.
A part of Sandbox (see sandbox.py), whose bookkeeping it uses."""

import os
import shutil
import signal
import subprocess
import sys
import time

from .naming import ENTRY, ns_name
from .syscalls import CLONE_NEWNET, CLONE_NEWNS, sys_setns
from .util import pid_alive, read_bytes, read_text

# The run-time options of a sanitizer build of lcfd pass from the launcher's
# environment to every daemon, with log_path added: a controller's reports go
# to files of its own, sanitizer.PID in its directory, apart from the daemon's
# standard error.
SANITIZER_OPTION_VARS = ("ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS")


def sanitizer_env(cdir):
    env = {}
    for var in SANITIZER_OPTION_VARS:
        if var in os.environ:
            options = os.environ[var]
            env[var] = (options + ":" if options else "") + "log_path=%s" % (cdir / "sanitizer")
    return env


class Daemons:
    def start_syslogd(self):
        log = open(self.dir / "syslogd.log", "ab")
        proc = subprocess.Popen(
            [sys.executable, str(ENTRY), "-n", self.name, "_syslogd"],
            stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True)
        self.meta["syslogd_pid"] = proc.pid
        self.save()
        deadline = time.monotonic() + 10
        while not (self.dir / "syslogd.ready").exists():
            if proc.poll() is not None or time.monotonic() > deadline:
                raise RuntimeError("syslog receiver did not start: %s" % read_text(self.dir / "syslogd.log"))
            time.sleep(0.01)

    # -- daemons ------------------------------------------------------------
    def start(self, ks, wait):
        ks = [k for k in ks if not pid_alive(self.ctrl(k).get("pid"))]
        if not ks:
            return True
        for k in ks:
            for f in ("pid", "exit"):
                try:
                    (self.cdir(k) / f).unlink()
                except FileNotFoundError:
                    pass
        # One supervisor starts these daemons and stays their parent, recording
        # each one's exit status when it ends.
        log = open(self.dir / "supervisor.log", "ab")
        proc = subprocess.Popen(
            [sys.executable, str(ENTRY), "-n", self.name, "_supervise"] +
            [str(k) for k in ks],
            stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True)
        self.meta.setdefault("supervisors", []).append(proc.pid)
        # The supervisor starts them one after the other; on a busy machine that takes
        # a while, so what counts is that it keeps going.
        deadline = time.monotonic() + 10
        for k in ks:
            d = self.cdir(k)
            while not (d / "pid").exists():
                if proc.poll() is not None or time.monotonic() > deadline:
                    if proc.poll() is None:
                        proc.kill()  # started no more: the daemons it did start are stopped
                    raise RuntimeError("controller %d did not start: %s"
                                       % (k, read_text(self.dir / "supervisor.log")))
                time.sleep(0.005)
            deadline = time.monotonic() + 10
            self.ctrl(k)["pid"] = int(read_text(d / "pid").strip())
        self.save()
        if wait:
            return self.wait_ready(ks, wait)
        return True

    def spawn_daemon(self, k, cpu):
        """Starts controller k's daemon inside its namespaces and control group: the
        caller enters its namespaces, spawns, and returns to its own. (Had the caller
        entered the control group too, it would have to wait there for the CPU behind
        every controller started before.)"""
        c = self.ctrl(k)
        d = self.cdir(k)
        env = self.sim_env(k)
        env["LCFD_SIM_SHLOG"] = str(d / "shell.log")
        env.update(sanitizer_env(d))
        argv = [w.replace("{dir}", str(d)) for w in self.lcfd_prefix()] + [self.meta["lcfd"]]
        program = argv[0] if "/" in argv[0] else shutil.which(argv[0], path=env["PATH"])
        if not program:
            raise RuntimeError("%s not found" % argv[0])
        appending = os.O_WRONLY | os.O_APPEND | os.O_CREAT
        actions = [(os.POSIX_SPAWN_CLOSE, 0) if c["stdin"] == "closed"
                   else (os.POSIX_SPAWN_OPEN, 0, "/dev/null", os.O_RDONLY, 0),
                   (os.POSIX_SPAWN_OPEN, 1, str(d / "stdout"), appending, 0o644),
                   (os.POSIX_SPAWN_OPEN, 2, str(d / "stderr"), appending, 0o644)]
        home_net = os.open("/proc/self/ns/net", os.O_RDONLY)
        home_mnt = os.open("/proc/self/ns/mnt", os.O_RDONLY)
        net = os.open("/run/netns/%s" % ns_name(self.name, "c%d" % k), os.O_RDONLY)
        mnt = os.open(d / "mnt.ns", os.O_RDONLY)
        try:
            sys_setns(net, CLONE_NEWNET)
            sys_setns(mnt, CLONE_NEWNS)
            os.chdir(d)
            try:
                # Python ignores these; a daemon and its commands must not inherit
                # that (a pipeline cut short by a reader ends by SIGPIPE, silently).
                pid = os.posix_spawn(program, argv, env, file_actions=actions,
                                     setsigdef=(signal.SIGPIPE, signal.SIGXFSZ))
            finally:
                sys_setns(home_mnt, CLONE_NEWNS)
                sys_setns(home_net, CLONE_NEWNET)
                os.chdir("/")
            cpu.place(k, pid)
            return pid
        finally:
            for fd in (home_net, home_mnt, net, mnt):
                os.close(fd)

    def wait_ready(self, ks, timeout):
        deadline = time.monotonic() + timeout
        pending = set(ks)
        # Each look reads a file per controller: on a large segment, look less often
        # rather than take the CPU the daemons need for their first reading.
        interval = min(0.5, 0.01 + 0.0005 * len(ks))
        while pending:
            for k in sorted(pending):
                d = self.cdir(k)
                if b"Listening for broadcast packets" in read_bytes(d / "stdout") or (d / "exit").exists():
                    pending.discard(k)
            if not pending:
                break
            if time.monotonic() > deadline:
                sys.stderr.write("lcfd-sandbox: not listening after %.0fs: controller(s) %s\n"
                                 % (timeout, " ".join(map(str, sorted(pending)))))
                return False
            time.sleep(interval)
        return True

    def daemon_pid(self, k):
        """The daemon's pid as recorded, or as its supervisor wrote it (a start that
        failed half way recorded none)."""
        pid = self.ctrl(k).get("pid")
        if not pid:
            text = read_text(self.cdir(k) / "pid").strip()
            pid = int(text) if text.isdigit() else None
        return pid

    def stop(self, ks):
        for k in ks:
            pid = self.daemon_pid(k)
            if pid and pid_alive(pid) and self.is_our_daemon(pid):
                os.kill(pid, signal.SIGTERM)
        # A daemon run under a prefix (valgrind, say) gets time to write its report.
        grace = 60 if self.lcfd_prefix() else 3
        for k in ks:
            c = self.ctrl(k)
            pid = self.daemon_pid(k)
            deadline = time.monotonic() + grace
            while pid and pid_alive(pid) and self.is_our_daemon(pid):
                if time.monotonic() > deadline:
                    os.kill(pid, signal.SIGKILL)
                    deadline += 3
                time.sleep(0.01)
            c["pid"] = None
        self.save()

    def lcfd_prefix(self):
        """The command line put before lcfd (up --lcfd-prefix), as a list."""
        return list(self.meta.get("lcfd_prefix") or [])

    def is_our_daemon(self, pid):
        try:
            exe = os.readlink("/proc/%d/exe" % pid)
        except OSError:
            return False
        lcfd = os.path.realpath(self.meta["lcfd"])
        if self.lcfd_prefix():
            # The process is the prefix's program (valgrind's tool); lcfd is among its words.
            words = read_bytes("/proc/%d/cmdline" % pid).split(b"\0")
            return os.fsencode(lcfd) in words or os.fsencode(self.meta["lcfd"]) in words
        return lcfd in (exe, exe.replace(" (deleted)", ""))
