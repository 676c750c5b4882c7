# Options of a build and the warnings that every target of ours is compiled with.
include_guard(GLOBAL)
option(ENGR_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" OFF)
option(ENGR_BUILD_TESTS "Build the tests" ON)
option(ENGR_BUILD_FUZZERS "Build the fuzz targets (needs clang)" OFF)
option(ENGR_BUILD_BENCHMARKS "Build the benchmarks" OFF)
set(ENGR_SANITIZE "" CACHE STRING "Sanitizers for the whole build: empty, address, thread or fuzzer")
set_property(CACHE ENGR_SANITIZE PROPERTY STRINGS "" address thread fuzzer)

# A compiler cache is used when there is one: the sanitizer builds and a fresh clone compile the same files again.
find_program(ENGR_CCACHE ccache)
mark_as_advanced(ENGR_CCACHE)
foreach(language C CXX)
    if(ENGR_CCACHE AND NOT DEFINED CMAKE_${language}_COMPILER_LAUNCHER)
        set(CMAKE_${language}_COMPILER_LAUNCHER "${ENGR_CCACHE}")
    endif()
endforeach()

add_library(engr_warnings INTERFACE)
target_compile_options(engr_warnings INTERFACE
    -Wall -Wextra -Wconversion -Wundef -Wvla
    $<$<NOT:$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>>:-Wshadow>
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Wold-style-cast>)
if(ENGR_WARNINGS_AS_ERRORS)
    target_compile_options(engr_warnings INTERFACE -Werror)
endif()

if(ENGR_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
elseif(ENGR_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # It knows no fences; those of Asio stand beside locks that it does know.
        add_compile_options(-Wno-tsan)
    endif()
    add_link_options(-fsanitize=thread)
elseif(ENGR_SANITIZE STREQUAL "fuzzer")
    add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
elseif(NOT ENGR_SANITIZE STREQUAL "")
    message(FATAL_ERROR "ENGR_SANITIZE is '${ENGR_SANITIZE}'; it may be empty, address, thread or fuzzer")
endif()
