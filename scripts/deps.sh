# Sourced by the project's scripts: installs the Debian packages named in "$@" that are missing.
# Needs root (apt-get); does nothing when everything is already there.
lcfd_install_missing() {
    local missing=()
    local package
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
            missing+=("$package")
    done
    if [ "${#missing[@]}" -gt 0 ]; then
        echo "== installing: ${missing[*]}"
        export DEBIAN_FRONTEND=noninteractive
        apt-get update -qq
        apt-get install -y -qq --no-install-recommends "${missing[@]}"
    fi
}

# What building and testing lcfd needs; the README's "Building by hand" shows this list
# (the test docs.readme-build-packages keeps them equal).
# nftables: the sandbox's lossy segments. mandoc, systemd (systemd-analyze) and busybox: the
# checks of the manual pages, the service unit and the BusyBox init script. tshark: the tests of
# the Wireshark dissector; lua5.2 and lua5.4 run it under both Lua versions Wireshark releases use.
LCFD_BUILD_PACKAGES=(cmake make g++ libgtest-dev googletest nlohmann-json3-dev libcli11-dev libbenchmark-dev iproute2 nftables python3 procps mandoc systemd busybox tshark lua5.2 lua5.4)

# What building the Debian packages and checking them needs (scripts/check-debian-package.sh).
LCFD_PACKAGING_PACKAGES=(debhelper dpkg-dev fakeroot lintian)

# What the static analysis stage needs (scripts/check-static-analysis.sh).
LCFD_ANALYSIS_PACKAGES=(clang clang-tidy cppcheck)

# What building and running the fuzz targets needs (fuzz/run): clang with libFuzzer and the
# sanitizer runtimes, llvm-symbolizer for readable reports.
LCFD_FUZZ_PACKAGES=(cmake make clang libclang-rt-14-dev llvm-14 nlohmann-json3-dev libcli11-dev)

# What building for the boards and running their programs under emulation needs
# (scripts/cross.sh): the cross compilers, qemu-user, GoogleTest's sources, file.
declare -A LCFD_CROSS_COMPILER_PACKAGE=(
    [armel]=g++-arm-linux-gnueabi
    [armhf]=g++-arm-linux-gnueabihf
    [aarch64]=g++-aarch64-linux-gnu
)
LCFD_CROSS_PACKAGES=(cmake make qemu-user googletest file nlohmann-json3-dev libcli11-dev python3)
