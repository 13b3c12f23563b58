#!/usr/bin/env bash
# The main job: builds lcfd and shows it running. (For now: builds it and prints its version.)
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
lcfd_install_missing "${LCFD_BUILD_PACKAGES[@]}"

build_dir=${LCFD_BUILD_DIR:-build}
echo "== building lcfd"
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build_dir" -j"$(nproc)" --target lcfd
echo "== $build_dir/src/main/lcfd --version"
"$build_dir/src/main/lcfd" --version
