#!/usr/bin/env bash
# The scale figures of lcf and the sandbox: how long COUNT simulated controllers take to start
# and how much memory each needs, and whether one `lcf discover` with its defaults finds every
# one of them, in how long. Not part of the test suite (hundreds of controllers take minutes);
# run it by hand, as root, after a build:
#
#   sudo bash scripts/scale-discovery.sh            # 200 controllers
#   sudo bash scripts/scale-discovery.sh 50 200 300 # one run per count
#   sudo LCF_SCALE_LOSS=10 bash scripts/scale-discovery.sh 300   # on a segment losing 10 %
#
# Each run starts COUNT controllers of mixed platforms (arm9, imx, qmt, generic, unknown) on
# one sandboxed segment, runs `lcf discover --json` on the tool side, checks that every
# controller is in the answer exactly once with its own address and host name, prints one line
# of figures and tears the segment down. Memory per controller is what the machine had
# available before `up` less what it had after, divided by COUNT. Exit status 1 when any run
# missed a controller.
#
# Settings (environment): LCFD_BUILD_DIR (default build); LCF_SCALE_OPTIONS, more discover
# options (default none: the plain `lcf discover`, e.g. "--expect COUNT" to return once all
# have answered); LCF_SCALE_LOSS, the share of datagrams the segment drops (default 0);
# LCF_SCALE_UP_OPTIONS, more options of the sandbox's `up` (default --no-crosstalk: the
# controllers do not hear one another's replies, which on two shared cores overflow the
# receive queues of hundreds of controllers; docs/sandbox.md); LCF_SCALE_SANDBOX (sandbox
# name, default scale); LCF_SCALE_APPLY=1, then also a plan that moves every controller to a
# new address (198.18.100+ instead of 198.18.0+), applied with `lcf apply` and its defaults,
# timed, and checked by its exit status (apply verifies each change by reading the controller
# again).
set -euo pipefail
cd "$(dirname "$0")/.."

build_dir=${LCFD_BUILD_DIR:-build}
options_template=${LCF_SCALE_OPTIONS-}
loss=${LCF_SCALE_LOSS:-0}
sandbox=${LCF_SCALE_SANDBOX:-scale}
read -r -a up_options <<<"${LCF_SCALE_UP_OPTIONS---no-crosstalk}"
sandbox_tool=tools/lcfd-sandbox
lcfd_binary=$build_dir/src/main/lcfd
lcf_binary=$(realpath "$build_dir/client/lcf")
counts=("$@")
[ ${#counts[@]} -gt 0 ] || counts=(200)

for binary in "$lcfd_binary" "$lcf_binary"; do
    [ -x "$binary" ] || { echo "scale: $binary is missing: build first" >&2; exit 1; }
done

now() { date +%s.%N; }
available_kib() { awk '/^MemAvailable:/ { print $2 }' /proc/meminfo; }
seconds() { python3 -c 'import sys; print("%.1f" % (float(sys.argv[2]) - float(sys.argv[1])))' "$@"; }

trap '"$sandbox_tool" -n "$sandbox" down >/dev/null 2>&1 || true' EXIT
failed=0
for count in "${counts[@]}"; do
    available_before=$(available_kib)
    start=$(now)
    "$sandbox_tool" -n "$sandbox" up --lcfd "$lcfd_binary" --count "$count" \
        --platforms arm9,imx,qmt,generic,unknown --wait 3600 --owner-pid $$ --loss "$loss" \
        ${up_options[@]+"${up_options[@]}"}
    up_time=$(seconds "$start" "$(now)")
    per_controller=$(python3 -c 'import sys; print("%.2f" % ((float(sys.argv[1]) - float(sys.argv[2])) / 1024 / float(sys.argv[3])))' \
        "$available_before" "$(available_kib)" "$count")

    out=$(mktemp)
    err=$(mktemp)
    start=$(now)
    status=0
    read -r -a options <<<"${options_template//COUNT/$count}"
    nsenter --net="/run/netns/lcfdsb.$sandbox.tool" -- "$lcf_binary" discover --json \
        ${options[@]+"${options[@]}"} >"$out" 2>"$err" || status=$?
    discover_time=$(seconds "$start" "$(now)")
    probes=$(grep -o 'probed [a-z0-9]*' "$err" | head -n 1 | sed 's/probed //')

    verdict=$(python3 - "$count" "$out" <<'EOF'
import json, sys
count, path = int(sys.argv[1]), sys.argv[2]
platforms = ("arm9", "imx", "qmt", "generic", "unknown")
found = json.load(open(path))
macs = [c["mac"] for c in found]
problems = []
if len(set(macs)) != len(macs):
    problems.append("duplicates")
for k in range(1, count + 1):
    mac = "02:4C:43:00:%02X:%02X" % (k >> 8, k & 0xFF)
    match = [c for c in found if c["mac"] == mac]
    ip = "198.18.%d.%d" % ((k - 1) // 250, (k - 1) % 250 + 1)
    host = "%s-%03d" % (platforms[(k - 1) % 5], k)
    if not match:
        problems.append("controller %d missing" % k)
    elif match[0].get("ip") != ip or match[0].get("hostname") != host:
        problems.append("controller %d wrong: %s %s" % (k, match[0].get("ip"), match[0].get("hostname")))
print("complete" if not problems else "INCOMPLETE (%d found; %s)" % (len(found), ", ".join(problems[:5])))
EOF
)
    applied=""
    if [ "${LCF_SCALE_APPLY:-0}" = 1 ]; then
        plan=$(mktemp --suffix=.csv)
        python3 - "$out" >"$plan" <<'EOF'
import json, sys
print("mac,ip")
for c in json.load(open(sys.argv[1])):
    a, b, third, fourth = c["ip"].split(".")
    print("%s,%s.%s.%d.%s" % (c["mac"], a, b, int(third) + 100, fourth))
EOF
        start=$(now)
        apply_status=0
        nsenter --net="/run/netns/lcfdsb.$sandbox.tool" -- "$lcf_binary" apply "$plan" \
            >"$err" 2>&1 || apply_status=$?
        applied=$(printf '; lcf apply of %d new addresses: exit %d in %s s' \
            "$(($(wc -l <"$plan") - 1))" "$apply_status" "$(seconds "$start" "$(now)")")
        tail -n 8 "$err"
        rm -f "$plan"
        [ "$apply_status" = 0 ] || failed=1
    fi
    rm -f "$out" "$err"
    printf '%d controllers, %d %% loss, up %s: up %s s, %s MB each; lcf discover --json %s: %s in %s s (probes: %s), exit %d%s\n' \
        "$count" "$loss" "${up_options[*]-}" "$up_time" "$per_controller" "${options[*]+${options[*]}}" "$verdict" \
        "$discover_time" "$probes" "$status" "$applied"
    [ "$verdict" = complete ] && [ "$status" = 0 ] || failed=1
    "$sandbox_tool" -n "$sandbox" down
done
exit "$failed"
