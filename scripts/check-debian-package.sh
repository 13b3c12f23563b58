#!/usr/bin/env bash
# Builds the Debian packages lcfd and lcf (dpkg-buildpackage -b) from a copy of the source tree,
# so that nothing lands beside the checkout; fails on any lintian error and shows its warnings;
# then installs both packages into a throwaway root (overlays with a tmpfs upper layer over
# /usr, /etc and /var, in a private mount namespace), checks what they installed and that the
# service is enabled but not started, purges them and checks that nothing of them is left,
# there or on this machine. Needs root.
# Usage: check-debian-package.sh [--keep DIR] [--debs DIR]
#   --keep DIR  copy the built packages (.deb, .changes, .buildinfo) into DIR
#   --debs DIR  check the packages already built into DIR (by --keep) instead of building
set -euo pipefail
export LC_ALL=C.UTF-8

# The files and directories that the packages own or make, and that this machine must not have
# before or after the check.
host_paths=(
    /usr/sbin/lcfd /lib/systemd/system/lcfd.service /usr/lib/systemd/system/lcfd.service
    /usr/share/man/man8/lcfd.8.gz /usr/share/doc/lcfd /usr/share/doc/lcf
    /usr/bin/lcf.ucf /usr/share/man/man1/lcf.ucf.1.gz
    /etc/systemd/system/multi-user.target.wants/lcfd.service
    /var/lib/systemd/deb-systemd-helper-enabled/lcfd.service.dsh-also
    /var/lib/systemd/deb-systemd-helper-enabled/multi-user.target.wants/lcfd.service
    /var/lib/dpkg/info/lcfd.list /var/lib/dpkg/info/lcf.list
)
# Debian's ucf package has a script /usr/bin/lcf and its page lcf(1). The lcf package diverts
# them to these names while it is installed; afterwards they must be back as they were.
shared_paths=(/usr/bin/lcf /usr/share/man/man1/lcf.1.gz)
declare -A diverted_to=(
    [/usr/bin/lcf]=/usr/bin/lcf.ucf
    [/usr/share/man/man1/lcf.1.gz]=/usr/share/man/man1/lcf.ucf.1.gz
)
wants_link=/etc/systemd/system/multi-user.target.wants/lcfd.service

fail() {
    echo "check-debian-package: FAIL: $*" >&2
    exit 1
}

# "installed", "config-files", ... or nothing when dpkg does not know the package.
package_status() {
    dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null || true
}

# The processes running the packaged daemon (a test build of lcfd elsewhere does not count).
packaged_daemons() {
    local exe pids=()
    for exe in /proc/[0-9]*/exe; do
        case "$(readlink "$exe" 2>/dev/null || true)" in
        /usr/sbin/lcfd | "/usr/sbin/lcfd (deleted)") pids+=("${exe//[!0-9]/}") ;;
        esac
    done
    echo "${pids[*]}"
}

# One line per shared path: its checksum, or "absent".
fingerprint() {
    local path
    for path in "${shared_paths[@]}"; do
        if [ -e "$path" ]; then
            echo "$path $(sha256sum <"$path" | cut -d' ' -f1)"
        else
            echo "$path absent"
        fi
    done
}

# The diversions that the lcf package holds.
lcf_diversions() {
    dpkg-divert --list | grep -F ' by lcf' || true
}

# Fails unless this machine has no trace of either package: not installed, none of their files,
# no diversion, the daemon not running.
check_host_clean() {
    local when=$1 package path status
    for package in lcfd lcf; do
        status=$(package_status "$package")
        case "$status" in
        "" | not-installed) ;;
        *) fail "$when: this machine has the package $package ($status)" ;;
        esac
    done
    for path in "${host_paths[@]}"; do
        if [ -e "$path" ] || [ -L "$path" ]; then
            fail "$when: this machine has $path"
        fi
    done
    [ -z "$(lcf_diversions)" ] || fail "$when: this machine has the diversions $(lcf_diversions)"
    if [ -n "$(packaged_daemons)" ]; then
        fail "$when: /usr/sbin/lcfd is running on this machine (pid $(packaged_daemons))"
    fi
}

# --- Inside the private mount namespace -------------------------------------------------------
# Installs, checks, purges and checks again. Arguments: scratch directory, version, lcfd's and
# lcf's .deb.
in_throwaway_root() {
    local scratch=$1 version=$2 deb_lcfd=$3 deb_lcf=$4 dir name
    mount -t tmpfs -o mode=0755 lcfd-throwaway "$scratch"
    # Merged-/usr systems (Debian 12) have /bin, /sbin and /lib as links into /usr; others get
    # an overlay of their own for each.
    local overlaid=(/usr /etc /var)
    for dir in /bin /sbin /lib /lib32 /lib64 /libx32; do
        if [ -d "$dir" ] && [ ! -L "$dir" ]; then
            overlaid+=("$dir")
        fi
    done
    for dir in "${overlaid[@]}"; do
        name=${dir#/}
        mkdir -p "$scratch/$name/upper" "$scratch/$name/work"
        mount -t overlay overlay \
            -o "lowerdir=$dir,upperdir=$scratch/$name/upper,workdir=$scratch/$name/work" "$dir"
    done
    # The maintainer scripts must never reach a service manager running on this machine: without
    # /run/systemd/system they only record and enable the unit, as on a system being built.
    if [ -d /run/systemd ]; then
        mount -t tmpfs -o mode=0755 lcfd-no-systemd /run/systemd
    fi
    mkdir -p "$scratch/tmp"
    export TMPDIR=$scratch/tmp
    export PATH=/usr/sbin:/usr/bin:/sbin:/bin

    local shared_before
    shared_before=$(fingerprint)

    echo "== dpkg -i (throwaway root)"
    dpkg -i "$deb_lcfd" "$deb_lcf" || fail "dpkg -i failed"
    [ "$(package_status lcfd)" = installed ] || fail "lcfd is not installed after dpkg -i"
    [ "$(package_status lcf)" = installed ] || fail "lcf is not installed after dpkg -i"

    local path
    for path in /usr/sbin/lcfd /usr/bin/lcf; do
        if [ ! -f "$path" ] || [ ! -x "$path" ]; then
            fail "$path is missing or not executable"
        fi
    done
    for path in /lib/systemd/system/lcfd.service /usr/share/man/man8/lcfd.8.gz \
        /usr/share/man/man1/lcf.1.gz /usr/share/doc/lcfd/copyright /usr/share/doc/lcf/copyright; do
        [ -f "$path" ] || fail "$path is missing"
    done
    local owned_lcfd owned_lcf
    owned_lcfd=$(dpkg -L lcfd)
    owned_lcf=$(dpkg -L lcf)
    for path in /usr/sbin/lcfd /lib/systemd/system/lcfd.service /usr/share/man/man8/lcfd.8.gz \
        /usr/share/doc/lcfd/copyright; do
        grep -Fxq "$path" <<<"$owned_lcfd" || fail "dpkg -L lcfd does not list $path"
    done
    for path in /usr/bin/lcf /usr/share/man/man1/lcf.1.gz /usr/share/doc/lcf/copyright; do
        grep -Fxq "$path" <<<"$owned_lcf" || fail "dpkg -L lcf does not list $path"
    done
    # Each program belongs to one package only.
    if grep -Fxq /usr/bin/lcf <<<"$owned_lcfd" || grep -Fxq /usr/sbin/lcfd <<<"$owned_lcf"; then
        fail "lcfd and lcf ship each other's program"
    fi
    # ucf's lcf and its page, when there, are kept under their diverted names.
    local line sum
    while read -r path sum; do
        [ "$(dpkg-divert --listpackage "$path")" = lcf ] || fail "lcf does not divert $path"
        [ "$(dpkg-divert --truename "$path")" = "${diverted_to[$path]}" ] ||
            fail "$path is diverted to $(dpkg-divert --truename "$path")"
        if [ "$sum" != absent ]; then
            line=$(sha256sum 2>/dev/null <"${diverted_to[$path]}" | cut -d' ' -f1) || true
            [ "$line" = "$sum" ] || fail "the former $path is not kept as ${diverted_to[$path]}"
            echo "diverted: the former $path is ${diverted_to[$path]}"
        fi
    done <<<"$shared_before"

    local out
    out=$(timeout 10 lcfd --version 2>&1) || fail "lcfd --version failed: $out"
    [ "$out" = "Version: $version" ] ||
        fail "lcfd --version printed '$out', not 'Version: $version'"
    echo "lcfd --version: $out"
    out=$(timeout 10 lcf --help 2>&1) || fail "lcf --help failed: $out"
    grep -Fxq "Usage: lcf [OPTIONS] SUBCOMMAND" <<<"$out" ||
        fail "lcf --help has no line 'Usage: lcf [OPTIONS] SUBCOMMAND': $out"
    echo "lcf --help: $(grep -Fx "Usage: lcf [OPTIONS] SUBCOMMAND" <<<"$out")"

    # Enabled by the postinst (deb-systemd-helper), not started: no service manager here.
    [ -L "$wants_link" ] || fail "$wants_link is missing: the service is not enabled"
    [ "$(readlink "$wants_link")" = /lib/systemd/system/lcfd.service ] ||
        fail "$wants_link points to $(readlink "$wants_link")"
    echo "enabled: $wants_link -> $(readlink "$wants_link")"
    [ -z "$(packaged_daemons)" ] || fail "the postinst started lcfd (pid $(packaged_daemons))"

    if command -v man >/dev/null; then
        out=$(man -w lcfd) || fail "man -w lcfd found no page"
        [ "$out" = /usr/share/man/man8/lcfd.8.gz ] || fail "man -w lcfd: $out"
        out=$(man -w lcf) || fail "man -w lcf found no page"
        [ "$out" = /usr/share/man/man1/lcf.1.gz ] || fail "man -w lcf: $out"
        if [ -e /usr/share/man/man1/lcf.ucf.1.gz ]; then
            out=$(man -w lcf.ucf) || fail "man -w lcf.ucf found no page"
            [ "$out" = /usr/share/man/man1/lcf.ucf.1.gz ] || fail "man -w lcf.ucf: $out"
        fi
        echo "man -w: lcfd(8) and lcf(1) found"
    fi

    # Everything the packages installed, directories aside, must go with them; the shared
    # names get their former files back.
    local installed=()
    while IFS= read -r path; do
        # Directories, and links to them such as /lib, stay.
        if [ -d "$path" ] || [ -n "${diverted_to[$path]:-}" ]; then
            continue
        fi
        if [ -e "$path" ] || [ -L "$path" ]; then
            installed+=("$path")
        fi
    done < <(printf '%s\n%s\n' "$owned_lcfd" "$owned_lcf")

    echo "== dpkg --purge lcf lcfd (throwaway root)"
    dpkg --purge lcf lcfd || fail "dpkg --purge failed"
    for path in "${installed[@]}" "${host_paths[@]}"; do
        if [ -e "$path" ] || [ -L "$path" ]; then
            fail "$path is left after dpkg --purge"
        fi
    done
    for name in lcfd lcf; do
        case "$(package_status "$name")" in
        "" | not-installed) ;;
        *) fail "$name is $(package_status "$name") after dpkg --purge" ;;
        esac
    done
    [ -z "$(lcf_diversions)" ] || fail "diversions left after --purge: $(lcf_diversions)"
    [ "$(fingerprint)" = "$shared_before" ] ||
        fail "after --purge the shared names are $(fingerprint), not as before: $shared_before"
    [ -z "$(packaged_daemons)" ] || fail "lcfd is running after --purge"
    echo "purged: ${#installed[@]} installed files gone, service no longer enabled," \
        "${shared_paths[*]} as before"
}

if [ "${1:-}" = --in-throwaway-root ]; then
    shift
    in_throwaway_root "$@"
    exit 0
fi

# --- Build, lintian, install check -------------------------------------------------------------
keep=""
debs=""
while [ "$#" -gt 0 ]; do
    case "$1" in
    --keep) keep=${2:?--keep needs a directory}; shift ;;
    --debs) debs=${2:?--debs needs a directory}; shift ;;
    *) fail "unknown argument $1 (usage: check-debian-package.sh [--keep DIR] [--debs DIR])" ;;
    esac
    shift
done
[ "$(id -u)" = 0 ] || fail "needs root (dpkg -i in a mount namespace of its own)"

self=$(readlink -f "${BASH_SOURCE[0]}")
root=$(dirname "$(dirname "$self")")
# shellcheck source=scripts/deps.sh
source "$root/scripts/deps.sh"
# The packaging tools, and what debian/control's Build-Depends names (g++ and make: build-essential).
lcfd_install_missing "${LCFD_PACKAGING_PACKAGES[@]}" cmake make g++ nlohmann-json3-dev libcli11-dev

# The package's version is the project's.
version=$(sed -n 's/^project(lcfd VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
[ -n "$version" ] || fail "no 'project(lcfd VERSION ...)' in CMakeLists.txt"
changelog_version=$(dpkg-parsechangelog -l "$root/debian/changelog" -S Version)
[ "$changelog_version" = "$version" ] ||
    fail "debian/changelog is at $changelog_version, the project at $version"

check_host_clean "before"
host_shared_before=$(fingerprint)
start=$SECONDS
work=$(mktemp -d /tmp/lcfd-debian.XXXXXX)
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM
out_dir=$work/out

if [ -n "$debs" ]; then
    out_dir=$(readlink -f "$debs")
else
    # dpkg-buildpackage writes the packages into the parent of the tree it builds.
    src=$out_dir/lcfd-$version
    mkdir -p "$src"
    if git -C "$root" rev-parse --is-inside-work-tree >/dev/null 2>&1; then
        # Tracked and new files, not ignored ones (build directories); not deleted ones.
        git -C "$root" ls-files -co --exclude-standard -z |
            while IFS= read -r -d '' path; do
                if [ -e "$root/$path" ] || [ -L "$root/$path" ]; then
                    printf '%s\0' "$path"
                fi
            done |
            tar -C "$root" --null -T - -cf - | tar -C "$src" -xf -
    else
        find "$root" -mindepth 1 -maxdepth 1 ! \( -type d -name 'build*' \) -printf '%P\0' |
            tar -C "$root" --null -T - -cf - | tar -C "$src" -xf -
    fi
    echo "== dpkg-buildpackage -us -uc -b -j2 (in $src)"
    if ! (cd "$src" && dpkg-buildpackage -us -uc -b -j2) >"$work/build.log" 2>&1; then
        tail -n 60 "$work/build.log"
        fail "dpkg-buildpackage failed"
    fi
    grep -E '^dpkg-deb: building package' "$work/build.log" || true
    echo "built in $((SECONDS - start)) s"
fi

arch=$(dpkg --print-architecture)
changes=$out_dir/lcfd_${version}_$arch.changes
deb_lcfd=$out_dir/lcfd_${version}_$arch.deb
deb_lcf=$out_dir/lcf_${version}_$arch.deb
for file in "$changes" "$deb_lcfd" "$deb_lcf"; do
    [ -f "$file" ] || fail "$file was not built"
done
# Kept before they are checked, so that a failing check leaves them to be looked at.
if [ -n "$keep" ] && [ "$(readlink -f "$keep")" != "$out_dir" ]; then
    mkdir -p "$keep"
    cp "$changes" "$out_dir"/*.buildinfo "$out_dir"/*.deb "$keep"/
    echo "packages kept in $keep"
fi

echo "== lintian $(basename "$changes")"
lintian_start=$SECONDS
# Lintian unpacks what it checks and need not be root for that, unless the packages given with
# --debs are where nobody can read them.
chmod 0755 "$work"
as_nobody=(setpriv --reuid=nobody --regid=nogroup --clear-groups env HOME=/nonexistent)
if ! "${as_nobody[@]}" test -r "$changes" -a -r "$deb_lcfd"; then
    as_nobody=()
fi
lintian_out=$("${as_nobody[@]}" lintian --display-info --fail-on none "$changes" 2>&1) ||
    fail "lintian did not run: $lintian_out"
if [ -n "$lintian_out" ]; then
    echo "$lintian_out"
else
    echo "(no tags)"
fi
echo "lintian: $(grep -c '^E: ' <<<"$lintian_out" || true) errors," \
    "$(grep -c '^W: ' <<<"$lintian_out" || true) warnings," \
    "$(grep -c '^I: ' <<<"$lintian_out" || true) infos ($((SECONDS - lintian_start)) s)"
if grep -q '^E: ' <<<"$lintian_out"; then
    fail "lintian reports errors"
fi

# A mount namespace of its own: the overlays and the tmpfs go away with it, whatever happens.
mkdir "$work/root"
unshare -m --propagation private -- bash "$self" --in-throwaway-root "$work/root" "$version" \
    "$deb_lcfd" "$deb_lcf"
check_host_clean "after"
[ "$(fingerprint)" = "$host_shared_before" ] ||
    fail "this machine's ${shared_paths[*]} changed: $(fingerprint)"
if findmnt -rn -o TARGET | grep -Fq "$work"; then
    fail "a mount of the throwaway root is left on this machine"
fi
echo "this machine is untouched: lcfd and lcf not installed, none of their files present"

for deb in "$deb_lcfd" "$deb_lcf"; do
    echo "== dpkg -c $(basename "$deb")"
    dpkg -c "$deb" | awk '{ $2 = $4 = $5 = ""; print }' | tr -s ' '
done
echo "check-debian-package: OK (${SECONDS} s)"
