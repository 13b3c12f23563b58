#!/usr/bin/env bash
# Checks that a release build of a program carries the hardening the build asks for:
# a position-independent executable, full RELRO (GNU_RELRO segment and BIND_NOW), the stack
# protector (__stack_chk_fail) and fortified libc calls (__*_chk). Usage: check-hardening.sh FILE
set -euo pipefail
file=${1:?usage: check-hardening.sh FILE}
failed=0
check() {
    local what=$1
    shift
    if "$@" >/dev/null; then
        printf 'ok      %s\n' "$what"
    else
        printf 'MISSING %s\n' "$what"
        failed=1
    fi
}
header=$(readelf -hW "$file")
dynamic=$(readelf -dW "$file")
segments=$(readelf -lW "$file")
symbols=$(readelf --dyn-syms -W "$file")
check "PIE (ELF type DYN, FLAGS_1 PIE)" \
    bash -c 'grep -q "Type:.*DYN" <<<"$1" && grep -q "FLAGS_1.*PIE" <<<"$2"' _ "$header" "$dynamic"
check "BIND_NOW" grep -Eq "BIND_NOW|FLAGS_1.*NOW" <<<"$dynamic"
check "GNU_RELRO segment" grep -q "GNU_RELRO" <<<"$segments"
check "stack protector (__stack_chk_fail)" grep -q "__stack_chk_fail" <<<"$symbols"
check "fortified calls (__*_chk)" grep -Eq "__[a-z_]+_chk@" <<<"$symbols"
if [ "$failed" != 0 ]; then
    echo "check-hardening: $file is missing hardening" >&2
    exit 1
fi
echo "check-hardening: $file: all hardening present"
