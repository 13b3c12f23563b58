# Shared part of the cross toolchains: Debian's cross compilers for LCFD_TARGET_TRIPLET, the
# target's C library under /usr/<triplet>, and qemu-user to run what was built. Included by the
# per-target files beside it, which set LCFD_TARGET_TRIPLET, LCFD_TARGET_PROCESSOR and
# LCFD_TARGET_QEMU first (scripts/cross.sh installs the compilers and qemu-user when missing).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${LCFD_TARGET_PROCESSOR})

set(CMAKE_C_COMPILER ${LCFD_TARGET_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${LCFD_TARGET_TRIPLET}-g++)

set(LCFD_TARGET_SYSROOT /usr/${LCFD_TARGET_TRIPLET})
set(CMAKE_FIND_ROOT_PATH ${LCFD_TARGET_SYSROOT})
# Programs are the build machine's; libraries only the target's. Headers and package files may
# come from the build machine too: the header-only CLI11 and nlohmann-json are architecture-free,
# and GoogleTest is built from its sources rather than found (tests/googletest).
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# Target programs (the unit tests, test discovery) run under user-mode emulation with the
# target's C library; the programs those start (/bin/sh and the device's tools) are the build
# machine's own, which the kernel runs natively.
set(CMAKE_CROSSCOMPILING_EMULATOR ${LCFD_TARGET_QEMU} -L ${LCFD_TARGET_SYSROOT})
