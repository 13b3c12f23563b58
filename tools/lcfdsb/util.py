"""Small helpers of every part of the sandbox: errors, commands, processes, files."""

import os
import subprocess
import sys
import time
from pathlib import Path


def die(msg):
    sys.stderr.write("lcfd-sandbox: %s\n" % msg)
    sys.exit(1)


def run(cmd, check=True, quiet=False, input_text=None):
    res = subprocess.run(cmd, input=input_text, text=True, capture_output=True)
    if check and res.returncode != 0:
        raise RuntimeError("%s failed (%d): %s" % (" ".join(cmd), res.returncode, res.stderr.strip()))
    if not quiet and res.returncode != 0:
        sys.stderr.write(res.stderr)
    return res


def pid_alive(pid):
    if not pid:
        return False
    try:
        os.kill(pid, 0)
    except ProcessLookupError:
        return False
    except PermissionError:
        return True
    # A zombie is as good as gone.
    try:
        with open("/proc/%d/stat" % pid) as f:
            return f.read().split(")")[-1].split()[0] != "Z"
    except OSError:
        return False


def read_text(path, default=""):
    try:
        return Path(path).read_text()
    except OSError:
        return default


def write_text(path, text):
    path = Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)


def read_bytes(path):
    try:
        return Path(path).read_bytes()
    except OSError:
        return b""


class Phases:
    """With -v, how long each step of building a sandbox took, on standard error."""

    def __init__(self, verbose):
        self.verbose = verbose
        self.last = time.monotonic()

    def done(self, what):
        now = time.monotonic()
        if self.verbose:
            sys.stderr.write("lcfd-sandbox: %-24s %6.2f s\n" % (what, now - self.last))
        self.last = now
