# MIPS32, release 2: 32 bit, big-endian.
set(machine mips)
set(triplet mips-linux-gnu)
set(emulator qemu-mips)
set(CMAKE_SYSTEM_PROCESSOR mips)
include("${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake")
