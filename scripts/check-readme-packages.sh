#!/usr/bin/env bash
# The README's "Building by hand" installs exactly the packages the scripts install for a build
# (LCFD_BUILD_PACKAGES in scripts/deps.sh), in the same order, so that following it by hand
# builds and tests like the test command does.
# Usage: check-readme-packages.sh SOURCE_DIR
set -euo pipefail
source_dir=$1
# shellcheck source=deps.sh
source "$source_dir/scripts/deps.sh"
# The first apt-get install of the section, its continuation lines joined.
readme_packages=$(awk '
    /^## Building by hand/ { in_section = 1; next }
    /^## / { in_section = 0 }
    in_section && /apt-get install/ { collecting = 1 }
    collecting { line = line " " $0; if ($0 !~ /\\$/) { print line; exit } }
' "$source_dir/README.md" | tr -d '\\' | sed 's/.*apt-get install//' | tr -s ' ' '\n' |
    grep -v -e '^$' -e '^-' || true)
expected=$(printf '%s\n' "${LCFD_BUILD_PACKAGES[@]}")
if [ "$readme_packages" != "$expected" ]; then
    echo "README.md, Building by hand, installs:"
    echo "$readme_packages" | tr '\n' ' '
    echo
    echo "scripts/deps.sh, LCFD_BUILD_PACKAGES:"
    echo "$expected" | tr '\n' ' '
    echo
    exit 1
fi
