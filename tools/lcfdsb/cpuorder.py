"""CPU order.  Real controllers each read their device on a CPU of their own;
simulated ones share the machine's cores, and the kernel's fair share makes
all of them finish their readings together, at the very end: on two cores
a hundred controllers would all answer a discovery after ten seconds or
more, and none before.  Each daemon (and every command it starts) is
therefore put in a control group of its own, in a binary tree whose first
branch at every level weighs 2**17 times its second: a controller gets the
CPU only while those numbered before it have nothing to run, so readings
end one after the other, the first after one reading's time, as if each
board had its own CPU and the segment delivered their answers in turn."""

import os
import sys
import time
from pathlib import Path

from .util import read_text, write_text


class CpuOrder:
    V1 = Path("/sys/fs/cgroup/cpu")
    V2 = Path("/sys/fs/cgroup")

    def __init__(self, name, count):
        self.count = count
        self.depth = max(1, (count - 1).bit_length())
        if (self.V1 / "cpu.shares").exists():
            self.version, base = 1, self.V1
            self.weights, self.weight_file = ("262144", "2"), "cpu.shares"
        elif "cpu" in read_text(self.V2 / "cgroup.controllers").split():
            self.version, base = 2, self.V2
            self.weights, self.weight_file = ("10000", "1"), "cpu.weight"
        else:
            self.version, base = 0, None
        self.root = base / ("lcfdsb-" + name) if base else None

    @staticmethod
    def roots():
        """Every sandbox's tree: (sandbox name, path)."""
        found = []
        for base in (CpuOrder.V1, CpuOrder.V2):
            try:
                names = os.listdir(base)
            except OSError:
                continue
            found += [(n[len("lcfdsb-"):], base / n) for n in names if n.startswith("lcfdsb-")]
        return found

    def leaf(self, k):
        bits = format(k - 1, "0%db" % self.depth)
        return self.root.joinpath(*("p" + b for b in bits))

    def build(self):
        if not self.version:
            return
        try:
            self.root.mkdir(exist_ok=True)
            self._grow(self.root, self.depth)
        except OSError as e:
            sys.stderr.write("lcfd-sandbox: no CPU order (%s): controllers share the cores\n" % e)
            self.remove(self.root)
            self.version = 0

    def _grow(self, node, levels):
        if levels == 0:
            return
        if self.version == 2:
            write_text(node / "cgroup.subtree_control", "+cpu")
        for branch, weight in zip("01", self.weights):
            child = node / ("p" + branch)
            child.mkdir(exist_ok=True)
            write_text(child / self.weight_file, weight)
            self._grow(child, levels - 1)

    def place(self, k, pid):
        """Moves process pid (a daemon just started, before it starts commands of its
        own) into controller k's group; what it starts from then on belongs there."""
        if self.version and self.root.exists():
            write_text(self.leaf(k) / "cgroup.procs", str(pid))

    @staticmethod
    def remove(root):
        if root is None or not root.exists():
            return
        for _ in range(50):
            for path, dirs, _files in os.walk(root, topdown=False):
                for d in dirs:
                    try:
                        os.rmdir(os.path.join(path, d))
                    except OSError:
                        pass
            try:
                os.rmdir(root)
                return
            except OSError:
                time.sleep(0.1)  # a process that is just ending is still counted
