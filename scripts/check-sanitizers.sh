#!/usr/bin/env bash
# The sanitizer stage: everything (lcfd, lcf, every test) built with AddressSanitizer and
# UndefinedBehaviorSanitizer in a build directory of its own (CMakePresets.json, "sanitize":
# build-sanitize), then the whole CTest suite, unit and end-to-end, run in it.
#
# Any report fails the stage: the test preset sets halt_on_error, -fno-sanitize-recover makes
# undefined behaviour fatal, and LeakSanitizer checks every test program at its exit, with
# tests/lsan.supp as the only suppressions. The daemons the end-to-end tests start run in the
# sandbox, which passes these options on and sends each daemon's reports to files in its
# directory; the test harness fails the test on any such file. The daemon never exits on its
# own, so its leaks are not seen here: scripts/check-valgrind.sh measures them.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
lcfd_install_missing "${LCFD_BUILD_PACKAGES[@]}"

started=$SECONDS
cmake --preset sanitize
cmake --build --preset sanitize -j"$(nproc)"
built=$SECONDS

# The build must really be instrumented, or the suite below would prove nothing.
# (The symbol list is read whole: grep -q would stop early and, under pipefail, nm's broken
# pipe would count as a failure.)
for program in build-sanitize/src/main/lcfd build-sanitize/client/lcf; do
    symbols=$(nm "$program")
    if ! grep -q "__asan_init" <<<"$symbols" || ! grep -q "__ubsan_handle" <<<"$symbols"; then
        echo "check-sanitizers: $program is not instrumented" >&2
        exit 1
    fi
done

ctest --preset sanitize -j"$(($(nproc) + 1))"  # the e2e tests mostly wait
echo "check-sanitizers: build $((built - started)) s, tests $((SECONDS - built)) s"
