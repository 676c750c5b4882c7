# A Linux machine that Debian has a cross compiler for, and qemu an emulator. The file of the machine sets first
#   machine   its name as script/machines knows it
#   triplet   prefix of the compilers
#   emulator  the program of qemu that runs its programs
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator} -L /usr/${triplet})

# Its libraries are those that script/machines built. Headers that are the same on each machine come from this one.
set(libraries "${CMAKE_CURRENT_LIST_DIR}/../../build/machines/${machine}/libraries")
set(CMAKE_FIND_ROOT_PATH "${libraries}" /usr/${triplet})
set(CMAKE_PREFIX_PATH /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(ENV{PKG_CONFIG_LIBDIR} "${libraries}/lib/pkgconfig")
