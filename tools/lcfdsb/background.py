"""Background helpers, run as separate processes (lcfd-sandbox _syslogd and
_supervise): the syslog receiver of every controller, and the supervisor that
starts daemons and stays their parent."""

import os
import selectors
import signal
import socket
import sys

from .cpuorder import CpuOrder
from .naming import DEVLOG
from .util import write_text


def syslogd_main(sb):
    """Receive every controller's syslog records on its /dev/log socket and
    append each record, exactly as received and followed by a line feed, to
    the controller's syslog file."""
    sb.load()
    sel = selectors.DefaultSelector()
    outputs = {}
    for k in sb.controllers():
        if not sb.ctrl(k).get("syslog", True):
            continue  # /dev/log stays a dangling link: syslog unreachable
        d = sb.cdir(k)
        path = d / DEVLOG
        try:
            path.unlink()
        except FileNotFoundError:
            pass
        s = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        s.bind(str(path))
        os.chmod(path, 0o666)
        s.setblocking(False)
        outputs[s.fileno()] = open(d / "syslog", "ab", buffering=0)
        sel.register(s, selectors.EVENT_READ)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    (sb.dir / "syslogd.ready").write_text(str(os.getpid()))
    while True:
        for key, _ in sel.select():
            while True:
                try:
                    data = key.fileobj.recv(65536)
                except BlockingIOError:
                    break
                outputs[key.fileobj.fileno()].write(data + b"\n")


def supervise_main(sb, ids):
    """Starts the daemons of the given controllers and stays their parent: records
    each one's pid when it is started and its exit status (as a shell reports it)
    when it ends, and ends itself when all of them have."""
    sb.load()
    cpu = CpuOrder(sb.name, len(sb.meta["controllers"])) if sb.meta.get("cpu_order") else None
    if cpu is None or not cpu.version:
        cpu = CpuOrder.__new__(CpuOrder)
        cpu.version, cpu.root = 0, None
    children = {}
    for k in ids:
        d = sb.cdir(k)
        pid = sb.spawn_daemon(k, cpu)
        children[pid] = k
        write_text(d / "pid.tmp", "%d\n" % pid)
        os.replace(d / "pid.tmp", d / "pid")
    while children:
        try:
            pid, status = os.waitpid(-1, 0)
        except ChildProcessError:
            break
        k = children.pop(pid, None)
        if k is not None:
            code = os.waitstatus_to_exitcode(status)
            d = sb.cdir(k)
            write_text(d / "exit.tmp", "%d\n" % (code if code >= 0 else 128 - code))
            os.replace(d / "exit.tmp", d / "exit")
    return 0
