# ARMv7-A, hard float (i.MX-class boards): Debian's arm-linux-gnueabihf defaults.
set(LCFD_TARGET_TRIPLET arm-linux-gnueabihf)
set(LCFD_TARGET_PROCESSOR arm)
set(LCFD_TARGET_QEMU qemu-arm)
# The oldest C library its programs run with (README).
set(LCFD_TARGET_GLIBC_FLOOR 2.34)
include(${CMAKE_CURRENT_LIST_DIR}/DebianCross.cmake)
