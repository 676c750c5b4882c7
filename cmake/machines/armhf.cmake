# ARMv7 with floating point in hardware: 32 bit, little-endian.
set(machine armhf)
set(triplet arm-linux-gnueabihf)
set(emulator qemu-arm)
set(CMAKE_SYSTEM_PROCESSOR arm)
# It would say again and again that GCC 7 passed some arguments in another way.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
include("${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake")
