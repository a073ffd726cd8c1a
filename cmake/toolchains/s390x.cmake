# IBM Z, whose numbers are big-endian, by Debian's cross compiler; programs run under qemu.
set(MCAST_MACHINE s390x)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
