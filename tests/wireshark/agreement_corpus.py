#!/usr/bin/env python3
"""The corpus of datagrams that the agreement test sends to real daemons: every example
request of docs/protocol.md, every malformed kind a tool (or a broken one) may send, and
mutations of valid requests. It is built deterministically (the mutations take a fixed
seed), so two runs send the same bytes in the same order.

Each entry is (kind, data, named):
  kind   where it comes from ("docs", "malformed/header", ..., "mutation/flip", ...);
  data   the exact bytes of the datagram (the daemon reads at most its first 512);
  named  for the check of the dissector's default mode (no device preference), which
         predicts for the controller a request names: the id of the bed controller whose
         verdict the default mode must give, 0 when every controller gives the same verdict
         whatever its address (no address in play), None when not checked that way.

Run alone, it prints the corpus as TSV: index, segment, kind, named, datagram in escaped
form.
"""

import random
import re
import sys
from pathlib import Path

# The daemon reads this much of a datagram.
READ_LIMIT = 512
# The fewest example requests docs/protocol.md must carry.
MIN_DOC_REQUESTS = 30
MUTATION_SEED = 7217
CONTROLLERS = 4

# The MAC the sandbox gives controller k, as the daemon spells it.
def mac(k):
    return "02:4C:43:00:%02X:%02X" % (k >> 8, k & 0xFF)


OTHER_MAC = "00:1A:2B:3C:4D:5E"  # no controller of the bed
# An address no controller of the bed has and none is given by the corpus.
TOOL_ADDR = b"198.18.255.254"


def escape(data):
    """A datagram as one line of printable ASCII."""
    out = []
    for byte in data:
        char = chr(byte)
        if char == "\\":
            out.append("\\\\")
        elif char == "\n":
            out.append("\\n")
        elif char == "\r":
            out.append("\\r")
        elif char == "\t":
            out.append("\\t")
        elif 0x20 <= byte < 0x7F:
            out.append(char)
        else:
            out.append("\\x%02x" % byte)
    return "".join(out)


FENCE = re.compile(rb"^( {0,3})(`{3,}|~{3,})[ \t]*([^`\s]*)[^`]*$")


def fenced_lines(markdown, info):
    """Every line of every fenced block whose info string is `info`, as bytes, in order.
    The fence's own indentation is taken off each line (up to its width), as Markdown does."""
    lines = markdown.split(b"\n")
    found = []
    i = 0
    while i < len(lines):
        opening = FENCE.match(lines[i])
        if not opening:
            i += 1
            continue
        indent, fence, word = opening.group(1), opening.group(2), opening.group(3)
        i += 1
        while i < len(lines):
            line = lines[i]
            stripped = line.lstrip(b" ")
            if (stripped.startswith(fence[:1] * len(fence)) and
                    stripped.rstrip(fence[:1] + b" \t") == b"" and
                    len(line) - len(stripped) <= 3):
                break
            if word == info:
                cut = 0
                while cut < len(indent) and cut < len(line) and line[cut:cut + 1] == b" ":
                    cut += 1
                found.append(line[cut:])
            i += 1
        i += 1
    return found


def docs_named(line):
    """The controller a documented request names exactly (its MAC field, upper-cased, is the
    controller's), 0 for a request in which no address is in play, else None."""
    fields = line.split(b"#")
    if len(fields) < 2 or not re.fullmatch(rb"LCF[0-2]", fields[0]):
        return None
    command = fields[1]
    if command in (b"ACK", b"STATUS"):
        return 0
    if command == b"QUERY" and len(fields) == 3:
        return 0
    if command not in (b"QUERY", b"ASSIGN", b"CLEAR") or len(fields) < 4:
        return None
    if not fields[3].startswith(b"mac="):
        return None
    if command == b"QUERY" and len(fields) != 4:
        return None
    value = fields[3][4:].decode("latin-1").upper()
    for k in range(1, CONTROLLERS + 1):
        if value == mac(k):
            return k
    return None


def docs_requests(path):
    markdown = Path(path).read_bytes()
    return [line for line in fenced_lines(markdown, b"lcf-requests") if line != b""]


def q(seqid, address=None):
    text = "LCF2#QUERY#seqid=%s" % seqid
    if address is not None:
        text += "#mac=" + address
    return text


def malformed():
    """(kind, text or bytes, named) of every malformed or unusual kind."""
    out = []

    def add(kind, data, named):
        if isinstance(data, str):
            data = data.encode("latin-1")
        out.append(("malformed/" + kind, data, named))

    # ASSIGNs go to controllers 2 and up in turn: the examples of the documentation address
    # controller 1, and every accepted ASSIGN holds its controller for 5 s.
    turn = [0]

    def target():
        turn[0] += 1
        return 2 + turn[0] % (CONTROLLERS - 1)

    def assign(seq, fields, k=None):
        k = k or target()
        return "LCF2#ASSIGN#seqid=%s#mac=%s%s" % (seq, mac(k), "".join("#" + f for f in fields)), k

    # Header and version.
    for header in ["LCF3", "LCF4", "LCF5", "LCF6", "LCF7", "LCF8", "LCF9", "LCFx", "LCF",
                   "lcf2", "LCF22", "LCF0", "LCF1", "LCF-", "LCF ", "LCX2", "LC2", "", "LCF+",
                   "Lcf2"]:
        # Addressed to one controller: a QUERY for every controller costs each a reading.
        add("header", header + "#QUERY#seqid=h" + escape(header.encode()).replace("\\", "b") +
            "#mac=" + mac(2 + len(out) % (CONTROLLERS - 1)), 0)
    add("header", "LCF3#ASSIGN#seqid=h1#mac=%s#ip=198.18.1.1" % mac(2), 0)
    add("header", "LCF9#CLEAR#seqid=h2#mac=%s#ntpip" % mac(3), 0)
    add("header", "LCF2", 0)
    add("header", "LCF2#", 0)
    add("header", "#QUERY#seqid=h3", 0)
    # Command words.
    for word in ["query", "Query", "QUERYX", "QUER", "assign", "Clear", "ack", "status",
                 "REBOOT", " QUERY", "QUERY ", "STATUS2"]:
        add("command", "LCF2#%s#seqid=c1#mac=%s" % (word, mac(1)), 0)
    add("command", "LCF2##seqid=c2", 0)
    add("command", "LCF2##", 0)
    # Replies are understood and ignored.
    add("reply", "LCF2#ACK", 0)
    add("reply", "LCF2#ACK#seqid=r1#mac=%s#accept=yes" % mac(1), 0)
    add("reply", "LCF2#ACK#seqid=r2#mac=%s#accept=no" % mac(2), 0)
    add("reply", "LCF2#ACK#garbage;=#", 0)
    add("reply", "LCF2#STATUS", 0)
    add("reply", "LCF2#STATUS#seqid=r3#mac=%s#ip=198.18.0.9#utcclock=#displaytime=" % mac(3), 0)
    add("reply", "LCF1#STATUS#seqid=r4", 0)
    add("reply", "LCF9#ACK#seqid=r5", 0)
    # Sequence identifiers.
    for k, seqfield in enumerate(["seqid=a=b", "seqid=a;b", "seqid=;", "SEQID=5", "seq=5",
                                  "seqid5", "", "=5", " seqid=5", "seqid =5"], start=1):
        add("seqid", "LCF2#QUERY#%s#mac=%s" % (seqfield, mac(1 + k % CONTROLLERS)), None)
        add("seqid", "LCF2#QUERY#%s" % seqfield, 0)
    add("seqid", "LCF2#QUERY#seqid=", 0)
    add("seqid", "LCF2#QUERY#seqid", 0)
    add("seqid", "LCF2#QUERY#seqid=#mac=%s" % mac(2), 2)
    add("seqid", "LCF2#QUERY#seqid#mac=%s" % mac(3), 3)
    add("seqid", "LCF2#QUERY#mac=%s#seqid=1" % mac(1), 0)
    add("seqid", "LCF2#ASSIGN#seqid=a=b#mac=%s#ip=198.18.1.2" % mac(2), None)
    add("seqid", "LCF2#CLEAR#seqid=a;b#mac=%s#ntpip" % mac(3), None)
    add("seqid", "LCF2#CLEAR#SEQID=1#mac=%s#ntpip" % mac(4), None)
    # MAC groups that are not hexadecimal, and addresses of odd shapes.
    for k, address in enumerate(["02:4C:43:00:00:0G", "02:4C:43:00:0x:01", "G2:4C:43:00:00:01",
                                 "02:4C:43:00:00:-1", "02:4c:43:00:00:0g", "zz:zz:zz:zz:zz:zz"],
                                start=1):
        add("mac-hex", q("m%d" % k, address), None)
        add("mac-hex", "LCF2#ASSIGN#seqid=m%d#mac=%s#ip=198.18.1.3" % (k, address), None)
        add("mac-hex", "LCF2#CLEAR#seqid=m%d#mac=%s#syslogip" % (k, address), None)
    for k, address in enumerate(["2:4C:43:0:0:1", "02:4C:43:00:00", "02:4C:43:00:00:001",
                                 "002:4C:43:00:00:01", "02:4C:43:00:00:01:77", "02:4C:43:00:00:01:",
                                 "02-4C-43-00-00-01", "024C43000001", "0:1:2:3:4:5", "",
                                 "02:4C:43:00:00:1", "::::::", "02:4C:43:00:00:01 "], start=1):
        add("mac-shape", q("s%d" % k, address), None)
        add("mac-shape", "LCF2#ASSIGN#seqid=s%d#mac=%s#ip=198.18.1.4" % (k, address), None)
    # The MAC key in other cases, another key, no key: each for one controller in turn.
    for i, (form, named_here) in enumerate([("l%d#mac=%s", True), ("u%d#MAC=%s", True),
                                            ("v%d#Mac=%s", True), ("w%d#adr=%s", True),
                                            ("x%d#%s", False), ("y%d#mac=%s", True)]):
        k = 1 + i % CONTROLLERS
        address = mac(k).lower() if i % 2 == 0 else mac(k)
        add("mac-shape", "LCF2#QUERY#seqid=" + form % (k, address), k if named_here else None)
    add("mac-shape", "LCF2#CLEAR#seqid=s1#MAC=%s#ntpip" % mac(1), 1)
    add("mac-shape", "LCF2#CLEAR#seqid=s2#mac=%s#nameserver" % mac(1).lower(), 1)
    add("mac-shape", "LCF2#ASSIGN#seqid=s3#mac=", None)
    add("mac-shape", "LCF2#ASSIGN#seqid=s4", None)
    add("mac-shape", "LCF2#CLEAR#seqid=s5#mac=#ntpip", None)
    add("mac-shape", "LCF2#CLEAR#seqid=s6", None)
    add("mac-shape", q("s7", OTHER_MAC), None)
    add("mac-shape", q("s8", OTHER_MAC.lower()), None)
    # ASSIGN fields that refuse the request.
    for value in ["dhcp", "Static", "", "static", "DHCP ", "STATIC;", "NONE"]:
        text, k = assign("i%d" % len(out), ["ipscheme=" + value])
        add("assign-refused", text, k)
    for field in ["=198.18.1.5", "ip=", "netmask=", "=", "foo=", "foo=b;r", "f;o=bar", "foo=a=b",
                  "hostname=a;b", "x;=1", "gateway=", "utcclock=", "ntpip=;", "ip=1.2.3.4;",
                  "ip=1;2.3.4", "ip=1.2.3.4=5", "syslogip=a=b", "nameserver=1.2.3.256;", "ip", "ipscheme"]:
        text, k = assign("e%d" % len(out), [field])
        add("assign-refused", text, k)
    text, k = assign("e%d" % len(out), ["ip=198.18.1.6", "ipscheme=dhcp"])
    add("assign-refused", text, k)
    text, k = assign("e%d" % len(out), ["hostname=ok", "foo=", "ip=198.18.1.7"])
    add("assign-refused", text, k)
    # ASSIGN fields taken or dropped without refusal.
    # Fields that leave the request accepted go a few to a request (each accepted ASSIGN
    # holds its controller 5 s): a dissector refusing any one of them disagrees all the same.
    for fields in [["ip=1.2.3.256", "netmask=a.b.c.d", "gateway= 1.2.3.4"],
                   ["ip=1.2.3", "netmask=1..2.3", "ntpip=1.2.3.4.5", "syslogip=010.001.0.9"],
                   ["nameserver=1.2.3.4294967296", "ip=99999999999999999999.1.1.1",
                    "gateway=1.2.3.18446744073709551616", "ntpip=1.2.3.-1"],
                   ["ipscheme=STATIC", "hostname=newname", "controller=x", "mac1=y", "foo=bar"],
                   ["ip=198.18.1.8", "", "ipscheme=dhcp"], ["netmask=255.255.0.0", "", "foo="],
                   ["ip=198.18.1.10", "ip=198.18.1.11", "ip=bad", "ipscheme=DHCP",
                    "ipscheme=STATIC"],
                   ["utcclock=notaclock", "utcclock=-1"], ["utcclock=0"],
                   ["utcclock=2026-11-24 06:00:00", "Ip=1.2.3.4", "IP=x.y"], []]:
        text, k = assign("t%d" % len(out), fields)
        add("assign-taken", text, k)
    add("assign-taken", "LCF2#ASSIGN#seqid=t0#mac=%s#" % mac(4), 4)
    add("assign-taken", "LCF2#ASSIGN#seqid=t00#mac=%s##" % mac(3), 3)
    add("assign-taken", "LCF2#ASSIGN#seqid=t1#mac=%s#ip=198.18.1.13" % OTHER_MAC, None)
    add("assign-taken", "LCF2#ASSIGN#seqid=t2#mac=%s#ipscheme=dhcp" % OTHER_MAC, None)
    # QUERY with fields after the MAC.
    for k, rest in enumerate(["#x=1", "#", "#seqid=2", "#mac=%s" % mac(1), ";", "=", "#ip=1.2.3.4"],
                             start=1):
        add("query-extra", q("qx%d" % k, mac(1 + k % CONTROLLERS)) + rest, None)
    add("query-extra", "LCF2#QUERY#seqid=qx9#", 0)
    add("query-extra", "LCF2#QUERY#seqid=qx10##", None)
    # CLEAR.
    for k, key in enumerate(["ntpip", "syslogip", "nameserver", "ntpip#", "ntpip#syslogip",
                             "hostname", "", "NTPIP", "ip", "ntpip ", "syslogip=", "nameserver=1"],
                            start=1):
        target_k = 1 + k % CONTROLLERS
        add("clear", "LCF2#CLEAR#seqid=k%d#mac=%s#%s" % (k, mac(target_k), key), target_k)
    add("clear", "LCF2#CLEAR#seqid=k13#mac=%s" % mac(2), 2)
    add("clear", "LCF2#CLEAR#seqid=k14#mac=%s#ntpip" % OTHER_MAC, None)
    # Zero bytes and line feeds.
    for k, data in enumerate([
            "LCF2#QUERY#seqid=z\0", "LCF2\0#QUERY#seqid=z2", "LCF2#QUERY\0#seqid=z3",
            "LCF2#QUERY#seqid=z4#mac=%s\0" % mac(1), "\0LCF2#QUERY#seqid=z5",
            "LCF2#ASSIGN#seqid=z6#mac=%s#ip=198.18.1.14\0" % mac(2),
            "LCF2#ASSIGN#seqid=z7#mac=%s#foo=\0" % mac(3),
            "LCF2#CLEAR#seqid=z8#mac=%s#ntpip\0" % mac(4), "\0", "\0\0\0\0",
            "LCF2#QUERY#seqid=n\n", "LCF2\n#QUERY#seqid=n2",
            "LCF2#QUERY#seqid=n3\r\n#mac=%s" % mac(2),
            "LCF2#QUERY#seqid=n4#mac=%s\n" % mac(2), "\nLCF2#QUERY#seqid=n5",
            "LCF2#ASSIGN#seqid=n6#mac=%s#ip=198.18.1.15\n" % mac(3),
            "LCF2#ASSIGN#seqid=n7#mac=%s#\n" % mac(4), "LCF2#CLEAR#seqid=n8#mac=%s#ntpip\n" % mac(1),
            "LCF2#QUERY#seqid=n\n9\n#mac=%s" % mac(3), "\n",
            "LCF2#QUERY#seqid=\xff\xfe#mac=%s" % mac(4), "LCF2#QUERY#seqid=\xc3\xa9#mac=%s" % mac(2)]):
        add("bytes", data, None)
    # Longer than the daemon reads.
    pad = "x" * 600
    add("long", "LCF2#QUERY#seqid=" + pad, 0)
    add("long", q("L1", mac(1)) + "#" + pad, None)
    body = "LCF2#ASSIGN#seqid=L2#mac=%s#hostname=" % mac(2)
    add("long", body + "a" * (READ_LIMIT - len(body)) + "#ipscheme=dhcp", 2)
    body = "LCF2#ASSIGN#seqid=L3#mac=%s#hostname=" % mac(3)
    add("long", body + "b" * (READ_LIMIT - len(body) - 1) + "#foo=", 3)
    body = "LCF2#ASSIGN#seqid=L4#mac=%s#hostname=" % mac(4)
    add("long", body + "c" * (READ_LIMIT - len(body) - 5) + "#foo=bar", 4)
    body = "LCF2#ASSIGN#seqid=L5#mac=%s#hostname=" % mac(2)
    add("long", body + "d" * (READ_LIMIT - len(body) - 3) + "#x=;", 2)
    body = "LCF2#QUERY#seqid="
    add("long", body + "e" * (READ_LIMIT - len(body)), 0)
    add("long", body + "f" * (READ_LIMIT - len(body)) + ";", 0)
    add("long", body + "g" * (READ_LIMIT - len(body) - 1) + ";", 0)
    body = "LCF2#CLEAR#seqid=%s#mac=%s#ntpip" % ("h" * (READ_LIMIT - 40), mac(3))
    add("long", body, None)
    add("long", "LCF2#CLEAR#seqid=L6#mac=%s#nameserver%s" % (mac(4), "#" * 600), 4)
    return out


def valid_requests():
    """The valid requests that are mutated, addressed to the bed, elsewhere and nowhere."""
    bases = []
    for k in range(1, CONTROLLERS + 1):
        bases.append(q("%d" % (100 + k), mac(k)))
        bases.append("LCF2#CLEAR#seqid=%d#mac=%s#%s" % (200 + k, mac(k),
                                                         ["ntpip", "syslogip", "nameserver"][k % 3]))
        if k > 1:  # controller 1 has the ASSIGNs of the documentation
            bases.append("LCF2#ASSIGN#seqid=%d#mac=%s#ip=198.18.2.%d#netmask=255.255.0.0" % (
                300 + k, mac(k), k))
    bases.append(q("400"))
    bases.append(q("401", OTHER_MAC))
    bases.append("LCF2#ASSIGN#seqid=402#mac=%s#ipscheme=STATIC#gateway=198.18.255.1" % OTHER_MAC)
    bases.append("LCF2#CLEAR#seqid=403#mac=%s#syslogip" % OTHER_MAC)
    bases.append("LCF2#ACK#seqid=404#mac=%s#accept=yes" % mac(1))
    return [b.encode() for b in bases]


MUTATIONS = ["flip", "delete", "insert", "case", "truncate"]


def mutate(rng, data, how):
    data = bytearray(data)
    pos = rng.randrange(len(data))
    if how == "flip":
        data[pos] ^= 1 << rng.randrange(7)
    elif how == "delete":
        del data[pos:pos + rng.choice([1, 1, 2, 4])]
    elif how == "insert":
        data[pos:pos] = rng.choice([b"#", b"=", b";"])
    elif how == "case":
        letters = [i for i, c in enumerate(data) if chr(c).isalpha()]
        for i in rng.sample(letters, min(len(letters), rng.choice([1, 1, 3]))):
            data[i] = ord(chr(data[i]).swapcase())
    elif how == "truncate":
        del data[pos:]
    return bytes(data)


def mutations(count_each, taken):
    rng = random.Random(MUTATION_SEED)
    bases = valid_requests()
    out = []
    for how in MUTATIONS:
        made = 0
        while made < count_each:
            base = bases[rng.randrange(len(bases))]
            data = mutate(rng, base, how)
            if acceptable(data) and data[:READ_LIMIT] not in taken:
                taken.add(data[:READ_LIMIT])
                out.append(("mutation/" + how, data, None))
                made += 1
    return out


def acceptable(data):
    """A datagram the test can send and find again in every daemon's trace: not empty (the
    daemon skips empty datagrams), and without the text of a trace line."""
    return data != b"" and b"] Message " not in data and TOOL_ADDR not in data


def build(docs_path, require_docs=True, segments=1):
    """The whole corpus, in the order it is sent, each entry (kind, data, named, segment):
    the corpus is shared out among `segments` sandbox segments (numbered from 1) that run
    side by side, each with a controller 1, so that the documentation's ASSIGNs to
    controller 1, which hold it 5 s each, are shared out too."""
    corpus = []
    taken = set()

    def take(kind, data, named):
        if isinstance(data, str):
            data = data.encode("latin-1")
        if not acceptable(data) or data[:READ_LIMIT] in taken:
            return
        taken.add(data[:READ_LIMIT])
        corpus.append((kind, data, named))

    if Path(docs_path).exists():
        lines = docs_requests(docs_path)
        if len(lines) < MIN_DOC_REQUESTS:
            raise SystemExit("%s has %d example requests in lcf-requests blocks, fewer than %d"
                             % (docs_path, len(lines), MIN_DOC_REQUESTS))
        for line in lines:
            take("docs", line, docs_named(line))
    elif require_docs:
        raise SystemExit("%s is missing: its example requests belong to the corpus" % docs_path)
    for kind, data, named in malformed():
        take(kind, data, named)
    corpus.extend(mutations(16, taken))
    return schedule(corpus, segments)


# Kinds whose ASSIGNs are refused or ignored by design: they hold no daemon.
NO_PAUSE_KINDS = ("malformed/assign-refused", "malformed/header", "malformed/seqid",
                  "malformed/mac-hex", "malformed/mac-shape")


def assign_target(kind, data):
    """The controller an ASSIGN seems to address and may hold 5 s, else 0."""
    if b"#ASSIGN#" not in data or kind in NO_PAUSE_KINDS:
        return 0
    lower = data[:READ_LIMIT].lower()
    for k in range(1, CONTROLLERS + 1):
        if mac(k).lower().encode() in lower:
            return k
    return 0


def schedule(corpus, segments=1):
    """The order of sending, and the segment of each entry. An accepted ASSIGN holds its
    daemon 5 s, and the test lets no daemon fall far behind, so ASSIGNs wait for each other
    unless the controllers pause together: the ASSIGNs go out in rounds, one for each
    controller, with the other datagrams spread between the rounds."""
    queues = {k: [] for k in range(0, CONTROLLERS + 1)}
    for entry in corpus:
        queues[assign_target(entry[0], entry[1])].append(entry)
    ordered = []
    for segment in range(1, segments + 1):
        mine = {k: queue[segment - 1::segments] for k, queue in queues.items()}
        rest = mine.pop(0)
        rounds = max(1, max(len(queue) for queue in mine.values()))
        for number in range(rounds):
            for k in mine:
                if number < len(mine[k]):
                    ordered.append(mine[k][number] + (segment,))
            # The other datagrams are handled while the controllers pause.
            ordered.extend(entry + (segment,) for entry in
                           rest[len(rest) * number // rounds:len(rest) * (number + 1) // rounds])
    return ordered
