# ARMv7 with floating point in hardware: 32 bit, little-endian.
set(machine armhf)
set(triplet arm-linux-gnueabihf)
set(emulator qemu-arm)
set(CMAKE_SYSTEM_PROCESSOR arm)
include("${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake")
