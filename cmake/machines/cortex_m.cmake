# Arm Cortex-M4 without an operating system, with picolibc: an example for the toolchain file of a board.
set(CMAKE_SYSTEM_NAME Generic)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-none-eabi-gcc)
set(CMAKE_CXX_COMPILER arm-none-eabi-g++)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_POSITION_INDEPENDENT_CODE OFF)
foreach(language C CXX)
    set(CMAKE_${language}_FLAGS_INIT
        "-mcpu=cortex-m4 -mthumb --specs=picolibc.specs -ffunction-sections -fdata-sections")
endforeach()
