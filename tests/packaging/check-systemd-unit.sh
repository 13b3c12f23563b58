#!/usr/bin/env bash
# Checks the service unit as systemd reads it: `systemd-analyze verify` with ExecStart= pointing
# at the daemon just built and the manual page it names, and no finding at all. Then the
# restrictions the device tools cannot live with stay out, and the ones they need stay in.
# Usage: check-systemd-unit.sh UNIT LCFD MANPAGE
set -euo pipefail
unit=$1 lcfd=$2 manpage=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

packaged_exec='ExecStart=/usr/sbin/lcfd'
[ "$(grep -c -x -F "$packaged_exec" "$unit")" = 1 ] ||
    { echo "$unit: expected exactly one line \"$packaged_exec\"" >&2; exit 1; }
sed "s#^$packaged_exec\$#ExecStart=$lcfd#" "$unit" >"$work/lcfd.service"
mkdir -p "$work/man/man8"
cp "$manpage" "$work/man/man8/lcfd.8"
findings=$(cd "$work" && MANPATH="$work/man" systemd-analyze verify lcfd.service 2>&1) || {
    echo "$findings"
    echo "systemd-analyze verify failed" >&2
    exit 1
}
if [ -n "$findings" ]; then
    echo "$findings"
    echo "systemd-analyze verify had findings" >&2
    exit 1
fi

# Settings, comments aside.
settings=$(grep -v -E '^[[:space:]]*(#|;|$)' "$unit")
status=0
for option in ProtectClock ProtectHostname ProtectSystem ProtectHome NoNewPrivileges \
              PrivateDevices PrivateTmp ProtectKernelTunables ProtectProc SystemCallFilter \
              CapabilityBoundingSet User DynamicUser MemoryDenyWriteExecute PrivateNetwork; do
    if grep -q -E "^$option=" <<<"$settings"; then
        echo "$unit: $option= would bind the device tools the daemon runs" >&2
        status=1
    fi
done
families=$(sed -n 's/^RestrictAddressFamilies=//p' <<<"$settings")
for family in AF_UNIX AF_INET AF_NETLINK AF_PACKET; do
    if ! grep -q -w "$family" <<<"$families"; then
        echo "$unit: RestrictAddressFamilies= must keep $family" >&2
        status=1
    fi
done
for required in Type=exec Restart=always MemoryMax=32M After=network-online.target; do
    grep -q -x -F "$required" <<<"$settings" || { echo "$unit: missing $required" >&2; status=1; }
done
exit "$status"
