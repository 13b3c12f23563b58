#!/usr/bin/env bash
# The static analysis stage: clang-tidy (.clang-tidy, tests/.clang-tidy) and cppcheck over every
# translation unit of lcfd, lcf, the tests, the benchmarks and the fuzz targets, as the build
# compiles them. Any finding of either fails the stage.
#
# The compilation database comes from a clang configuration of its own (build-analysis, only
# configured, never built), so that clang-tidy sees clang's view of the build's warning flags
# and the fuzz targets are in it. clang-tidy keeps a cache of the units it found clean (see
# scripts/run-clang-tidy.py); LCFD_TIDY_NO_CACHE=1 analyses everything.
#
# The test sources are held to the same checks, but clang-tidy spends most of its time on
# them (each parses the whole of GoogleTest), so the stage analyses them only with
# LCFD_TIDY_TESTS=1; cppcheck always covers them.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
lcfd_install_missing "${LCFD_BUILD_PACKAGES[@]}" "${LCFD_ANALYSIS_PACKAGES[@]}"

build_dir=build-analysis
jobs=$(nproc)
started=$SECONDS
CC=clang CXX=clang++ cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DLCFD_WERROR=ON -DLCFD_BUILD_FUZZERS=ON -DLCFD_BUILD_BENCHMARKS=ON >/dev/null

failed=0
tidy_options=(-p "$build_dir" -j "$jobs")
if [ "${LCFD_TIDY_NO_CACHE:-0}" = 1 ]; then
    tidy_options+=(--no-cache)
fi
if [ "${LCFD_TIDY_TESTS:-0}" != 1 ]; then
    tidy_options+=(--dirs src client bench fuzz)
fi
echo "== clang-tidy"
python3 scripts/run-clang-tidy.py "${tidy_options[@]}" || failed=1
tidy_done=$SECONDS

echo "== cppcheck"
mkdir -p "$build_dir/cppcheck"
cppcheck_log="$build_dir/cppcheck.log"
if ! cppcheck --project="$build_dir/compile_commands.json" \
    --enable=warning,style,performance,portability --inline-suppr --error-exitcode=1 \
    --library=googletest --library=gnu --suppressions-list=scripts/cppcheck-suppressions.txt \
    --suppress='*:/usr/*' --cppcheck-build-dir="$build_dir/cppcheck" -j "$jobs" --quiet \
    --template='{file}:{line}:{column}: {severity}: {message} [{id}]' 2>"$cppcheck_log"; then
    failed=1
fi
cat "$cppcheck_log"
cppcheck_findings=$(grep -c ': \(error\|warning\|style\|performance\|portability\): ' \
    "$cppcheck_log" || true)
echo "cppcheck: $cppcheck_findings findings in $((SECONDS - tidy_done)) s"

echo "check-static-analysis: clang-tidy $((tidy_done - started)) s," \
    "cppcheck $((SECONDS - tidy_done)) s"
if [ "$failed" != 0 ]; then
    echo "check-static-analysis: findings above" >&2
    exit 1
fi
