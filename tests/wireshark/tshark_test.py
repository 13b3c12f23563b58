#!/usr/bin/env python3
"""Decodes a capture with tshark and the lcf dissector and compares the fields with a
committed expected file.

The capture is either a committed .pcap (--pcap) or built here with text2pcap from a text
source (--source): every line that starts with "> " is one datagram, written as text with
the escapes \\xNN (one byte), \\n, \\r, \\t, \\0, \\\\ and \\R<count>:<char> (the character
repeated); all other lines are comments.

Fails on any difference, on "Lua Error" in either stream, and on anything tshark writes to
standard error other than its warning about running as root. Exits 77 (skipped) when
tshark or text2pcap is not installed.

--random N --seed S builds N datagrams from the seed instead: mutations of valid requests
and replies plus random bytes, for the check that no input raises a Lua error.

--mock LUA runs the dissector a second time on the same datagrams, outside Wireshark under the
plain interpreter LUA (lua5.2, lua5.4) with mock_wireshark.lua, and requires the same verdict,
outcome, Info column and expert texts as tshark gave: Wireshark releases embed either Lua.
Exits 77 when that interpreter is not installed.
"""

import argparse
import difflib
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile

SKIP = 77
ROOT_WARNING = re.compile(r'^Running as user "root" and group "root"\. This could be dangerous\.$')

NAMED_FIELDS = [
    "lcf.ip", "lcf.netmask", "lcf.gateway", "lcf.hostname", "lcf.ipscheme",
    "lcf.ntpip", "lcf.controller", "lcf.housenames", "lcf.syslogip", "lcf.nameserver",
    "lcf.ntpsync", "lcf.sdusage", "lcf.sdkversion", "lcf.mac1", "lcf.mac2", "lcf.uptime",
    "lcf.loadavg", "lcf.utcclock", "lcf.displaytime", "lcf.accept",
]
FIELDS = [
    "frame.number", "lcf.header", "lcf.version", "lcf.command", "lcf.seqid", "lcf.mac",
    "lcf.key", "lcf.value", "lcf.server_key", "lcf.understood", "lcf.outcome",
    "_ws.expert.message", "lcf.request_in", "lcf.response_in", "_ws.col.Info",
] + NAMED_FIELDS
FIELD_SETS = {
    "default": FIELDS,
    "verdict": ["frame.number", "lcf.command", "lcf.mac", "lcf.understood", "lcf.outcome",
                "_ws.expert.message"],
    "mock": ["lcf.understood", "lcf.outcome", "_ws.col.Info", "_ws.expert.message"],
    "heuristic": ["frame.number", "udp.dstport", "_ws.col.Protocol", "lcf.understood",
                  "lcf.outcome", "_ws.col.Info"],
}


def unescape(text):
    out = bytearray()
    i = 0
    while i < len(text):
        c = text[i]
        if c != "\\":
            out += c.encode("latin-1")
            i += 1
            continue
        nxt = text[i + 1]
        if nxt == "x":
            out.append(int(text[i + 2:i + 4], 16))
            i += 4
        elif nxt == "R":
            m = re.match(r"R(\d+):(.)", text[i + 1:])
            out += m.group(2).encode("latin-1") * int(m.group(1))
            i += 1 + m.end()
        else:
            out += {"n": b"\n", "r": b"\r", "t": b"\t", "0": b"\0", "\\": b"\\"}[nxt]
            i += 2
    return bytes(out)


def read_source(path):
    with open(path, encoding="utf-8") as f:
        return [unescape(line[2:].rstrip("\n")) for line in f if line.startswith("> ")]


def mutations(seed, count):
    """Deterministic datagrams: valid ones cut, spliced, flipped and padded, and noise."""
    rng = random.Random(seed)
    bases = [
        b"LCF2#QUERY#seqid=1",
        b"LCF2#QUERY#seqid=2#mac=02:4c:43:00:00:01",
        b"LCF2#ASSIGN#seqid=3#mac=02:4C:43:00:00:01#ip=10.0.0.7#netmask=255.255.255.0"
        b"#gateway=10.0.0.1#ipscheme=STATIC#ntpip=1.2.3.4#utcclock=20260101120000",
        b"LCF2#CLEAR#seqid=4#mac=02:4C:43:00:00:01#syslogip",
        b"LCF2#ACK#seqid=4#mac=02:4C:43:00:00:01#accept=yes",
        b"LCF2#STATUS#seqid=1#mac=02:4C:43:00:00:01#ip=198.18.0.1#utcclock=#displaytime=",
    ]
    alphabet = b"#=;:.LCF0123456789ABCDEFabcdef \0\n\xff" + bytes(range(256))
    out = []
    for _ in range(count):
        kind = rng.randrange(6)
        data = bytearray(rng.choice(bases))
        if kind == 0:
            data = bytearray(rng.randrange(256) for _ in range(rng.randrange(1, 80)))
        elif kind == 1:
            for _ in range(rng.randrange(1, 6)):
                data[rng.randrange(len(data))] = rng.choice(alphabet)
        elif kind == 2:
            data = data[:rng.randrange(1, len(data) + 1)]
        elif kind == 3:
            other = rng.choice(bases)
            data = data[:rng.randrange(len(data) + 1)] + other[rng.randrange(len(other)):]
        elif kind == 4:
            at = rng.randrange(len(data) + 1)
            data[at:at] = bytes(rng.choice(alphabet) for _ in range(rng.randrange(1, 12)))
        else:
            data += b"#" + bytes(rng.choice(b"#=.:9A") for _ in range(rng.randrange(400, 700)))
        if not data:
            data = bytearray(b"L")
        out.append(bytes(data))
    return out


def hexdump(datagrams):
    lines = []
    for data in datagrams:
        for at in range(0, len(data), 16):
            lines.append("%06x  %s" % (at, " ".join("%02x" % b for b in data[at:at + 16])))
        lines.append("")
    return "\n".join(lines) + "\n"


def check_stderr(stderr):
    bad = [line for line in stderr.splitlines() if line.strip() and not ROOT_WARNING.match(line)]
    return bad


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--tshark", default="tshark")
    ap.add_argument("--text2pcap", default="text2pcap")
    ap.add_argument("--lua", required=True)
    ap.add_argument("--pcap", action="append", help="a committed capture (repeatable)")
    ap.add_argument("--source", action="append", default=[], help="a text source (repeatable)")
    ap.add_argument("--random", type=int)
    ap.add_argument("--seed", type=int, default=7217)
    ap.add_argument("--port", type=int, default=7217)
    ap.add_argument("--from", dest="src", default="198.18.255.254")
    ap.add_argument("-o", "--pref", action="append", default=[], help="a tshark preference")
    ap.add_argument("--fields", default="default", choices=sorted(FIELD_SETS))
    ap.add_argument("--expected")
    ap.add_argument("--mock", help="a Lua interpreter to run the dissector on outside tshark")
    args = ap.parse_args()

    tshark = shutil.which(args.tshark)
    if tshark is None:
        print("tshark is not installed: skipped")
        return SKIP
    lua = None
    if args.mock:
        lua = shutil.which(args.mock)
        if lua is None:
            print("%s is not installed: skipped" % args.mock)
            return SKIP
        args.fields = "mock"
    datagrams = None

    with tempfile.TemporaryDirectory(prefix="lcf-tshark-") as tmp:
        if args.pcap:
            pcap = args.pcap[0]
            if len(args.pcap) > 1:
                # one tshark run for all of them: tshark's start-up is the slow part
                pcap = os.path.join(tmp, "captures.pcap")
                merged = subprocess.run([shutil.which("mergecap") or "mergecap", "-a", "-F", "pcap",
                                         "-w", pcap] + args.pcap, capture_output=True, text=True)
                if merged.returncode != 0:
                    print("mergecap failed:\n" + merged.stdout + merged.stderr)
                    return 1
        else:
            text2pcap = shutil.which(args.text2pcap)
            if text2pcap is None:
                print("text2pcap is not installed: skipped")
                return SKIP
            datagrams = []
            for source in args.source:
                datagrams += read_source(source)
            if args.random is not None:
                datagrams += mutations(args.seed, args.random)
            dump = os.path.join(tmp, "datagrams.txt")
            with open(dump, "w", encoding="ascii") as f:
                f.write(hexdump(datagrams))
            pcap = os.path.join(tmp, "datagrams.pcap")
            built = subprocess.run(
                [text2pcap, "-q", "-u", "%d,%d" % (args.port, args.port),
                 "-4", "%s,255.255.255.255" % args.src, dump, pcap],
                capture_output=True, text=True)
            # text2pcap -q still writes a line of dashes now and then
            noise = [l for l in check_stderr(built.stderr) if not re.match(r"^-+$", l)]
            if built.returncode != 0 or noise:
                print("text2pcap failed:\n" + built.stdout + built.stderr)
                return 1

        # two passes, so that a request can point to its reply
        command = [tshark, "-n", "-2", "-r", pcap, "-X", "lua_script:" + args.lua]
        for pref in args.pref:
            command += ["-o", pref]
        if args.random is not None and lua is None:
            command += ["-V"]  # every tree item and expert text is built
        else:
            command += ["-T", "fields", "-E", "occurrence=a", "-E", "aggregator=|"]
            for field in FIELD_SETS[args.fields]:
                command += ["-e", field]
        run = subprocess.run(command, capture_output=True)
        stdout = run.stdout.decode("utf-8", "backslashreplace")
        stderr = run.stderr.decode("utf-8", "backslashreplace")

        if lua is not None:
            hexes = os.path.join(tmp, "datagrams.hex")
            with open(hexes, "w", encoding="ascii") as f:
                f.writelines(d.hex() + "\n" for d in datagrams)
            mac = [p.split(":", 1)[1] for p in args.pref if p.startswith("lcf.device_mac:")]
            mocked = subprocess.run(
                [lua, os.path.join(os.path.dirname(os.path.abspath(__file__)), "mock_wireshark.lua"),
                 args.lua, hexes] + mac[-1:], capture_output=True)
            mock_out = mocked.stdout.decode("utf-8", "backslashreplace")
            if mocked.returncode != 0 or mocked.stderr:
                print("%s failed:\n%s" % (args.mock, mocked.stderr.decode("utf-8", "backslashreplace")))
                return 1

    failed = False
    if "Lua Error" in stdout or "Lua Error" in stderr:
        lines = [l for l in (stdout + stderr).splitlines() if "Lua Error" in l]
        print("Lua error:\n" + "\n".join(lines[:20]))
        failed = True
    unexpected = check_stderr(stderr)
    if unexpected:
        print("tshark wrote to standard error:\n" + "\n".join(unexpected[:20]))
        failed = True
    if run.returncode != 0:
        print("tshark exited with status %d" % run.returncode)
        failed = True

    if lua is not None:
        if stdout != mock_out:
            print("the dissector under %s differs from tshark's:" % args.mock)
            sys.stdout.writelines(difflib.unified_diff(
                stdout.splitlines(True), mock_out.splitlines(True), "tshark", args.mock))
            failed = True
        else:
            print("%d datagrams: %s and tshark agree" % (len(datagrams), args.mock))
    elif args.random is not None:
        decoded = len(re.findall(r"^lcfd configuration protocol", stdout, re.M))
        if decoded != len(datagrams):
            print("%d of %d datagrams decoded by the dissector" % (decoded, len(datagrams)))
            failed = True
        else:
            print("%d datagrams decoded, no Lua error" % decoded)
    elif args.expected:
        with open(args.expected, encoding="utf-8") as f:
            expected = f.read()
        if stdout != expected:
            print("tshark output differs from %s:" % args.expected)
            sys.stdout.writelines(difflib.unified_diff(
                expected.splitlines(True), stdout.splitlines(True), "expected", "tshark"))
            failed = True
    else:
        sys.stdout.write(stdout)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
