# IBM Z: 64 bit, big-endian.
set(machine s390x)
set(triplet s390x-linux-gnu)
set(emulator qemu-s390x)
set(CMAKE_SYSTEM_PROCESSOR s390x)
include("${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake")
