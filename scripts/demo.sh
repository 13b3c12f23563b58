#!/usr/bin/env bash
# The main job: lcfd on a simulated segment of controllers, found and configured with lcf.
# Builds lcfd and lcf, starts six controllers of mixed platforms (each an lcfd in its own
# network and mount namespace), discovers them, moves one to a new address and verifies it,
# discovers again, commissions the whole segment from a plan (export, edit, dry run, apply,
# apply again), and tears everything down. Meanwhile lcf watch, on a second tool host, shows
# every request and reply that passed. Run as root on Debian.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
lcfd_install_missing "${LCFD_BUILD_PACKAGES[@]}"

build_dir=${LCFD_BUILD_DIR:-build}
sandbox=demo
sandbox_tool=tools/lcfd-sandbox

step() { printf '\n== %s\n' "$*"; }
show() { printf '$ %s\n' "$*"; "$@"; }

step "building lcfd and lcf"
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build_dir" -j"$(nproc)" --target lcfd lcf
lcfd_binary=$build_dir/src/main/lcfd
lcf_binary=$(realpath "$build_dir/client/lcf")
"$lcfd_binary" --version

trap '"$sandbox_tool" -n "$sandbox" down >/dev/null 2>&1 || true' EXIT
"$sandbox_tool" -n "$sandbox" down >/dev/null 2>&1 || true

step "starting a segment of six controllers: arm9, imx, qmt, a generic board, arm9, imx"
show "$sandbox_tool" -n "$sandbox" up --lcfd "$lcfd_binary" --count 6 \
    --platforms arm9,imx,qmt,generic --tool-hosts 2
"$sandbox_tool" -n "$sandbox" status

step "lcf watch on a second tool host, listening to everything said on the segment"
watched=$(mktemp --suffix=.watch)
trap '"$sandbox_tool" -n "$sandbox" down >/dev/null 2>&1 || true; rm -f "$watched"' EXIT
echo "\$ $sandbox_tool -n $sandbox exec --tool-host 2 -- $lcf_binary watch > $watched &"
"$sandbox_tool" -n "$sandbox" exec --tool-host 2 -- "$lcf_binary" watch >"$watched" &
watch_job=$!
# Listening once its socket is on the port (sockets of the port in /proc/net/udp, as hex 1C31).
for _ in $(seq 100); do
    "$sandbox_tool" -n "$sandbox" exec --tool-host 2 -- grep -q ':1C31 ' /proc/net/udp && break
    sleep 0.1
done

in_tool() { show "$sandbox_tool" -n "$sandbox" exec -- "$@"; }

step "discovering every controller from the tool host"
in_tool "$lcf_binary" discover

target=$("$sandbox_tool" -n "$sandbox" exec -- "$lcf_binary" discover --json --expect 6 2>/dev/null |
    python3 -c 'import json,sys; print([c["mac"] for c in json.load(sys.stdin) if c["hostname"].startswith("qmt")][0])')
step "reading every setting of the qmt controller $target"
in_tool "$lcf_binary" query "$target"

step "moving $target to 198.19.0.50 (outside the tool's subnet) with a new gateway and the host's clock, verified"
# The controller acknowledges, applies, settles for five seconds, and is read again.
in_tool "$lcf_binary" assign "$target" ip=198.19.0.50 netmask=255.255.0.0 gateway=198.19.0.1 --now --verify

step "discovering again: the controller reports its new address, flagged as outside the subnet"
in_tool "$lcf_binary" discover

step "commissioning: the segment exported as a plan"
plan=$(mktemp --suffix=.csv)
trap '"$sandbox_tool" -n "$sandbox" down >/dev/null 2>&1 || true; rm -f "$plan" "$watched"' EXIT
"$sandbox_tool" -n "$sandbox" exec -- "$lcf_binary" discover --csv --expect 6 2>/dev/null >"$plan"
cat "$plan"

step "the plan edited: every controller to 198.18.1.K, inside the subnet again, gateway 198.18.255.2"
awk -F, -v OFS=, 'NR == 1 { print; next }
    { split($10, name, "-"); $2 = "198.18.1." (name[2] + 0); $3 = "255.255.0.0"; $4 = "198.18.255.2"; print }' \
    "$plan" >"$plan.edited" && mv "$plan.edited" "$plan"
cat "$plan"
in_tool "$lcf_binary" apply "$plan" --dry-run

step "applying it: each controller that differs gets what differs, settles, and is read again"
in_tool "$lcf_binary" apply "$plan"

step "applying it again: nothing left to change"
in_tool "$lcf_binary" apply "$plan"
rm -f "$plan"

step "the commands the controller ran for those changes (the clock is set once more after the address)"
target_id=$("$sandbox_tool" -n "$sandbox" status | awk -v mac="$target" 'tolower($0) ~ tolower(mac) { print $1; exit }')
"$sandbox_tool" -n "$sandbox" logs "$target_id" shell | sed 's/^[0-9]*://' |
    grep -a -e 'tarnsetup set' -e 'date -u -s' || true

step "what lcf watch saw on the second tool host: every request and reply, each reply paired"
pkill -TERM -f "^$lcf_binary watch" || true
wait "$watch_job" || true
echo "$(wc -l <"$watched") datagrams; the first probe of the first discovery with its answers, and the ASSIGNs to $target with their ACKs:"
awk '/ QUERY /{ queries++ } queries <= 1' "$watched"
grep -a -e "mac=$target" "$watched" | grep -a -e ' ASSIGN ' -e ' ACK ' | head -n 4
rm -f "$watched"

step "tearing the segment down"
show "$sandbox_tool" -n "$sandbox" down
trap - EXIT
echo "done: nothing left running"
