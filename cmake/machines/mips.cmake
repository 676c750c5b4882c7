# MIPS32, release 2: 32 bit, big-endian.
set(machine mips)
set(triplet mips-linux-gnu)
set(emulator qemu-mips)
set(CMAKE_SYSTEM_PROCESSOR mips)
# 64-bit atomics, which the Linux port and the gateway's services use, are in a library.
set(CMAKE_CXX_STANDARD_LIBRARIES_INIT -latomic)
include("${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake")
