"""Controller description: a board as given on the command line (-c BOARD)."""

from .naming import MAX_SEGMENTS, PLATFORMS
from .util import die


def parse_board(board):
    """platform[,iface=NAME][,nobcast][,sdk=WORD][,tz=ZONE][,stdin=closed][,nosyslog][,seg=N]"""
    parts = board.split(",")
    platform = parts[0]
    if platform not in PLATFORMS:
        die("unknown platform %r (one of %s)" % (platform, ", ".join(PLATFORMS)))
    c = {"platform": platform, "iface": "br0", "bcast_route": True, "sdk": None,
         "tz": "UTC", "stdin": "null", "syslog": True, "segment": 1}
    for p in parts[1:]:
        key, _, value = p.partition("=")
        if key == "iface" and value:
            if len(value) > 15 or "/" in value:
                die("bad interface name %r" % value)
            c["iface"] = value
        elif key == "nobcast":
            c["bcast_route"] = False
        elif key == "sdk":
            c["sdk"] = value
        elif key == "tz" and value:
            c["tz"] = value
        elif key == "stdin" and value in ("null", "closed"):
            c["stdin"] = value
        elif key == "nosyslog" and not value:
            c["syslog"] = False
        elif key == "seg" and value.isdigit() and 1 <= int(value) <= MAX_SEGMENTS:
            c["segment"] = int(value)
        else:
            die("unknown controller option %r in %r" % (p, board))
    if c["sdk"] is None:
        c["sdk"] = "ERROR::getsdk: no SDK information" if platform == "unknown" else platform
    return c
