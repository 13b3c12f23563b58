#!/usr/bin/env bash
# Checks that a program built for a board needs nothing of it but the C library: no shared
# library besides libc, libm and the dynamic loader, and no libstdc++ symbol version (libstdc++
# and libgcc are linked in). With --static: no shared library at all, no dynamic loader. With
# --max-glibc X.Y: no C library symbol version newer than the oldest glibc the README promises.
# Usage: check-deployable.sh [--static] [--max-glibc X.Y] FILE
set -euo pipefail
static=0
max_glibc=""
while [ "$#" -gt 1 ]; do
    case "$1" in
    --static) static=1 ;;
    --max-glibc) max_glibc=${2:?--max-glibc needs a version}; shift ;;
    *) break ;;
    esac
    shift
done
file=${1:?usage: check-deployable.sh [--static] [--max-glibc X.Y] FILE}
needed=$(readelf -dW "$file" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
read -r _ glibc glibcxx < <(bash "$(dirname "$0")/glibc-needs.sh" "$file")
failed=0
if [ "$static" = 1 ]; then
    if [ -n "$needed" ] || readelf -lW "$file" | grep -q "INTERP"; then
        echo "check-deployable: $file is not static: needs ${needed:-a dynamic loader}" >&2
        failed=1
    fi
else
    unexpected=$(grep -vE '^(libc\.so\.6|libm\.so\.6|ld-linux[-a-z0-9_.]*\.so\.[0-9]+)$' \
        <<<"$needed" || true)
    if [ -n "$unexpected" ]; then
        echo "check-deployable: $file needs more than the C library:" $unexpected >&2
        failed=1
    fi
    if [ "$glibcxx" != - ]; then
        echo "check-deployable: $file needs libstdc++ $glibcxx" >&2
        failed=1
    fi
    if [ -n "$max_glibc" ] && [ "$glibc" != - ] &&
        [ "$(printf '%s\n' "GLIBC_$max_glibc" "$glibc" | sort -V | tail -n 1)" != "GLIBC_$max_glibc" ]; then
        echo "check-deployable: $file needs $glibc, newer than glibc $max_glibc" >&2
        failed=1
    fi
fi
if [ "$failed" != 0 ]; then
    exit 1
fi
if [ "$static" = 1 ]; then
    echo "check-deployable: $file is fully static"
else
    echo "check-deployable: $file needs ${needed//$'\n'/, } (symbol versions up to $glibc)"
fi
