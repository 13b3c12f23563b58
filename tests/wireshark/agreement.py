#!/usr/bin/env python3
"""The Wireshark dissector agrees with the daemon: a corpus of requests (agreement_corpus.py)
is broadcast from the tool side of a sandbox segment to several controllers running the real
lcfd, captured there with dumpcap, and decoded by tshark with the dissector, once for each
controller (preference lcf.device_mac) and once without preference. For every request and
every controller the dissector's lcf.understood must equal the verdict of that controller's
trace line, and its lcf.outcome must match the replies the controller sent (a STATUS reply,
an ACK with accept=yes or accept=no, or nothing). Every reply the controllers sent is
understood by the dissector and traced as understood by every daemon.

Usage: agreement.py --lcfd LCFD --source SOURCE_DIR --out DIR [--lua LUA] [--docs MD]
Root only (namespaces; exits 77 without), and tshark with dumpcap (exits 77 without).
"""

import argparse
import collections
import ctypes
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
import agreement_corpus as corpus_mod  # noqa: E402

SKIP = 77
PORT = 7217
TOOL_ADDR = "198.18.255.254"
PLATFORMS = ["arm9", "imx", "qmt", "generic", "unknown"]
# Requests a daemon may have waiting in its receive queue: enough to keep every daemon busy,
# few enough that its queue (with the replies of the others) never overflows.
WINDOW = 24
# A daemon that traces nothing new for this long has lost a datagram (or hangs); an accepted
# ASSIGN holds a daemon 5 s, a busy machine stretches everything.
STALL_SECONDS = 60
TRACE = re.compile(rb"\[(\d+\.\d+\.\d+\.\d+)\] Message (not )?understood\.\.\. \n\n")
TOOL_TRACE = b"[" + TOOL_ADDR.encode() + b"] Message "
END_MARK_PORT = 7218

# dumpcap ends by itself after this long, should this script be killed outright.
CAPTURE_LIMIT_SECONDS = 900

CLONE_NEWNET = 0x40000000
PR_SET_PDEATHSIG = 1
_libc = ctypes.CDLL(None, use_errno=True)


def end_with_parent():
    """In a child before exec: it gets SIGTERM when this script ends, even killed."""
    _libc.prctl(PR_SET_PDEATHSIG, signal.SIGTERM)


def log(text):
    print(text, flush=True)


class Failure(Exception):
    pass


def tool_socket(netns):
    """A broadcast socket that lives in the tool namespace (made there, used from here)."""
    own = os.open("/proc/self/ns/net", os.O_RDONLY)
    target = os.open("/run/netns/" + netns, os.O_RDONLY)
    try:
        if _libc.setns(target, CLONE_NEWNET) != 0:
            raise OSError(ctypes.get_errno(), "setns " + netns)
        try:
            sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            sock.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        finally:
            if _libc.setns(own, CLONE_NEWNET) != 0:
                raise OSError(ctypes.get_errno(), "setns back")
    finally:
        os.close(own)
        os.close(target)
    return sock


class TraceCounter:
    """Counts, incrementally, the trace lines a daemon wrote for datagrams of the tool."""

    def __init__(self, path):
        self.path = path
        self.offset = 0
        self.tail = b""
        self.count = 0

    def update(self):
        try:
            with open(self.path, "rb") as stream:
                stream.seek(self.offset)
                chunk = stream.read()
        except FileNotFoundError:
            return self.count
        if chunk:
            self.offset += len(chunk)
            data = self.tail + chunk
            self.count += data.count(TOOL_TRACE)
            # Keep what could be the start of a trace cut by the read, never a whole one.
            keep = len(TOOL_TRACE) - 1
            cut = len(data) - keep
            last = data.rfind(TOOL_TRACE)
            if last >= 0 and last + len(TOOL_TRACE) > cut:
                cut = last + len(TOOL_TRACE)
            self.tail = data[max(cut, 0):]
        return self.count


def verdicts_from_trace(stdout, corpus):
    """(verdict per corpus entry: True, False or None when not found, the verdicts of the
    traces of other senders). The raw text of each datagram is found by its known bytes, in
    the order sent; the first trace line after it is its verdict (the daemon handles one
    datagram to its end before it reads the next)."""
    verdicts = [None] * len(corpus)
    cursor = 0
    for index, (_, data, _) in enumerate(corpus):
        raw = data[:corpus_mod.READ_LIMIT] + b"\n"
        start = cursor
        while True:
            pos = stdout.find(raw, start)
            if pos < 0:
                break
            if pos > 0 and stdout[pos - 1:pos] != b"\n":
                start = pos + 1
                continue
            match = TRACE.search(stdout, pos + len(raw))
            while match and stdout[match.start() - 1:match.start()] != b"\n":
                match = TRACE.search(stdout, match.start() + 1)
            if match and match.group(1).decode() == TOOL_ADDR:
                verdicts[index] = match.group(2) is None
                cursor = match.end()
                break
            start = pos + 1
    others = collections.Counter()
    for match in TRACE.finditer(stdout):
        if match.group(1).decode() != TOOL_ADDR:
            others[match.group(2) is None] += 1
    return verdicts, others


def run_tshark(capture, lua, device_mac):
    command = ["tshark", "-n", "-r", str(capture), "-X", "lua_script:" + str(lua),
               "-T", "fields", "-E", "separator=/t", "-E", "occurrence=a",
               "-e", "frame.number", "-e", "ip.src", "-e", "udp.srcport", "-e", "udp.dstport",
               "-e", "lcf.understood", "-e", "lcf.outcome", "-e", "udp.payload"]
    if device_mac is not None:
        command[1:1] = ["-o", "lcf.device_mac:" + device_mac]
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    out = result.stdout.decode("utf-8", "replace")
    err = result.stderr.decode("utf-8", "replace")
    problems = []
    if result.returncode != 0:
        problems.append("tshark exited %d: %s" % (result.returncode, err.strip()))
    if "Lua Error" in out or "Lua Error" in err:
        problems.append("Lua Error from the dissector (device_mac %r): %s" % (
            device_mac, (err + out)[:2000]))
    frames = []
    for line in out.splitlines():
        cols = line.split("\t")
        if len(cols) < 7:
            problems.append("tshark line with too few fields: %r" % line)
            continue
        number, src, sport, dport, understood, outcome, payload = cols[:7]
        frames.append({
            "number": int(number), "src": src, "sport": sport, "dport": dport,
            "understood": {"1": True, "True": True, "0": False, "False": False}.get(
                understood, understood or None),
            "outcome": outcome or None,
            "payload": bytes.fromhex(payload.replace(":", "")),
        })
    return frames, problems


def reply_of(payload):
    """(MAC, kind) of a controller's reply: kind "STATUS reply", "accept=yes" or "accept=no"."""
    fields = payload.split(b"#")
    if len(fields) >= 4 and fields[0] == b"LCF2" and fields[3].startswith(b"mac="):
        address = fields[3][4:].decode("latin-1")
        if fields[1] == b"STATUS":
            return address, "STATUS reply"
        if fields[1] == b"ACK" and len(fields) == 5 and fields[4] in (b"accept=yes",
                                                                      b"accept=no"):
            return address, fields[4].decode()
    return None, None


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--lcfd", required=True)
    parser.add_argument("--source", required=True)
    parser.add_argument("--out", required=True, help="directory for the corpus and capture")
    parser.add_argument("--lua", help="the dissector (default tools/wireshark/lcf.lua)")
    parser.add_argument("--docs", help="the protocol reference (default docs/protocol.md)")
    parser.add_argument("--controllers", type=int, default=corpus_mod.CONTROLLERS)
    parser.add_argument("--no-docs-ok", action="store_true",
                        help="run without the documentation's examples when it is missing")
    parser.add_argument("--corrupt-trace", type=int, metavar="INDEX",
                        help="invert the verdict read from controller 1's trace for one corpus "
                             "entry (to see the test fail)")
    args = parser.parse_args(argv)

    if os.geteuid() != 0:
        log("agreement: needs root (namespaces); skipped")
        return SKIP
    for tool in ("tshark", "dumpcap"):
        if shutil.which(tool) is None:
            log("agreement: %s is not installed; skipped" % tool)
            return SKIP
    source = Path(args.source).resolve()
    lua = Path(args.lua or source / "tools/wireshark/lcf.lua").resolve()
    docs = Path(args.docs or source / "docs/protocol.md")
    out = Path(args.out)
    out.mkdir(parents=True, exist_ok=True)
    if not lua.exists():
        log("FAIL: the dissector %s is missing" % lua)
        return 1
    try:
        corpus = corpus_mod.build(docs, not args.no_docs_ok)
    except SystemExit as error:
        log("FAIL: %s" % error)
        return 1
    with open(out / "agreement-corpus.tsv", "w") as stream:
        stream.write("# index\tkind\tnamed controller\tdatagram (escaped)\n")
        for index, (kind, data, named) in enumerate(corpus):
            stream.write("%d\t%s\t%s\t%s\n" % (index, kind, "-" if named is None else named,
                                               corpus_mod.escape(data)))
    kinds = collections.Counter(kind for kind, _, _ in corpus)
    log("corpus: %d datagrams (written to %s)" % (len(corpus), out / "agreement-corpus.tsv"))
    for kind in sorted(kinds):
        log("  %-28s %4d" % (kind, kinds[kind]))

    started = time.monotonic()
    name = "agree%d" % os.getpid()
    sandbox_tool = str(source / "tools/lcfd-sandbox")
    count = args.controllers
    macs = {k: corpus_mod.mac(k) for k in range(1, count + 1)}
    capture = out / "agreement.pcap"
    capture_log = out / "agreement-dumpcap.log"
    if capture.exists():
        capture.unlink()

    def sb(*words, **kw):
        return subprocess.run([sandbox_tool, "-n", name] + list(words), check=True,
                              stdout=subprocess.PIPE, **kw).stdout

    dumpcap = None
    up = False

    def on_signal(number, _frame):
        raise Failure("ended by signal %d" % number)

    signal.signal(signal.SIGTERM, on_signal)
    signal.signal(signal.SIGINT, on_signal)
    try:
        platforms = ",".join(PLATFORMS[:4])
        up = True
        sb("up", "--lcfd", args.lcfd, "--count", str(count), "--platforms", platforms,
           "--owner-pid", str(os.getpid()), "--wait", "60")
        dirs = {k: Path(sb("logs", str(k), "dir").decode().strip()) for k in macs}
        netns = "lcfdsb.%s.tool" % name
        with open(capture_log, "wb") as err:
            dumpcap = subprocess.Popen(
                ["ip", "netns", "exec", netns, "dumpcap", "-q", "-i", "lan0", "-P", "-f",
                 "udp port %d or udp port %d" % (PORT, END_MARK_PORT), "-w", str(capture),
                 "-a", "duration:%d" % CAPTURE_LIMIT_SECONDS],
                stdout=subprocess.DEVNULL, stderr=err, preexec_fn=end_with_parent)
        deadline = time.monotonic() + 60
        while b"Capturing on" not in capture_log.read_bytes():
            if dumpcap.poll() is not None or time.monotonic() > deadline:
                raise Failure("dumpcap did not start: %s" % capture_log.read_text())
            time.sleep(0.05)

        sock = tool_socket(netns)
        counters = {k: TraceCounter(dirs[k] / "stdout") for k in macs}

        def wait_traced(upto):
            last_progress = time.monotonic()
            seen = {k: counters[k].count for k in macs}
            while True:
                behind = []
                for k in macs:
                    got = counters[k].update()
                    if got != seen[k]:
                        seen[k] = got
                        last_progress = time.monotonic()
                    if got < upto:
                        behind.append(k)
                if not behind:
                    return
                if time.monotonic() - last_progress > STALL_SECONDS:
                    raise Failure("controllers %s traced %s of %d datagrams sent and nothing "
                                  "more for %d s" % (behind, [seen[k] for k in behind], upto,
                                                     STALL_SECONDS))
                time.sleep(0.02)

        for index, (_, data, _) in enumerate(corpus):
            wait_traced(index - WINDOW)
            sock.sendto(data, ("255.255.255.255", PORT))
        wait_traced(len(corpus))
        sent_seconds = time.monotonic() - started
        # Every reply went out before its daemon's trace line; a datagram of our own after
        # them shows the capture has seen everything before it.
        end_mark = b"agreement-end-%d" % os.getpid()
        sock.sendto(end_mark, ("255.255.255.255", END_MARK_PORT))
        deadline = time.monotonic() + 10
        while end_mark not in capture.read_bytes() and time.monotonic() < deadline:
            time.sleep(0.05)
        dumpcap.send_signal(signal.SIGINT)
        dumpcap.wait(timeout=30)
        dumpcap = None
        if end_mark not in capture.read_bytes():
            raise Failure("the capture lacks the end mark sent after the corpus")

        stdouts = {k: sb("logs", str(k), "stdout") for k in macs}
        for k in macs:
            (out / ("controller-%d.stdout" % k)).write_bytes(stdouts[k])
            (out / ("controller-%d.stderr" % k)).write_bytes(sb("logs", str(k), "stderr"))
        queue_drops = {}
        for k in macs:
            snmp = subprocess.run(["ip", "netns", "exec", "lcfdsb.%s.c%d" % (name, k), "cat",
                                   "/proc/net/snmp"], stdout=subprocess.PIPE,
                                  check=True).stdout.decode().splitlines()
            udp = [line.split() for line in snmp if line.startswith("Udp:")]
            queue_drops[k] = dict(zip(udp[0][1:], udp[1][1:])).get("RcvbufErrors")
        status_text = sb("status").decode()
        running = len(re.findall(r" running$", status_text, re.M))
        if running != count:
            raise Failure("%d of %d daemons are running at the end:\n%s" % (running, count,
                                                                            status_text))
    except (Failure, subprocess.CalledProcessError, OSError) as error:
        log("FAIL: %s" % error)
        return 1
    finally:
        signal.signal(signal.SIGTERM, signal.SIG_DFL)
        signal.signal(signal.SIGINT, signal.SIG_DFL)
        if dumpcap is not None:
            dumpcap.send_signal(signal.SIGINT)
            try:
                dumpcap.wait(timeout=30)
            except subprocess.TimeoutExpired:
                dumpcap.kill()
                dumpcap.wait()
        if up:
            subprocess.run([sandbox_tool, "-n", name, "down"], stdout=subprocess.DEVNULL)

    failures = []
    comparisons = collections.Counter()
    mismatches = []

    def mismatch(what, index, daemon, dissector, k):
        kind, data, _ = corpus[index]
        mismatches.append((what, index, kind, data, daemon, dissector, k))

    # What each daemon said.
    traces = {}
    others = {}
    for k in macs:
        traces[k], others[k] = verdicts_from_trace(stdouts[k], corpus)
        if args.corrupt_trace is not None and k == 1:
            value = traces[k][args.corrupt_trace]
            traces[k][args.corrupt_trace] = None if value is None else not value
        missing = [i for i, v in enumerate(traces[k]) if v is None]
        for i in missing:
            failures.append("controller %d: no trace found for #%d %s" % (
                k, i, corpus_mod.escape(corpus[i][1][:200])))

    # What the dissector says, for each controller and without preference.
    by_payload = {data: index for index, (_, data, _) in enumerate(corpus)}
    dissected = {}
    for k in [None] + list(macs):
        frames, problems = run_tshark(capture, lua, None if k is None else macs[k])
        failures.extend(problems)
        requests = {}
        replies = []
        for frame in frames:
            if frame["dport"] == str(END_MARK_PORT):
                continue
            if frame["src"] == TOOL_ADDR:
                index = by_payload.get(frame["payload"])
                if index is None:
                    failures.append("frame %d from the tool is not in the corpus: %s" % (
                        frame["number"], corpus_mod.escape(frame["payload"][:200])))
                elif index in requests:
                    failures.append("frame %d repeats corpus entry #%d" % (frame["number"],
                                                                         index))
                else:
                    requests[index] = frame
            else:
                replies.append(frame)
        for index in range(len(corpus)):
            if index not in requests:
                failures.append("corpus entry #%d is not in the capture: %s" % (
                    index, corpus_mod.escape(corpus[index][1][:200])))
        dissected[k] = (requests, replies)

    # lcf.understood against each controller's trace verdict.
    for k in macs:
        requests, _ = dissected[k]
        for index, verdict in enumerate(traces[k]):
            if verdict is None or index not in requests:
                continue
            comparisons["understood, device_mac set"] += 1
            if requests[index]["understood"] != verdict:
                mismatch("understood (device_mac %s)" % macs[k], index, verdict,
                         requests[index]["understood"], k)
    # Without preference: the controller the request names, or every one when no address
    # is in play.
    requests, _ = dissected[None]
    for index, (_, _, named) in enumerate(corpus):
        if named is None or index not in requests:
            continue
        for k in ([named] if named else list(macs)):
            if k not in macs or traces[k][index] is None:
                continue
            comparisons["understood, no preference"] += 1
            if requests[index]["understood"] != traces[k][index]:
                mismatch("understood (no preference, controller %d)" % k, index,
                         traces[k][index], requests[index]["understood"], k)

    # lcf.outcome against the replies each controller sent, in the order of the requests
    # (a daemon handles the datagrams in the order they arrive).
    for k in macs:
        requests, replies = dissected[k]
        sent = [kind for address, kind in (reply_of(f["payload"]) for f in replies)
                if address == macs[k]]
        expected = []
        for index in range(len(corpus)):
            if index not in requests:
                continue
            outcome = requests[index]["outcome"]
            if outcome not in ("STATUS reply", "accept=yes", "accept=no", "ignored"):
                failures.append("corpus entry #%d: lcf.outcome %r (device_mac %s)" % (
                    index, outcome, macs[k]))
                continue
            if outcome != "ignored":
                expected.append((index, outcome))
        comparisons["outcome, device_mac set"] += len(requests)
        for position in range(max(len(expected), len(sent))):
            want = expected[position] if position < len(expected) else (None, "nothing")
            got = sent[position] if position < len(sent) else "nothing"
            if want[1] != got:
                index = want[0]
                if index is None:  # the controller sent more than predicted
                    index = expected[-1][0] if expected else 0
                mismatch("outcome (device_mac %s; reply %d of the controller, the ones "
                         "after it not compared)" % (macs[k], position + 1), index, got,
                         want[1], k)
                break

    # Replies: traced as understood by every daemon, and understood by the dissector.
    reply_frames = dissected[None][1]
    for k in macs:
        comparisons["replies traced as understood"] += 1
        if others[k].get(False) or others[k].get(True, 0) != len(reply_frames):
            failures.append("controller %d traced %d replies as understood and %d as not; the "
                            "capture holds %d" % (k, others[k].get(True, 0),
                                                  others[k].get(False, 0), len(reply_frames)))
    for k in [None] + list(macs):
        for frame in dissected[k][1]:
            comparisons["replies understood by the dissector"] += 1
            if frame["understood"] is not True:
                failures.append("reply frame %d: lcf.understood %r (device_mac %s): %s" % (
                    frame["number"], frame["understood"], k and macs[k],
                    corpus_mod.escape(frame["payload"][:120])))

    total = time.monotonic() - started
    log("controllers: %d (%s), replies captured: %d" % (count, ", ".join(
        "%d=%s" % (k, macs[k]) for k in macs), len(reply_frames)))
    log("sent and traced in %.1f s, whole run %.1f s; receive-queue drops per controller: %s"
        % (sent_seconds, total, queue_drops))
    verdict_counts = collections.Counter(v for k in macs for v in traces[k])
    log("trace verdicts: %d understood, %d not understood" % (verdict_counts[True],
                                                             verdict_counts[False]))
    for what in sorted(comparisons):
        log("comparisons, %-34s %6d" % (what, comparisons[what]))
    log("comparisons in all: %d" % sum(comparisons.values()))
    log("mismatches: %d" % len(mismatches))
    for what, index, kind, data, daemon, dissector, k in mismatches:
        log("MISMATCH %s: #%d %s %s\n    daemon (controller %d): %s, dissector: %s" % (
            what, index, kind, corpus_mod.escape(data), k, daemon, dissector))
    for failure in failures:
        log("FAIL: %s" % failure)
    if mismatches or failures:
        log(status_text)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
