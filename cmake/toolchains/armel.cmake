# ARMv5TE, soft float (ARM926 boards: "arm9"). Debian's arm-linux-gnueabi compiler defaults to
# ARMv5TE with soft float; the flags say so anyway, so the binary does not change with them.
set(LCFD_TARGET_TRIPLET arm-linux-gnueabi)
set(LCFD_TARGET_PROCESSOR arm)
set(LCFD_TARGET_QEMU qemu-arm)
set(CMAKE_C_FLAGS_INIT "-march=armv5te -mfloat-abi=soft")
set(CMAKE_CXX_FLAGS_INIT "-march=armv5te -mfloat-abi=soft")
# The oldest C library its programs run with (README).
set(LCFD_TARGET_GLIBC_FLOOR 2.34)
include(${CMAKE_CURRENT_LIST_DIR}/DebianCross.cmake)
