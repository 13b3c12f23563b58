# 64-bit ARM (ARMv8-A).
set(LCFD_TARGET_TRIPLET aarch64-linux-gnu)
set(LCFD_TARGET_PROCESSOR aarch64)
set(LCFD_TARGET_QEMU qemu-aarch64)
# The oldest C library its programs run with (README): 2.35, for _dl_find_object, which the
# unwinder of the linked-in libgcc calls on 64-bit ARM.
set(LCFD_TARGET_GLIBC_FLOOR 2.35)
include(${CMAKE_CURRENT_LIST_DIR}/DebianCross.cmake)
