#!/usr/bin/env bash
# The scale figure of lcf: how many simulated controllers one `lcf discover` finds completely,
# and how long it takes until the last one has answered. Not part of the test suite (a few
# hundred controllers take minutes to start); run it by hand, as root, after a build:
#
#   sudo bash scripts/scale-discovery.sh            # 200 controllers
#   sudo bash scripts/scale-discovery.sh 50 200 300 # one run per count
#
# Each run starts COUNT controllers of mixed platforms (arm9, imx, qmt, generic, unknown) on
# one sandboxed segment, runs `lcf discover --json` on the tool side, checks that
# every controller is in the answer exactly once with its own address and host name, prints one
# line of figures and tears the segment down. Exit status 1 when any run missed a controller.
#
# Settings (environment): LCFD_BUILD_DIR (default build); LCF_SCALE_OPTIONS, the discover
# options (default "--expect COUNT --timeout 60": return once all have answered; "" measures
# the plain `lcf discover`); LCF_SCALE_SANDBOX (sandbox name, default scale).
set -euo pipefail
cd "$(dirname "$0")/.."

build_dir=${LCFD_BUILD_DIR:-build}
options_template=${LCF_SCALE_OPTIONS---expect COUNT --timeout 60}
sandbox=${LCF_SCALE_SANDBOX:-scale}
sandbox_tool=tools/lcfd-sandbox
lcfd_binary=$build_dir/src/main/lcfd
lcf_binary=$(realpath "$build_dir/client/lcf")
counts=("$@")
[ ${#counts[@]} -gt 0 ] || counts=(200)

for binary in "$lcfd_binary" "$lcf_binary"; do
    [ -x "$binary" ] || { echo "scale: $binary is missing: build first" >&2; exit 1; }
done

now() { date +%s.%N; }
seconds() { python3 -c 'import sys; print("%.1f" % (float(sys.argv[2]) - float(sys.argv[1])))' "$@"; }

trap '"$sandbox_tool" -n "$sandbox" down >/dev/null 2>&1 || true' EXIT
failed=0
for count in "${counts[@]}"; do
    start=$(now)
    "$sandbox_tool" -n "$sandbox" up --lcfd "$lcfd_binary" --count "$count" \
        --platforms arm9,imx,qmt,generic,unknown --wait 600 --owner-pid $$
    up_time=$(seconds "$start" "$(now)")

    out=$(mktemp)
    start=$(now)
    status=0
    read -r -a options <<<"${options_template//COUNT/$count}"
    nsenter --net="/run/netns/lcfdsb.$sandbox.tool" -- "$lcf_binary" discover --json \
        ${options[@]+"${options[@]}"} >"$out" || status=$?
    discover_time=$(seconds "$start" "$(now)")

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
    rm -f "$out"
    printf '%d controllers: up %s s; lcf discover --json %s: %s in %s s, exit %d\n' \
        "$count" "$up_time" "${options[*]+${options[*]}}" "$verdict" "$discover_time" "$status"
    [ "$verdict" = complete ] && [ "$status" = 0 ] || failed=1
    "$sandbox_tool" -n "$sandbox" down
done
exit "$failed"
