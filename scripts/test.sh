#!/usr/bin/env bash
# Builds lcfd and every test, then runs the whole suite (unit and end-to-end) with CTest,
# followed by the robustness checks: the board builds (armel, armhf, aarch64) with their unit
# tests and the armel daemon's end-to-end subset under emulation, the Buildroot package built
# for armel, the Debian packages built, installed and removed, the sanitizer build, static
# analysis and short fuzzing runs. Run as root on Debian: the end-to-end tests build network
# and mount namespaces. LCFD_QUICK=1 stops after the main suite.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
source scripts/suites.sh
quick=${LCFD_QUICK:-0}
# Everything at once, before any stage starts: the board builds run beside other stages, and
# two package installations cannot run side by side.
packages=("${LCFD_BUILD_PACKAGES[@]}")
if [ "$quick" != 1 ]; then
    packages+=("${LCFD_CROSS_PACKAGES[@]}" "${LCFD_CROSS_COMPILER_PACKAGE[@]}"
               "${LCFD_ANALYSIS_PACKAGES[@]}" "${LCFD_FUZZ_PACKAGES[@]}"
               "${LCFD_PACKAGING_PACKAGES[@]}")
fi
lcfd_install_missing "${packages[@]}"

stage() { printf '\n==== %s (%d s)\n' "$1" "$SECONDS"; }

build_dir=${LCFD_BUILD_DIR:-build}
stage "build with warnings as errors"
# Nothing of this build is installed (the packaging stages install their own builds).
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLCFD_WERROR=ON -DLCFD_INSTALL=OFF
cmake --build "$build_dir" -j"$(nproc)"

# One job more than there are cores: the end-to-end tests spend much of their time waiting
# for the daemons.
test_jobs=$(($(nproc) + 1))
stage "end-to-end tests of twenty controllers, alone on the machine"
ctest --test-dir "$build_dir" --output-on-failure -j"$test_jobs" -R "$LCFD_SCALE_TESTS"

# The board builds are compiling, the other tests mostly wait for daemons and pauses: the
# boards build and run their unit tests beside the stages that follow, at the lowest priority,
# so that they take only what the tests leave of the processors. Their output is shown when
# they are done (or failed).
cross_log=$build_dir/cross.log
cross_pid=""
if [ "$quick" != 1 ]; then
    # The fully static daemon of armel only: it is the one run end to end below. The Buildroot
    # package's build is an armel build too.
    setsid nice -n 19 bash -c 'bash scripts/cross.sh --static armel && bash scripts/cross.sh armhf aarch64 &&
                               bash scripts/check-buildroot-package.sh' \
        >"$cross_log" 2>&1 &
    cross_pid=$!
fi
finish_boards() {
    if [ -n "$cross_pid" ] && ! wait "$cross_pid"; then
        cat "$cross_log"
        echo "test.sh: the board builds failed (above)" >&2
        exit 1
    fi
    cross_pid=""
}
# Its own process group (setsid): stopped whole if this script ends first.
trap '[ -z "$cross_pid" ] || kill -- "-$cross_pid" 2>/dev/null || true' EXIT

stage "unit and end-to-end tests"
ctest --test-dir "$build_dir" --output-on-failure -j"$test_jobs" -E "$LCFD_SCALE_TESTS"

if [ "$quick" = 1 ]; then
    exit 0
fi

stage "scripts/check-sanitizers.sh"
bash scripts/check-sanitizers.sh

stage "scripts/check-debian-package.sh"
bash scripts/check-debian-package.sh

stage "boards: armel, armhf, aarch64 and the Buildroot package (built and tested beside the stages above)"
finish_boards
grep -E '^== |tests passed|cross.sh:|check-deployable:|check-buildroot|: ELF ' "$cross_log"  # all of it: $cross_log
stage "boards: the armel daemon, dynamic and fully static, end to end under qemu-arm"
bash scripts/cross.sh --e2e-only --static armel

for stage_script in scripts/check-static-analysis.sh fuzz/run-smoke.sh; do
    stage "$stage_script"
    bash "$stage_script"
done
stage "all checks passed"
