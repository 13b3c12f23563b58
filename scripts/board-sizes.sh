#!/usr/bin/env bash
# What each board's programs cost: the stripped size of lcfd and lcf, and the newest C and C++
# library symbol versions they need (scripts/glibc-needs.sh), for three ways of linking:
#   - libstdc++ and libgcc linked in (the targets' default: needs only the C library);
#   - libstdc++ shared (as a plain cross build would link it);
#   - lcfd fully static (needs nothing of the board).
# Builds what is missing in build-TARGET, build-TARGET-static and build-TARGET-shared-runtime
# (programs only), then prints a Markdown table for docs/performance.md ("Board programs").
# Usage: scripts/board-sizes.sh [TARGET...]   (default: armel armhf aarch64)
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
targets=("$@")
[ "${#targets[@]}" -gt 0 ] || targets=(armel armhf aarch64)
packages=("${LCFD_CROSS_PACKAGES[@]}")
for target in "${targets[@]}"; do
    packages+=("${LCFD_CROSS_COMPILER_PACKAGE[$target]}")
done
lcfd_install_missing "${packages[@]}"

jobs=$(nproc)
build_programs() {  # BUILD-DIR CONFIGURE-ARGUMENTS... (builds lcfd and lcf)
    local dir=$1
    shift
    cmake "$@" >/dev/null
    cmake --build "$dir" -j"$jobs" --target lcfd lcf >/dev/null
}
stripped_size() {  # TARGET FILE
    local copy
    copy=$(mktemp)
    "$(sed -n 's/^CMAKE_STRIP:FILEPATH=//p' "build-$1/CMakeCache.txt")" -o "$copy" "$2"
    stat -c %s "$copy"
    rm -f "$copy"
}
needs() {  # FILE: "GLIBC_x, GLIBCXX_y" as scripts/glibc-needs.sh reads them
    local glibc glibcxx
    read -r _ glibc glibcxx < <(bash scripts/glibc-needs.sh "$1")
    if [ "$glibc" = - ] && [ "$glibcxx" = - ]; then
        echo "nothing (static)"
    elif [ "$glibcxx" = - ]; then
        echo "$glibc"
    else
        echo "$glibc, $glibcxx"
    fi
}

rows=()
for target in "${targets[@]}"; do
    echo "== $target" >&2
    build_programs "build-$target" --preset "$target"
    build_programs "build-$target-static" --preset "$target-static"
    build_programs "build-$target-shared-runtime" --preset "$target" \
        -B "build-$target-shared-runtime" -DLCFD_STATIC_CXX_RUNTIME=OFF -DLCFD_BUILD_TESTS=OFF
    linked_in=("build-$target/src/main/lcfd" "build-$target/client/lcf")
    shared=("build-$target-shared-runtime/src/main/lcfd" "build-$target-shared-runtime/client/lcf")
    static_lcfd="build-$target-static/src/main/lcfd"
    rows+=("| $target | $(stripped_size "$target" "${linked_in[0]}") | $(stripped_size "$target" "${linked_in[1]}") | $(needs "${linked_in[0]}") | $(needs "${linked_in[1]}") | $(stripped_size "$target" "${shared[0]}") | $(stripped_size "$target" "${shared[1]}") | $(needs "${shared[0]}") | $(needs "${shared[1]}") | $(stripped_size "$target" "$static_lcfd") | $(needs "$static_lcfd") |")
done

echo "| target | lcfd | lcf | lcfd needs | lcf needs | lcfd (shared libstdc++) | lcf (shared libstdc++) | lcfd needs | lcf needs | lcfd static | static needs |"
echo "|---|---:|---:|---|---|---:|---:|---|---|---:|---|"
printf '%s\n' "${rows[@]}"
