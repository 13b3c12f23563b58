#!/usr/bin/env bash
# Checks the Buildroot package (the br2-external tree packaging/buildroot) without Buildroot:
#   1. names: every variable lcfd.mk sets is one Buildroot reads, every Kconfig symbol is the
#      package's own or one Buildroot has, and the tree's name is the one its files use;
#   2. the init hooks, run by GNU make as Buildroot runs them, install files that exist, with
#      the modes a target needs;
#   3. Buildroot's configure, build and install of a CMake package, with the package's own
#      options as make evaluates them, for ARMv5 (Debian's armel cross compiler): the programs
#      are the target's, and the init files come from the hooks alone. A configure without the
#      tool lcf must not need its libraries.
#
# Usage: scripts/check-buildroot-package.sh [--external DIR] [--no-build]
#   --external DIR  check another copy of the br2-external tree (the sources stay this tree's)
#   --no-build      checks 1 and 2 only
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
external=$root/packaging/buildroot
build=yes
while [ $# -gt 0 ]; do
    case $1 in
    --external)
        external=$(cd "$2" && pwd)
        shift 2
        ;;
    --no-build)
        build=no
        shift
        ;;
    *)
        echo "usage: $0 [--external DIR] [--no-build]" >&2
        exit 2
        ;;
    esac
done

failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}
stop_if_failed() {
    if [ "$failures" -gt 0 ]; then
        echo "== $failures failure(s) in $1"
        exit 1
    fi
}

# shellcheck source=scripts/deps.sh
source "$root/scripts/deps.sh"
packages=(make file)
if [ "$build" = yes ]; then
    packages+=("${LCFD_CROSS_PACKAGES[@]}" "${LCFD_CROSS_COMPILER_PACKAGE[armel]}")
fi
lcfd_install_missing "${packages[@]}"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# What lcfd.mk needs of Buildroot. A recipe's target in the source tree makes $(@D) the source
# tree, as Buildroot's stamp files in the package's build directory do; the configure, build and
# install rules are those of package/pkg-cmake.mk for a target package, with the compiler's
# toolchain file standing in for Buildroot's own and the default configuration's shared
# libraries (BR2_SHARED_LIBS; the project's own libraries are static either way).
cat >"$work/buildroot.mk" <<'EOF'
INSTALL := install
cmake-package :=
KCONFIG_ENABLE_OPT :=
include $(BR2_EXTERNAL)/external.mk
LCFD_MAKE ?= $(MAKE)
LCFD_INSTALL_TARGET_OPTS ?= DESTDIR=$(TARGET_DIR) install/fast

.PHONY: show configure build install-target \
	$(CHECK_SOURCE_DIR)/.hook-init-sysv $(CHECK_SOURCE_DIR)/.hook-init-systemd
show:
	@:$(info $($(VARIABLE)))
$(CHECK_SOURCE_DIR)/.hook-init-sysv:
	$(LCFD_INSTALL_INIT_SYSV)
$(CHECK_SOURCE_DIR)/.hook-init-systemd:
	$(LCFD_INSTALL_INIT_SYSTEMD)
configure:
	mkdir -p $(CHECK_BUILD_DIR) && cd $(CHECK_BUILD_DIR) && rm -f CMakeCache.txt && \
	$(LCFD_CONF_ENV) cmake $(CHECK_SOURCE_DIR) \
		-DCMAKE_TOOLCHAIN_FILE="$(TOOLCHAIN_FILE)" \
		-DCMAKE_BUILD_TYPE=Release \
		-DCMAKE_INSTALL_PREFIX="/usr" \
		-DCMAKE_COLOR_MAKEFILE=OFF \
		-DBUILD_DOC=OFF \
		-DBUILD_DOCS=OFF \
		-DBUILD_EXAMPLE=OFF \
		-DBUILD_EXAMPLES=OFF \
		-DBUILD_TEST=OFF \
		-DBUILD_TESTS=OFF \
		-DBUILD_TESTING=OFF \
		-DBUILD_SHARED_LIBS=$(if $(BR2_STATIC_LIBS),OFF,ON) \
		$(EXTRA_CMAKE_OPTS) \
		$(LCFD_CONF_OPTS)
build:
	$(LCFD_MAKE_ENV) $(LCFD_MAKE) $(LCFD_MAKE_OPTS) -C $(CHECK_BUILD_DIR)
install-target:
	$(LCFD_MAKE_ENV) $(LCFD_MAKE) $(LCFD_MAKE_OPTS) $(LCFD_INSTALL_TARGET_OPTS) -C $(CHECK_BUILD_DIR)
EOF
buildroot_make() {
    make --no-print-directory -f "$work/buildroot.mk" \
        "BR2_EXTERNAL=$external" "$path_variable=$external" "CHECK_SOURCE_DIR=$root" "$@"
}

# --- 1. Names ----------------------------------------------------------------------------------
echo "== names"
version=$(sed -nE 's/^project\([a-z]+ VERSION ([0-9.]+).*/\1/p' "$root/CMakeLists.txt")

# What a package's .mk may set, after its prefix: the generic and CMake infrastructures'
# variables (Buildroot manual, "generic-package reference" and "cmake-package reference").
known_suffixes=(
    VERSION SOURCE SITE SITE_METHOD SUBDIR PATCH DL_OPTS EXTRA_DOWNLOADS STRIP_COMPONENTS EXCLUDES
    GIT_SUBMODULES GIT_LFS SVN_EXTERNALS OVERRIDE_SRCDIR OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS
    DEPENDENCIES EXTRACT_DEPENDENCIES PATCH_DEPENDENCIES PROVIDES
    INSTALL_STAGING INSTALL_TARGET INSTALL_IMAGES CONFIG_SCRIPTS DEVICES PERMISSIONS USERS
    LICENSE LICENSE_FILES REDISTRIBUTE FLAT_STACKSIZE BIN_ARCH_EXCLUDE IGNORE_CVES
    CPE_ID_VALID CPE_ID_PREFIX CPE_ID_VENDOR CPE_ID_PRODUCT CPE_ID_VERSION CPE_ID_UPDATE
    EXTRACT_CMDS CONFIGURE_CMDS BUILD_CMDS INSTALL_TARGET_CMDS INSTALL_STAGING_CMDS
    INSTALL_IMAGES_CMDS INSTALL_INIT_SYSV INSTALL_INIT_OPENRC INSTALL_INIT_SYSTEMD
    LINUX_CONFIG_FIXUPS BUSYBOX_CONFIG_FIXUPS
    CMAKE_BACKEND CONF_ENV CONF_OPTS BUILD_ENV BUILD_OPTS SUPPORTS_IN_SOURCE_BUILD
    MAKE MAKE_ENV MAKE_OPTS INSTALL_OPTS INSTALL_STAGING_OPTS INSTALL_TARGET_OPTS
)
for step in DOWNLOAD EXTRACT RSYNC PATCH CONFIGURE BUILD INSTALL INSTALL_STAGING INSTALL_TARGET \
    INSTALL_IMAGES LEGAL_INFO; do
    known_suffixes+=("PRE_${step}_HOOKS" "POST_${step}_HOOKS")
done
known_suffixes+=(TARGET_FINALIZE_HOOKS ROOTFS_PRE_CMD_HOOKS)

# Buildroot's own symbols the package may depend on or select; any other is a misspelling
# until checked against Buildroot and added here.
known_buildroot_symbols=(
    BR2_INSTALL_LIBSTDCPP BR2_USE_MMU BR2_TOOLCHAIN_HAS_ATOMIC BR2_TOOLCHAIN_HAS_THREADS
    BR2_PACKAGE_CLI11 BR2_PACKAGE_JSON_FOR_MODERN_CPP
)
gcc_symbol='^BR2_TOOLCHAIN_GCC_AT_LEAST_(4_[3-9]|[5-9]|1[0-4])$'

contains() {
    local item=$1
    shift
    local each
    for each in "$@"; do
        [ "$each" = "$item" ] && return 0
    done
    return 1
}

for required in external.desc external.mk Config.in; do
    [ -f "$external/$required" ] || fail "$external has no $required"
done
stop_if_failed "the tree's layout"

name_lines=$(grep -c '^name:' "$external/external.desc" || true)
name=$(sed -n 's/^name:[[:space:]]*//p' "$external/external.desc")
if [ "$name_lines" != 1 ] || ! [[ $name =~ ^[A-Za-z0-9_]+$ ]]; then
    fail "external.desc: one line 'name: NAME' of [A-Za-z0-9_] expected, found '$name'"
fi
path_variable=BR2_EXTERNAL_${name}_PATH

# Every br2-external path the tree uses is its own.
mapfile -t tree_files < <(find "$external" -type f \( -name '*.mk' -o -name 'Config.in*' \) |
    sort)
for file in "${tree_files[@]}"; do
    while read -r used; do
        [ "$used" = "$path_variable" ] ||
            fail "${file#"$external"/} uses $used, but external.desc names the tree $name"
    done < <(grep -oE 'BR2_EXTERNAL_[A-Za-z0-9_]+_PATH' "$file" | sort -u)
done
grep -qF "\$($path_variable)/package/" "$external/external.mk" ||
    fail "external.mk does not include the packages from \$($path_variable)/package/"

# Symbols defined anywhere in the tree; each is a package's own.
mapfile -t config_files < <(find "$external" -type f -name 'Config.in*' | sort)
defined_symbols=()
for file in "${config_files[@]}"; do
    while read -r symbol; do
        defined_symbols+=("$symbol")
    done < <(sed -nE 's/^[[:space:]]*(menu)?config[[:space:]]+([A-Za-z0-9_]+).*/\2/p' "$file")
done

mapfile -t package_dirs < <(find "$external/package" -mindepth 1 -maxdepth 1 -type d | sort)
[ "${#package_dirs[@]}" -gt 0 ] || fail "no package directory under $external/package"
for dir in "${package_dirs[@]}"; do
    package=$(basename "$dir")
    prefix=$(tr 'a-z-' 'A-Z_' <<<"$package")
    mk=$dir/$package.mk
    [ -f "$mk" ] || fail "package/$package has no $package.mk"
    [ -f "$dir/Config.in" ] || fail "package/$package has no Config.in"
    for other in "$dir"/*.mk; do
        [ "$other" = "$mk" ] || fail "package/$package: ${other##*/} is not named after its directory"
    done
    if [ ! -f "$mk" ] || [ ! -f "$dir/Config.in" ]; then
        continue
    fi

    grep -qxF "source \"\$$path_variable/package/$package/Config.in\"" "$external/Config.in" ||
        fail "Config.in does not source \"\$$path_variable/package/$package/Config.in\""
    grep -qE "^config BR2_PACKAGE_${prefix}\$" "$dir/Config.in" ||
        fail "package/$package/Config.in does not define BR2_PACKAGE_$prefix"

    # Variables the .mk sets (define blocks and assignments, in every branch of a conditional).
    # A name that is none of the known ones may still be a hook the .mk registers.
    mapfile -t assigned < <(awk '
        in_define { if ($1 == "endef") in_define = 0; next }
        continued { continued = /\\$/; next }
        { continued = /\\$/ }
        $1 == "define" { print $2; in_define = 1; next }
        match($0, /^[ \t]*(override[ \t]+)?[A-Za-z_][A-Za-z0-9_]*[ \t]*(::=|:=|\+=|\?=|=)/) {
            line = substr($0, RSTART, RLENGTH)
            sub(/^[ \t]*(override[ \t]+)?/, "", line)
            sub(/[ \t]*(::=|:=|\+=|\?=|=)$/, "", line)
            print line
        }' "$mk" | sort -u)
    mapfile -t registered_hooks < <(sed -nE "s/^[[:space:]]*${prefix}_[A-Z_]+_HOOKS[[:space:]]*\+=//p" \
        "$mk" | tr -s ' \t' '\n' | sed '/^$/d')
    for variable in "${assigned[@]}"; do
        if [[ $variable != "${prefix}"_* ]]; then
            fail "$package.mk sets $variable, which does not start with ${prefix}_"
        elif ! contains "${variable#"${prefix}"_}" "${known_suffixes[@]}" &&
            ! contains "$variable" "${registered_hooks[@]}"; then
            fail "$package.mk sets $variable: ${variable#"${prefix}"_} is none of the variables Buildroot reads"
        fi
    done
    grep -qxF "${prefix}_VERSION = $version" "$mk" ||
        fail "$package.mk: ${prefix}_VERSION is not the project's version (CMakeLists.txt)"
    [ "$(tail -n 1 "$mk")" = "\$(eval \$(cmake-package))" ] ||
        fail "$package.mk does not end with \$(eval \$(cmake-package))"

    # Kconfig symbols the package names, in its Config.in and its .mk.
    while read -r symbol; do
        if [[ $symbol == "BR2_PACKAGE_${prefix}" || $symbol == "BR2_PACKAGE_${prefix}"_* ]]; then
            contains "$symbol" "${defined_symbols[@]}" ||
                fail "package/$package names $symbol, which no Config.in defines"
        elif ! contains "$symbol" "${known_buildroot_symbols[@]}" &&
            ! [[ $symbol =~ $gcc_symbol ]]; then
            fail "package/$package names $symbol, not a Buildroot symbol this check knows"
        fi
    done < <(sed 's/#.*//' "$dir/Config.in" "$mk" | grep -oE '\bBR2_[A-Z0-9_]+\b' |
        grep -vE '^BR2_EXTERNAL_[A-Za-z0-9_]+_PATH$' | sort -u)
done
# The packages lcfd builds against are the ones its Config.in selects, and the other way round
# (their names are the symbols', in lower case with dashes).
mapfile -t dependencies < <(buildroot_make show VARIABLE=LCFD_DEPENDENCIES BR2_PACKAGE_LCFD_CLIENT=y |
    tr -s ' ' '\n' | grep -v '^host-' | sed '/^$/d' | sort)
mapfile -t selected < <(sed -nE 's/^[[:space:]]*select[[:space:]]+BR2_PACKAGE_([A-Z0-9_]+).*/\1/p' \
    "$external/package/lcfd/Config.in" | tr 'A-Z_' 'a-z-' | sort)
[ "${dependencies[*]}" = "${selected[*]}" ] ||
    fail "LCFD_DEPENDENCIES (with lcf) is '${dependencies[*]}', but Config.in selects '${selected[*]}'"
for symbol in "${defined_symbols[@]}"; do
    [[ $symbol =~ ^BR2_PACKAGE_LCFD(_[A-Z0-9_]+)?$ ]] ||
        fail "Config.in defines $symbol; the tree's symbols are BR2_PACKAGE_LCFD*"
done
stop_if_failed "the names"
echo "names: OK"

# --- 2. The init hooks -------------------------------------------------------------------------
echo "== init hooks"
hooks_target=$work/hooks-target
mkdir -p "$hooks_target"
buildroot_make "TARGET_DIR=$hooks_target" "$root/.hook-init-sysv" "$root/.hook-init-systemd" ||
    fail "the init hooks did not run through"
expected_modes=(
    "etc/default/lcfd 644 packaging/sysv/lcfd.default"
    "etc/init.d/S50lcfd 755 packaging/sysv/S50lcfd"
    "usr/lib/systemd/system/lcfd.service 644 packaging/systemd/lcfd.service"
)
for entry in "${expected_modes[@]}"; do
    read -r installed mode source <<<"$entry"
    if [ ! -f "$hooks_target/$installed" ]; then
        fail "the hooks did not install /$installed"
        continue
    fi
    actual=$(stat -c %a "$hooks_target/$installed")
    [ "$actual" = "$mode" ] || fail "/$installed has mode $actual, not $mode"
    cmp -s "$root/$source" "$hooks_target/$installed" || fail "/$installed is not $source"
done
mapfile -t expected_hook_files < <(printf '%s\n' "${expected_modes[@]}" | cut -d' ' -f1)
while read -r installed; do
    contains "$installed" "${expected_hook_files[@]}" ||
        fail "the hooks installed /$installed, which is none of the init files"
done < <(cd "$hooks_target" && find . -type f | sed 's|^\./||' | sort)
stop_if_failed "the init hooks"
echo "init hooks: OK"

[ "$build" = yes ] || exit 0

# --- 3. Configure, build and install as Buildroot does -----------------------------------------
toolchain=$root/cmake/toolchains/armel.cmake

echo "== configure without lcf: CLI11 and nlohmann-json must not be needed"
if ! buildroot_make configure "CHECK_BUILD_DIR=$work/build-daemon-only" "TOOLCHAIN_FILE=$toolchain" \
    BR2_PACKAGE_LCFD_CLIENT= \
    "EXTRA_CMAKE_OPTS=-DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON" \
    >"$work/daemon-only.log" 2>&1; then
    grep -A4 'CMake Error' "$work/daemon-only.log" || tail -n 20 "$work/daemon-only.log"
    fail "lcfd without lcf does not configure without CLI11 and nlohmann-json"
fi
stop_if_failed "the configure without lcf"
echo "configure without lcf: OK"

echo "== configure, build and install, with lcf"
target=$work/target
# The compiler's output goes to a log, shown when a step fails.
for step in configure build install-target; do
    if ! buildroot_make "$step" "CHECK_BUILD_DIR=$work/build" "TOOLCHAIN_FILE=$toolchain" \
        "TARGET_DIR=$target" BR2_PACKAGE_LCFD_CLIENT=y LCFD_MAKE_OPTS=-j2 \
        >"$work/$step.log" 2>&1; then
        tail -n 40 "$work/$step.log"
        fail "$step failed"
    fi
    stop_if_failed "the $step step"
    echo "$step: OK"
done

for program in usr/sbin/lcfd usr/bin/lcf; do
    if [ ! -f "$target/$program" ]; then
        fail "/$program was not installed"
        continue
    fi
    description=$(file -b "$target/$program")
    [[ $description =~ ^ELF\ 32-bit\ LSB\ (pie\ )?executable,\ ARM,\ EABI5 ]] ||
        fail "/$program is not an ARM program: $description"
    # The target's shared C++ runtime, which Buildroot installs (LCFD_STATIC_CXX_RUNTIME=OFF).
    arm-linux-gnueabi-readelf -d "$target/$program" | grep -qF 'Shared library: [libstdc++.so.6]' ||
        fail "/$program does not link the shared libstdc++"
done
# Both start, with the target's libraries, under user-mode emulation.
for entry in "usr/sbin/lcfd|Version: $version" "usr/bin/lcf|lcf $version"; do
    program=${entry%%|*}
    [ -f "$target/$program" ] || continue
    output=$(qemu-arm -L /usr/arm-linux-gnueabi "$target/$program" --version 2>&1) ||
        fail "/$program --version failed: $output"
    [ "$output" = "${entry#*|}" ] ||
        fail "/$program --version printed '$output', not '${entry#*|}'"
done
stop_if_failed "the programs"
echo "programs: OK (ARM EABI5, the shared libstdc++, --version under qemu-arm)"
for page in usr/share/man/man8/lcfd.8 usr/share/man/man1/lcf.1; do
    [ -f "$target/$page" ] || fail "/$page was not installed"
done
# The project's install puts programs, manual pages and documents only: the init files are the
# hooks' (with the project's options on, it would install them too).
while read -r installed; do
    case $installed in
    usr/bin/* | usr/sbin/* | usr/share/man/* | usr/share/doc/lcfd/*) ;;
    *) fail "the project's install put /$installed on the target" ;;
    esac
done < <(cd "$target" && find . -type f | sed 's|^\./||' | sort)

# Then the init hook of a BusyBox init, as Buildroot runs it right after the install.
buildroot_make "TARGET_DIR=$target" "$root/.hook-init-sysv" >/dev/null
echo "== the target (BusyBox init)"
(cd "$target" && find . | sort)
stop_if_failed "the build"
echo "Buildroot package: OK (${SECONDS}s)"
