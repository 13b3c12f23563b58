#!/usr/bin/env bash
# Builds lcfd and lcf for the boards and tests them as far as this machine can, each target
# with its CMake preset (CMakePresets.json, cmake/toolchains/):
#   armel    ARMv5TE, soft float   arm-linux-gnueabi     ("arm9" boards)
#   armhf    ARMv7, hard float     arm-linux-gnueabihf
#   aarch64  64-bit ARM            aarch64-linux-gnu
# For each target: configure, build, and every unit test under qemu-user (ctest --preset),
# including the checks of what was linked (hardening, deployment); then `file` must name the
# target's architecture.
#
#   --e2e     then runs the board's daemon on the namespaced bed, under its emulator: the
#             end-to-end subset below, driven by the build machine's end-to-end tests in
#             build/ (built first when missing). Needs root.
#   --static  also builds the fully static daemon (preset TARGET-static) and, with --e2e, runs
#             the same subset with it.
#   --e2e-only  only the end-to-end subset, with the builds already made.
#   --jobs N  parallel compile and test jobs (default: the number of cores).
# The build machine's build is build/, or $LCFD_BUILD_DIR.
# Usage: scripts/cross.sh [--e2e|--e2e-only] [--static] [--jobs N] [TARGET...]
#        (default: all three targets)
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

# The end-to-end tests a board's daemon runs under emulation: the STATUS of every platform, an
# ASSIGN with its command lines and the settling pause, a CLEAR, every output stream through
# a whole session, the hand-built frame on an interface other than br0, a flood of datagrams
# for other controllers. Small enough for every CI run; each one is a whole exchange.
readonly ARM_E2E_TESTS='^e2e\.(Query\.EachPlatformReportsItsDeviceValues|AssignPause\..*|Configure\.ClearRunsEachPlatformsCommands|PlatformSession\..*|ReplyPath\.OtherInterfaceSendsTheHandBuiltFrame|Robustness\.FloodOfDatagramsNotForThisController)$'

e2e=0
build_targets=1
static=0
host_build=${LCFD_BUILD_DIR:-build}
jobs=$(nproc)
targets=()
while [ "$#" -gt 0 ]; do
    case "$1" in
    --e2e) e2e=1 ;;
    --e2e-only) e2e=1; build_targets=0 ;;
    --static) static=1 ;;
    --jobs) jobs=${2:?--jobs needs a number}; shift ;;
    armel | armhf | aarch64) targets+=("$1") ;;
    *) echo "usage: cross.sh [--e2e|--e2e-only] [--static] [--jobs N] [armel|armhf|aarch64]..." >&2
       exit 2 ;;
    esac
    shift
done
[ "${#targets[@]}" -gt 0 ] || targets=(armel armhf aarch64)

packages=("${LCFD_CROSS_PACKAGES[@]}")
for target in "${targets[@]}"; do
    packages+=("${LCFD_CROSS_COMPILER_PACKAGE[$target]}")
done
if [ "$e2e" = 1 ]; then
    packages+=("${LCFD_BUILD_PACKAGES[@]}")
fi
lcfd_install_missing "${packages[@]}"

step() { printf '\n== %s\n' "$*"; }

# What `file` says of a program of the target.
architecture_of() {
    case "$1" in
    armel | armhf) echo "ARM, EABI5" ;;
    aarch64) echo "ARM aarch64" ;;
    esac
}

check_architecture() {  # TARGET FILE...
    local target=$1 expected description
    expected=$(architecture_of "$target")
    shift
    for program in "$@"; do
        description=$(file -b "$program")
        echo "$program: $description"
        if [[ "$description" != *"$expected"* ]]; then
            echo "cross.sh: $program is not an $expected program" >&2
            return 1
        fi
    done
}

# The emulator's command line, as the target's toolchain file gave it to CMake.
emulator_of() {  # BUILD-DIR
    sed -n 's/^LCFD_LAUNCHER:INTERNAL=//p' "$1/CMakeCache.txt"
}

run_e2e_subset() {  # BUILD-DIR (of the daemon to run)
    local daemon="$PWD/$1/src/main/lcfd"
    local prefix
    prefix=$(emulator_of "$1")
    step "end-to-end subset: $daemon under $prefix"
    LCFD_E2E_LCFD="$daemon" LCFD_E2E_LCFD_PREFIX="$prefix" \
        ctest --test-dir "$host_build" -L e2e -R "$ARM_E2E_TESTS" -j"$((jobs + 1))" --output-on-failure \
        --no-tests=error
}

for target in "${targets[@]}"; do
    [ "$build_targets" = 1 ] || break
    started=$SECONDS
    step "$target: configure, build"
    cmake --preset "$target" >/dev/null
    cmake --build --preset "$target" -j"$jobs"
    check_architecture "$target" "build-$target/src/main/lcfd" "build-$target/client/lcf"
    step "$target: unit tests under $(emulator_of "build-$target")"
    ctest --preset "$target" -j"$((jobs + 1))"
    if [ "$static" = 1 ]; then
        step "$target: the fully static daemon"
        cmake --preset "$target-static" >/dev/null
        cmake --build --preset "$target-static" -j"$jobs" --target lcfd
        check_architecture "$target" "build-$target-static/src/main/lcfd"
        bash scripts/check-deployable.sh --static "build-$target-static/src/main/lcfd"
    fi
    echo "cross.sh: $target built and tested in $((SECONDS - started)) s"
done

if [ "$e2e" = 1 ]; then
    if [ ! -x "$host_build/tests/e2e/lcfd_e2e_tests" ]; then
        step "the build machine's end-to-end tests"
        cmake -S . -B "$host_build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
        cmake --build "$host_build" -j"$jobs" --target lcfd_e2e_tests lcf lcfd
    fi
    for target in "${targets[@]}"; do
        run_e2e_subset "build-$target"
        if [ "$static" = 1 ]; then
            run_e2e_subset "build-$target-static"
        fi
    done
fi
echo "cross.sh: ${targets[*]}: all passed"
