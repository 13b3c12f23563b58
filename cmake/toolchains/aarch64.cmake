# 64-bit ARM (ARMv8-A).
set(LCFD_TARGET_TRIPLET aarch64-linux-gnu)
set(LCFD_TARGET_PROCESSOR aarch64)
set(LCFD_TARGET_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/DebianCross.cmake)
