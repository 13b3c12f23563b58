"""Where a sandbox lives and what its parts are called: paths, namespace and
interface names, and the addresses and MACs of the segment."""

import os
from pathlib import Path

# This file is tools/lcfdsb/naming.py: the repository is two levels up.
REPO = Path(__file__).resolve().parent.parent.parent
SIM = REPO / "sim"
# The program the sandbox runs again for its helper processes (the syslog
# receiver, the supervisor, the sender inside the tool namespace).
ENTRY = Path(__file__).resolve().parent.parent / "lcfd-sandbox"
BASE = Path(os.environ.get("LCFD_SANDBOX_BASE", "/tmp/lcfd-sandbox"))
NS_PREFIX = "lcfdsb."
PORT = 7217

# Addresses of the segment (a benchmarking range, reachable only inside the
# sandbox's own namespaces).
PREFIX_LEN = 16
NETMASK = "255.255.0.0"
TOOL_ADDR = "198.18.255.254"
GATEWAY = "198.18.255.1"
TIMESERVER = "198.18.255.10"
SYSLOGSERVER = "198.18.255.20"
NAMESERVER = "198.18.255.53"
PLATFORMS = ("arm9", "imx", "qmt", "generic", "unknown")
# A tool host may sit on several segments at once: segment N (1 to 9) is its
# own switch, reached from the tool side on interface lan(N-1).
MAX_SEGMENTS = 9
DISPLAY_SETTING = "4711"
# A controller's /dev/log leads to this socket in its directory.
DEVLOG = "devlog.sock"
DISPLAY_SECONDS = "1700000000"


def ctrl_addr(k):
    return "198.18.%d.%d" % ((k - 1) // 250, (k - 1) % 250 + 1)


def ctrl_mac(k):
    return "02:4c:43:00:%02x:%02x" % (k >> 8, k & 0xFF)


def tool_iface(segment):
    return "lan%d" % (segment - 1)


def tool_addr(segment):
    return "198.18.255.%d" % (255 - segment)


# More tool hosts may share segment 1 with the first (up --tool-hosts): host H (2 to 9) is
# a namespace of its own with interface lan0 and this address, so that one tool can watch
# what another sends and receives, from a host of its own.
MAX_TOOL_HOSTS = 9


def tool_host_addr(host):
    return "198.18.255.%d" % (240 - host)


def tool_host_ns(host):
    """The namespace part of tool host H's name: "tool" for the first, "toolH" for the others."""
    return "tool" if host == 1 else "tool%d" % host


def switch_name(segment):
    return "sw" if segment == 1 else "sw%d" % segment


def ns_name(name, what):
    return "%s%s.%s" % (NS_PREFIX, name, what)
