#!/usr/bin/env bash
# Valgrind memcheck of the daemon on its request paths. Two sandboxed controllers (an imx on
# br0, answering by UDP broadcast, and an arm9 on eth0, answering by raw frame) run lcfd under
# valgrind --leak-check=full; the tool side sends QUERYs, an accepted and a refused ASSIGN and
# the three CLEARs to each, then the daemons are stopped (SIGTERM) so that valgrind reports.
#
# This is done twice, with N and with 2N QUERYs (N = LCFD_VALGRIND_QUERIES, default 5). It
# fails on any memcheck error, and on any lost block that is not the interface address list
# each reading of the device keeps by design (getifaddrs in lcfd::lookupInterfaceNetmask). The
# difference of the two runs' lost totals, divided by N, is what one reading keeps.
#
# Needs root (namespaces) and a build of lcfd without sanitizers: LCFD_BUILD_DIR (default
# build, as scripts/test.sh leaves it) is configured and built when lcfd is not there yet.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
lcfd_install_missing "${LCFD_BUILD_PACKAGES[@]}" valgrind

build_dir=${LCFD_BUILD_DIR:-build}
queries=${LCFD_VALGRIND_QUERIES:-5}
lcfd=$build_dir/src/main/lcfd
if [ ! -x "$lcfd" ]; then
    cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo
    cmake --build "$build_dir" --target lcfd -j"$(nproc)"
fi
if grep -q "__asan_init" <<<"$(nm "$lcfd")"; then
    echo "check-valgrind: $lcfd is built with sanitizers; valgrind needs a plain build" >&2
    exit 1
fi

started=$SECONDS
work=$(mktemp -d /tmp/lcfd-valgrind.XXXXXX)
sandbox=valgrind$$
cleanup() {
    tools/lcfd-sandbox -n "$sandbox" down >/dev/null 2>&1 || true
}
trap cleanup EXIT

macs=(02:4C:43:00:00:01 02:4C:43:00:00:02)

# send REQUEST REPLIES: broadcast a request and wait for that many replies.
send() {
    local got
    got=$(tools/lcfd-sandbox -n "$sandbox" send "$1" --count "$2" --wait 60 | grep -c "LCF2#" || true)
    if [ "$got" != "$2" ]; then
        echo "check-valgrind: $2 replies expected to $1, got $got" >&2
        exit 1
    fi
}

# session COUNT: one sandbox, COUNT QUERYs, the ASSIGNs and CLEARs, then the reports.
session() {
    local count=$1
    tools/lcfd-sandbox -n "$sandbox" up --lcfd "$lcfd" --owner-pid $$ --wait 120 \
        -c imx -c arm9,iface=eth0 \
        --lcfd-prefix "valgrind --leak-check=full --errors-for-leak-kinds=none \
            --child-silent-after-fork=yes --log-file={dir}/valgrind.log"
    local i k
    for ((i = 1; i <= count; i++)); do
        send "LCF2#QUERY#seqid=q$i" 2
    done
    for k in 0 1; do
        send "LCF2#ASSIGN#seqid=a$k#mac=${macs[k]}#ntpip=198.18.255.11#syslogip=198.18.255.21" 1
        send "LCF2#ASSIGN#seqid=r$k#mac=${macs[k]}#ipscheme=BOGUS" 1
        for server in ntpip syslogip nameserver; do
            send "LCF2#CLEAR#seqid=c$k#mac=${macs[k]}#$server" 1
        done
    done
    tools/lcfd-sandbox -n "$sandbox" stop
    for k in 1 2; do
        cp "$(tools/lcfd-sandbox -n "$sandbox" logs $k dir)/valgrind.log" "$work/$count.c$k.log"
    done
    tools/lcfd-sandbox -n "$sandbox" down
}

session "$queries"
session $((2 * queries))

status=0
python3 - "$work" "$queries" <<'EOF' || status=$?
import re
import sys
from pathlib import Path

work, n = Path(sys.argv[1]), int(sys.argv[2])
KEPT = "lcfd::lookupInterfaceNetmask"
failed = False


def number(text):
    return int(text.replace(",", ""))


def summary(path):
    text = path.read_text()
    lost = {}
    for kind in ("definitely lost", "indirectly lost", "possibly lost"):
        m = re.search(r"%s: ([\d,]+) bytes in ([\d,]+) blocks" % kind, text)
        lost[kind] = (number(m.group(1)), number(m.group(2))) if m else (0, 0)
    errors = number(re.search(r"ERROR SUMMARY: ([\d,]+) errors", text).group(1))
    # Every loss record and the stack under it; each must be the kept address list.
    foreign = []
    for record in re.split(r"\n==\d+== \n", text):
        if re.search(r"are (definitely|indirectly|possibly) lost in loss record", record):
            if KEPT not in record or "getifaddrs" not in record:
                foreign.append(record)
    if "LEAK SUMMARY" not in text:
        foreign.append("no leak summary: the daemon did not end under valgrind")
    return lost, errors, foreign


names = {1: "imx, br0 (UDP)", 2: "arm9, eth0 (raw frame)"}
# Readings of the device: one at start-up, one per QUERY, one per ASSIGN (accepted or not).
print("\n%-24s %8s %6s %28s %16s %16s" % ("controller", "readings", "errors", "definitely lost",
                                         "indirectly lost", "possibly lost"))
results = {}
for k in (1, 2):
    for count in (n, 2 * n):
        lost, errors, foreign = summary(work / ("%d.c%d.log" % (count, k)))
        results[(k, count)] = lost
        print("%-24s %8d %6d %28s %16s %16s" % (
            names[k], count + 3, errors, "%d bytes in %d blocks" % lost["definitely lost"],
            "%d in %d" % lost["indirectly lost"], "%d in %d" % lost["possibly lost"]))
        if errors:
            print("  memcheck errors: see %s" % (work / ("%d.c%d.log" % (count, k))))
            failed = True
        for record in foreign:
            print("  lost block that is not the kept address list:\n" + record)
            failed = True
print()
for k in (1, 2):
    small, large = results[(k, n)], results[(k, 2 * n)]
    total = [large[kind][i] - small[kind][i] for kind in small for i in (0, 1)]
    definite = [large["definitely lost"][i] - small["definitely lost"][i] for i in (0, 1)]
    print("%-24s per reading: %g bytes in %g blocks definitely lost, %g bytes in %g blocks "
          "lost in all (from %d more readings)"
          % (names[k], definite[0] / n, definite[1] / n, sum(total[0::2]) / n,
             sum(total[1::2]) / n, n))
sys.exit(1 if failed else 0)
EOF
echo "check-valgrind: $((SECONDS - started)) s; logs in $work"
exit $status
