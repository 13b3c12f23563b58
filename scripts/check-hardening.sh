#!/usr/bin/env bash
# Checks that a release build of a program carries the hardening the build asks for:
# a position-independent executable, full RELRO (GNU_RELRO segment and BIND_NOW), the stack
# protector (__stack_chk_fail), fortified libc calls (__*_chk), and the control-flow protection
# of its architecture: x86-64 marks branch targets (endbr64 at the start of main), 64-bit ARM
# signs return addresses (paciasp in main), 32-bit ARM has none to check.
# Reads the file only, so it checks a board's program on the build machine just the same.
# Usage: check-hardening.sh FILE
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

# The first instructions of main, as any objdump reads them (binutils-multiarch is not needed:
# the instruction words are compared as bytes, in the file's own byte order).
machine=$(sed -n 's/^ *Machine: *//p' <<<"$header")
main_opening() {
    local address type offset vaddr paddr filesz rest
    address=$(readelf -sW "$file" | awk '$8 == "main" { print $2; exit }')
    [ -n "$address" ] || return 1
    # The file offset of main: its address within the loadable segment that holds it.
    while read -r type offset vaddr paddr filesz rest; do
        [ "$type" = LOAD ] || continue
        if ((16#$address >= vaddr && 16#$address < vaddr + filesz)); then
            od -An -tx1 -v -j $((16#$address - vaddr + offset)) -N 8 "$file" | tr -d ' \n'
            return 0
        fi
    done < <(readelf -lW "$file")
    return 1
}
case "$machine" in
*X86-64*)
    # endbr64 is f3 0f 1e fa.
    check "branch targets marked (endbr64 at main)" \
        bash -c '[[ "$1" == f30f1efa* ]]' _ "$(main_opening || true)"
    ;;
*AArch64*)
    # paciasp is d503233f, little-endian in the file; bti c (d503245f) may come first.
    check "return addresses signed (paciasp in main)" \
        bash -c '[[ "$1" == 3f2303d5* || "$1" == 5f2403d53f2303d5* ]]' _ "$(main_opening || true)"
    ;;
*ARM*)
    echo "n/a     control-flow protection (none on 32-bit ARM)"
    ;;
*)
    echo "n/a     control-flow protection (not known for $machine)"
    ;;
esac

if [ "$failed" != 0 ]; then
    echo "check-hardening: $file is missing hardening" >&2
    exit 1
fi
echo "check-hardening: $file: all hardening present"
