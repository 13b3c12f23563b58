#!/usr/bin/env bash
# lcf links the wire library and nothing of the daemon: no shell runner, no syslog, no
# settings record may be found in it.
set -euo pipefail
binary=$1
found=$(nm -C "$binary" | grep -E 'popen|openlog|syslog|Settings' || true)
if [ -n "$found" ]; then
    echo "$binary carries what belongs to the daemon:" >&2
    echo "$found" >&2
    exit 1
fi
echo "$binary: no popen, openlog, syslog or Settings"
