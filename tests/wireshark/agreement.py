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
import threading
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
# Sandbox segments side by side, each with its share of the corpus (see agreement_corpus.py).
SEGMENTS = 2

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
    for index, (_, data, _, _) in enumerate(corpus):
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


class Segment:
    """One sandbox segment with its controllers, its share of the corpus, and what the run
    left: each daemon's standard output and the capture of the tool side."""

    def __init__(self, number, entries, args, source, out, stop):
        self.number = number
        self.entries = entries  # (global index, (kind, data, named, segment))
        self.corpus = [entry for _, entry in entries]
        self.args = args
        self.count = args.controllers
        self.macs = {k: corpus_mod.mac(k) for k in range(1, self.count + 1)}
        self.name = "agree%ds%d" % (os.getpid(), number)
        self.tool = str(source / "tools/lcfd-sandbox")
        self.capture = out / ("agreement-%d.pcap" % number)
        self.capture_log = out / ("agreement-%d-dumpcap.log" % number)
        self.out = out
        self.stop = stop
        self.error = None
        self.stdouts = {}
        self.queue_drops = {}
        self.status_text = ""
        self.seconds = None

    def sb(self, *words):
        return subprocess.run([self.tool, "-n", self.name] + list(words), check=True,
                              stdout=subprocess.PIPE).stdout

    def run(self):
        try:
            self._run()
        except (Failure, subprocess.CalledProcessError, OSError) as error:
            self.error = "segment %d: %s" % (self.number, error)
            self.stop.set()
        except BaseException as error:  # reported, never lost in the thread
            self.error = "segment %d: %r" % (self.number, error)
            self.stop.set()

    def _run(self):
        started = time.monotonic()
        if self.capture.exists():
            self.capture.unlink()
        dumpcap = None
        try:
            self.sb("up", "--lcfd", self.args.lcfd, "--count", str(self.count), "--platforms",
                    ",".join(PLATFORMS[:4]), "--owner-pid", str(os.getpid()), "--wait", "60")
            dirs = {k: Path(self.sb("logs", str(k), "dir").decode().strip()) for k in self.macs}
            netns = "lcfdsb.%s.tool" % self.name
            with open(self.capture_log, "wb") as err:
                dumpcap = subprocess.Popen(
                    ["ip", "netns", "exec", netns, "dumpcap", "-q", "-i", "lan0", "-P", "-f",
                     "udp port %d or udp port %d" % (PORT, END_MARK_PORT), "-w",
                     str(self.capture), "-a", "duration:%d" % CAPTURE_LIMIT_SECONDS],
                    stdout=subprocess.DEVNULL, stderr=err, preexec_fn=end_with_parent)
            deadline = time.monotonic() + 60
            while b"Capturing on" not in self.capture_log.read_bytes():
                if dumpcap.poll() is not None or time.monotonic() > deadline:
                    raise Failure("dumpcap did not start: %s" % self.capture_log.read_text())
                self.check_stop()
                time.sleep(0.05)

            sock = tool_socket(netns)
            counters = {k: TraceCounter(dirs[k] / "stdout") for k in self.macs}

            def wait_traced(upto):
                last_progress = time.monotonic()
                seen = {k: counters[k].count for k in self.macs}
                while True:
                    behind = []
                    for k in self.macs:
                        got = counters[k].update()
                        if got != seen[k]:
                            seen[k] = got
                            last_progress = time.monotonic()
                        if got < upto:
                            behind.append(k)
                    if not behind:
                        return
                    if time.monotonic() - last_progress > STALL_SECONDS:
                        raise Failure("controllers %s traced %s of %d datagrams sent and "
                                      "nothing more for %d s" % (
                                          behind, [seen[k] for k in behind], upto,
                                          STALL_SECONDS))
                    self.check_stop()
                    time.sleep(0.02)

            for index, (_, data, _, _) in enumerate(self.corpus):
                wait_traced(index - WINDOW)
                sock.sendto(data, ("255.255.255.255", PORT))
            wait_traced(len(self.corpus))
            self.seconds = time.monotonic() - started
            # Every reply went out before its daemon's trace line; a datagram of our own
            # after them shows the capture has seen everything before it.
            end_mark = b"agreement-end-%d-%d" % (os.getpid(), self.number)
            sock.sendto(end_mark, ("255.255.255.255", END_MARK_PORT))
            sock.close()
            deadline = time.monotonic() + 10
            while end_mark not in self.capture.read_bytes() and time.monotonic() < deadline:
                time.sleep(0.05)
            dumpcap.send_signal(signal.SIGINT)
            dumpcap.wait(timeout=30)
            dumpcap = None
            if end_mark not in self.capture.read_bytes():
                raise Failure("the capture lacks the end mark sent after the corpus")

            for k in self.macs:
                self.stdouts[k] = self.sb("logs", str(k), "stdout")
                base = self.out / ("segment-%d-controller-%d" % (self.number, k))
                base.with_suffix(".stdout").write_bytes(self.stdouts[k])
                base.with_suffix(".stderr").write_bytes(self.sb("logs", str(k), "stderr"))
                snmp = subprocess.run(["ip", "netns", "exec", "lcfdsb.%s.c%d" % (self.name, k),
                                       "cat", "/proc/net/snmp"], stdout=subprocess.PIPE,
                                      check=True).stdout.decode().splitlines()
                udp = [line.split() for line in snmp if line.startswith("Udp:")]
                self.queue_drops[k] = dict(zip(udp[0][1:], udp[1][1:])).get("RcvbufErrors")
            self.status_text = self.sb("status").decode()
            running = len(re.findall(r" running$", self.status_text, re.M))
            if running != self.count:
                raise Failure("%d of %d daemons are running at the end:\n%s" % (
                    running, self.count, self.status_text))
        finally:
            if dumpcap is not None:
                dumpcap.send_signal(signal.SIGINT)
                try:
                    dumpcap.wait(timeout=30)
                except subprocess.TimeoutExpired:
                    dumpcap.kill()
                    dumpcap.wait()
            subprocess.run([self.tool, "-n", self.name, "down"], stdout=subprocess.DEVNULL)

    def check_stop(self):
        if self.stop.is_set():
            raise Failure("stopped")


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--lcfd", required=True)
    parser.add_argument("--source", required=True)
    parser.add_argument("--out", required=True, help="directory for the corpus and captures")
    parser.add_argument("--lua", help="the dissector (default tools/wireshark/lcf.lua)")
    parser.add_argument("--docs", help="the protocol reference (default docs/protocol.md)")
    parser.add_argument("--controllers", type=int, default=corpus_mod.CONTROLLERS)
    parser.add_argument("--segments", type=int, default=SEGMENTS)
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
        corpus = corpus_mod.build(docs, not args.no_docs_ok, args.segments)
    except SystemExit as error:
        log("FAIL: %s" % error)
        return 1
    with open(out / "agreement-corpus.tsv", "w") as stream:
        stream.write("# index\tsegment\tkind\tnamed controller\tdatagram (escaped)\n")
        for index, (kind, data, named, segment) in enumerate(corpus):
            stream.write("%d\t%d\t%s\t%s\t%s\n" % (index, segment, kind,
                                                   "-" if named is None else named,
                                                   corpus_mod.escape(data)))
    kinds = collections.Counter(entry[0] for entry in corpus)
    log("corpus: %d datagrams (written to %s)" % (len(corpus), out / "agreement-corpus.tsv"))
    for kind in sorted(kinds):
        log("  %-28s %4d" % (kind, kinds[kind]))

    started = time.monotonic()
    stop = threading.Event()
    segments = [Segment(number, [(i, e) for i, e in enumerate(corpus) if e[3] == number],
                        args, source, out, stop) for number in range(1, args.segments + 1)]
    threads = [threading.Thread(target=segment.run) for segment in segments]

    def on_signal(number, _frame):
        stop.set()
        log("agreement: signal %d, stopping" % number)

    signal.signal(signal.SIGTERM, on_signal)
    signal.signal(signal.SIGINT, on_signal)
    for thread in threads:
        thread.start()
    while any(thread.is_alive() for thread in threads):
        for thread in threads:
            thread.join(timeout=0.2)
    signal.signal(signal.SIGTERM, signal.SIG_DFL)
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    errors = [segment.error for segment in segments if segment.error]
    if errors:
        for error in errors:
            if not error.endswith(": stopped"):
                log("FAIL: %s" % error)
        if all(error.endswith(": stopped") for error in errors):
            log("FAIL: stopped by a signal before the end")
        return 1

    failures = []
    comparisons = collections.Counter()
    mismatches = []
    verdict_counts = collections.Counter()
    replies_captured = 0
    for segment in segments:
        compare_segment(segment, lua, args, failures, comparisons, mismatches,
                        verdict_counts)
        replies_captured += segment.replies_captured

    total = time.monotonic() - started
    macs = segments[0].macs
    log("segments: %d, each with %d controllers (%s); replies captured: %d" % (
        len(segments), len(macs), ", ".join("%d=%s" % (k, macs[k]) for k in macs),
        replies_captured))
    log("sent and traced in %s s, whole run %.1f s; receive-queue drops: %s" % (
        " and ".join("%.1f" % segment.seconds for segment in segments), total,
        [segment.queue_drops for segment in segments]))
    log("trace verdicts: %d understood, %d not understood" % (verdict_counts[True],
                                                             verdict_counts[False]))
    for what in sorted(comparisons):
        log("comparisons, %-34s %6d" % (what, comparisons[what]))
    log("comparisons in all: %d" % sum(comparisons.values()))
    log("mismatches: %d" % len(mismatches))
    for what, index, kind, data, daemon, dissector, segment, k in mismatches:
        log("MISMATCH %s: #%d %s %s\n    daemon (segment %d, controller %d): %s, "
            "dissector: %s" % (what, index, kind, corpus_mod.escape(data), segment, k, daemon,
                               dissector))
    for failure in failures:
        log("FAIL: %s" % failure)
    if mismatches or failures:
        for segment in segments:
            log(segment.status_text)
        return 1
    return 0


def compare_segment(segment, lua, args, failures, comparisons, mismatches, verdict_counts):
    """Compares, for one segment, the dissector with each controller's trace and replies."""
    corpus = segment.corpus
    macs = segment.macs
    segment.replies_captured = 0

    def mismatch(what, local, daemon, dissector, k):
        index, (kind, data, _, _) = segment.entries[local]
        mismatches.append((what, index, kind, data, daemon, dissector, segment.number, k))

    def where(local):
        index, (_, data, _, _) = segment.entries[local]
        return "#%d %s" % (index, corpus_mod.escape(data[:200]))

    # What each daemon said.
    traces = {}
    others = {}
    for k in macs:
        traces[k], others[k] = verdicts_from_trace(segment.stdouts[k], corpus)
        if args.corrupt_trace is not None and k == 1:
            for local, (index, _) in enumerate(segment.entries):
                if index == args.corrupt_trace and traces[k][local] is not None:
                    traces[k][local] = not traces[k][local]
        for local, verdict in enumerate(traces[k]):
            verdict_counts[verdict] += 1
            if verdict is None:
                failures.append("segment %d, controller %d: no trace found for %s" % (
                    segment.number, k, where(local)))

    # What the dissector says, for each controller and without preference.
    by_payload = {data: local for local, (_, data, _, _) in enumerate(corpus)}
    dissected = {}
    for k in [None] + list(macs):
        frames, problems = run_tshark(segment.capture, lua, None if k is None else macs[k])
        failures.extend(problems)
        requests = {}
        replies = []
        for frame in frames:
            if frame["dport"] == str(END_MARK_PORT):
                continue
            if frame["src"] == TOOL_ADDR:
                local = by_payload.get(frame["payload"])
                if local is None:
                    failures.append("segment %d, frame %d from the tool is not in the corpus: "
                                    "%s" % (segment.number, frame["number"],
                                            corpus_mod.escape(frame["payload"][:200])))
                elif local in requests:
                    failures.append("segment %d, frame %d repeats %s" % (
                        segment.number, frame["number"], where(local)))
                else:
                    requests[local] = frame
            else:
                replies.append(frame)
        if k is None:
            for local in range(len(corpus)):
                if local not in requests:
                    failures.append("not in the capture of segment %d: %s" % (
                        segment.number, where(local)))
        dissected[k] = (requests, replies)

    # lcf.understood against each controller's trace verdict.
    for k in macs:
        requests, _ = dissected[k]
        for local, verdict in enumerate(traces[k]):
            if verdict is None or local not in requests:
                continue
            comparisons["understood, device_mac set"] += 1
            if requests[local]["understood"] != verdict:
                mismatch("understood (device_mac %s)" % macs[k], local, verdict,
                         requests[local]["understood"], k)
    # Without preference: the controller the request names, or every one when no address
    # is in play.
    requests, _ = dissected[None]
    for local, (_, _, named, _) in enumerate(corpus):
        if named is None or local not in requests:
            continue
        for k in ([named] if named else list(macs)):
            if k not in macs or traces[k][local] is None:
                continue
            comparisons["understood, no preference"] += 1
            if requests[local]["understood"] != traces[k][local]:
                mismatch("understood (no preference, controller %d)" % k, local,
                         traces[k][local], requests[local]["understood"], k)

    # lcf.outcome against the replies each controller sent, in the order of the requests
    # (a daemon handles the datagrams in the order they arrive).
    for k in macs:
        requests, replies = dissected[k]
        sent = [kind for address, kind in (reply_of(f["payload"]) for f in replies)
                if address == macs[k]]
        expected = []
        for local in range(len(corpus)):
            if local not in requests:
                continue
            outcome = requests[local]["outcome"]
            if outcome not in ("STATUS reply", "accept=yes", "accept=no", "ignored"):
                failures.append("%s: lcf.outcome %r (device_mac %s)" % (
                    where(local), outcome, macs[k]))
                continue
            if outcome != "ignored":
                expected.append((local, outcome))
        comparisons["outcome, device_mac set"] += len(requests)
        for position in range(max(len(expected), len(sent))):
            want = expected[position] if position < len(expected) else (None, "nothing")
            got = sent[position] if position < len(sent) else "nothing"
            if want[1] != got:
                local = want[0]
                if local is None:  # the controller sent more than predicted
                    local = expected[-1][0] if expected else 0
                mismatch("outcome (device_mac %s; reply %d of the controller, the ones "
                         "after it not compared)" % (macs[k], position + 1), local, got,
                         want[1], k)
                break

    # Replies: traced as understood by every daemon, and understood by the dissector.
    reply_frames = dissected[None][1]
    segment.replies_captured = len(reply_frames)
    for k in macs:
        comparisons["replies traced as understood"] += 1
        if others[k].get(False) or others[k].get(True, 0) != len(reply_frames):
            failures.append("segment %d: controller %d traced %d replies as understood and %d "
                            "as not; the capture holds %d" % (
                                segment.number, k, others[k].get(True, 0),
                                others[k].get(False, 0), len(reply_frames)))
    for k in [None] + list(macs):
        for frame in dissected[k][1]:
            comparisons["replies understood by the dissector"] += 1
            if frame["understood"] is not True:
                failures.append("segment %d, reply frame %d: lcf.understood %r (device_mac %s): "
                                "%s" % (segment.number, frame["number"], frame["understood"],
                                        k and macs[k], corpus_mod.escape(frame["payload"][:120])))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
