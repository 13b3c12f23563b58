#!/usr/bin/env bash
# Builds lcfd and every test, then runs the whole suite (unit and end-to-end) with CTest.
# Run as root on Debian: the end-to-end tests build network and mount namespaces.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
lcfd_install_missing "${LCFD_BUILD_PACKAGES[@]}"

build_dir=${LCFD_BUILD_DIR:-build}
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLCFD_WERROR=ON
cmake --build "$build_dir" -j"$(nproc)"
ctest --test-dir "$build_dir" --output-on-failure -j"$(nproc)"
