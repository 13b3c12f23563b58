#!/usr/bin/env bash
# Reports, for each ELF program given, the highest C library (GLIBC_) and C++ library
# (GLIBCXX_) symbol versions it needs from the machine it runs on: the oldest glibc and
# libstdc++ a board must have. Reads the file's version-needs section only, so it works on a
# board's program on the build machine. A program linked fully statically needs neither.
#   scripts/glibc-needs.sh build-armel/src/main/lcfd build-armel/client/lcf
# prints one line per file: "FILE GLIBC_2.34 -" ("-": nothing needed of that library).
set -euo pipefail
if [ "$#" = 0 ]; then
    echo "usage: glibc-needs.sh ELF-FILE..." >&2
    exit 2
fi
highest() {  # highest PREFIX_x.y[.z] among the version names on standard input, or "-"
    grep -oE "\\b$1_[0-9]+(\\.[0-9]+)*\\b" | sort -u -V | tail -n 1 | grep . || echo -
}
for file in "$@"; do
    if ! needs=$(LC_ALL=C readelf --version-info --wide "$file" 2>/dev/null); then
        echo "glibc-needs: $file: not an ELF file" >&2
        exit 1
    fi
    # Only the needs ("Version needs section"), not the versions a library defines.
    needs=$(sed -n '/Version needs section/,$p' <<<"$needs")
    printf '%s %s %s\n' "$file" "$(highest GLIBC <<<"$needs")" "$(highest GLIBCXX <<<"$needs")"
done
