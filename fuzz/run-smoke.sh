#!/usr/bin/env bash
# The fuzzing stage of the test command: builds every fuzz target and runs each for 30 s on
# its seed corpus, two at a time, and fails on any finding. About two minutes on two cores once
# the targets are built; longer runs are fuzz/run's (--seconds).
set -euo pipefail
cd "$(dirname "$0")/.."
exec bash fuzz/run --seconds "${LCFD_FUZZ_SMOKE_SECONDS:-30}" --jobs 2 "$@"
