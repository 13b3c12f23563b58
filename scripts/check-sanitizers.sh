#!/usr/bin/env bash
# The sanitizer stage: everything (lcfd, lcf, every test) built with AddressSanitizer and
# UndefinedBehaviorSanitizer in a build directory of its own (CMakePresets.json, "sanitize":
# build-sanitize), then the CTest suite, unit and end-to-end, run in it (but for the three
# scale tests of twenty controllers, which the plain build runs).
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
source scripts/suites.sh
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

# The scale tests of twenty controllers are the plain build's (scripts/suites.sh says why).
ctest --preset sanitize -j"$(($(nproc) + 1))" -E "$LCFD_SCALE_TESTS"  # the e2e tests mostly wait
echo "check-sanitizers: build $((built - started)) s, tests $((SECONDS - built)) s"
