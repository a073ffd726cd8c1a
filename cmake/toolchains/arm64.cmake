# 64-bit ARM, by Debian's cross compiler; programs run under qemu.
set(MCAST_MACHINE aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
