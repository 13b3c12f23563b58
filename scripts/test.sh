#!/usr/bin/env bash
# Builds lcfd and every test, then runs the whole suite (unit and end-to-end) with CTest,
# followed by the robustness checks that exist: the sanitizer build, static analysis and
# short fuzzing runs. Run as root on Debian: the end-to-end tests build network and mount
# namespaces. LCFD_QUICK=1 stops after the main suite.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
lcfd_install_missing "${LCFD_BUILD_PACKAGES[@]}"

stage() { printf '\n==== %s\n' "$*"; }

build_dir=${LCFD_BUILD_DIR:-build}
stage "build with warnings as errors, unit and end-to-end tests"
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLCFD_WERROR=ON
cmake --build "$build_dir" -j"$(nproc)"
# One job more than there are cores: the end-to-end tests spend much of their time waiting
# for the daemons.
ctest --test-dir "$build_dir" --output-on-failure -j"$(($(nproc) + 1))"

if [ "${LCFD_QUICK:-0}" = 1 ]; then
    exit 0
fi

# Each further stage is a script of its own; a stage that is not there yet is skipped.
for stage_script in scripts/check-sanitizers.sh scripts/check-static-analysis.sh fuzz/run-smoke.sh; do
    if [ -f "$stage_script" ]; then
        stage "$stage_script"
        bash "$stage_script"
    fi
done
stage "all checks passed"
