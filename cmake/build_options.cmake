# Options of a build and the warnings that every target of ours is compiled with.
include_guard(GLOBAL)
# Built by itself on the desk the project has everything; inside another project, or for another machine, only what a
# board needs.
set(agent_only ON)
if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_CROSSCOMPILING)
    set(agent_only OFF)
endif()
option(ENGR_AGENT_ONLY "Build what a board needs only: agent, contracts, stub port and conformance kit" ${agent_only})
set(complete ON)
if(ENGR_AGENT_ONLY)
    set(complete OFF)
endif()
option(ENGR_LINUX_PORT "Build the Linux port; it needs the ciphers" ${complete})
option(ENGR_CIPHERS "Build crypto.h over nettle and libdeflate" ${ENGR_LINUX_PORT})
option(ENGR_BUILD_PROGRAMS "Build gatewayd, gatewayctl and engr_app; else only what the agent's tests need of them"
       ${complete})
option(ENGR_STATIC_APP "Link engr_app with static libraries only" OFF)
option(ENGR_BUILD_CONSOLE "Build gatewayd with its console, a page for a browser; it needs Boost" ON)
set(ENGR_PORT_DIR "" CACHE PATH "Directory of a port from outside, added to the build: its CMakeLists.txt")
set(ENGR_FRAME_LIMIT 2098176 CACHE STRING "A request frame of so many bytes or more is refused; 1024 to 2098176")
set(ENGR_JSON_VALUE_LIMIT "" CACHE STRING
    "Most JSON values in a request; empty: an eighth of ENGR_FRAME_LIMIT, at most 65536")
option(ENGR_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" OFF)
option(ENGR_UNITY_BUILD "Compile the gateway and the app several files at a time" OFF)
option(ENGR_BUILD_TESTS "Build the tests" ${complete})
option(ENGR_BUILD_FUZZERS "Build the fuzz targets (needs clang)" OFF)
option(ENGR_BUILD_BENCHMARKS "Build the benchmarks" OFF)
set(ENGR_SANITIZE "" CACHE STRING "Sanitizers for the whole build: empty, address or thread")
set_property(CACHE ENGR_SANITIZE PROPERTY STRINGS "" address thread)

option(ENGR_COVERAGE "Count what the tests run, for script/coverage (needs clang)" OFF)

# A compiler cache is used when there is one: the sanitizer builds and a fresh clone compile the same files again.
find_program(ENGR_CCACHE ccache)
mark_as_advanced(ENGR_CCACHE)
foreach(language C CXX)
    if(ENGR_CCACHE AND NOT DEFINED CMAKE_${language}_COMPILER_LAUNCHER)
        set(CMAKE_${language}_COMPILER_LAUNCHER "${ENGR_CCACHE}")
    endif()
endforeach()

if(PROJECT_IS_TOP_LEVEL)
    set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
    set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
    if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
        set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Kind of build" FORCE)
    endif()
endif()
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
if(NOT DEFINED CMAKE_POSITION_INDEPENDENT_CODE)
    set(CMAKE_POSITION_INDEPENDENT_CODE ON)
endif()

# Large files and disks, on Linux of 32 bits too.
if(CMAKE_SYSTEM_NAME STREQUAL "Linux" AND CMAKE_SIZEOF_VOID_P EQUAL 4)
    add_compile_definitions(_FILE_OFFSET_BITS=64)
endif()

add_library(engr_warnings INTERFACE)
target_compile_options(engr_warnings INTERFACE
    -Wall -Wextra -Wconversion -Wundef -Wvla -Wshadow
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Wold-style-cast>)
if(ENGR_WARNINGS_AS_ERRORS)
    target_compile_options(engr_warnings INTERFACE -Werror)
endif()

# The release preset makes the smallest code, for boards. On a desk what handles thousands of devices is to be fast.
add_library(engr_fast INTERFACE)
target_compile_options(engr_fast INTERFACE $<$<CONFIG:MinSizeRel>:-O2>)

if(ENGR_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
    if(ENGR_BUILD_FUZZERS)
        add_compile_options(-fsanitize=fuzzer-no-link)
    endif()
elseif(ENGR_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # It knows no fences; those of Asio stand beside locks that it does know.
        add_compile_options(-Wno-tsan)
    endif()
    add_link_options(-fsanitize=thread)
elseif(NOT ENGR_SANITIZE STREQUAL "")
    message(FATAL_ERROR "ENGR_SANITIZE is '${ENGR_SANITIZE}'; it may be empty, address or thread")
endif()

if(ENGR_COVERAGE)
    add_compile_options(-fprofile-instr-generate -fcoverage-mapping)
    add_link_options(-fprofile-instr-generate)
endif()
