# With ENGR_STATIC_APP engr_app is one file that needs nothing of the system that it runs on: it starts in half the
# time and can be copied to any Linux of the same processor. Everything else keeps the shared libraries.
include_guard(GLOBAL)

# engr_link_static(TARGET): links a program with the static libraries of all that engr_static_or_shared() has declared.
function(engr_link_static target)
    set_target_properties(${target} PROPERTIES ENGR_STATIC ON)
    target_link_options(${target} PRIVATE -static-pie)
    if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64") # the linker has it for few others
        # Relocations take less room and time in this form (DT_RELR).
        target_link_options(${target} PRIVATE -Wl,-z,pack-relative-relocs)
    endif()
endfunction()

# engr_static_or_shared(NAME SHARED FILE): makes the target NAME, which is the target SHARED, or the file FILE in a
# program that is linked statically.
function(engr_static_or_shared name shared file)
    if(TARGET ${name})
        return()
    endif()
    add_library(${name} INTERFACE)
    if(ENGR_STATIC_APP)
        find_library(${name}_static NAMES ${file} REQUIRED)
        mark_as_advanced(${name}_static)
        target_link_libraries(${name} INTERFACE
            "$<IF:$<BOOL:$<TARGET_PROPERTY:ENGR_STATIC>>,${${name}_static},${shared}>")
    else()
        target_link_libraries(${name} INTERFACE ${shared})
    endif()
endfunction()

# Debian has no static fmt: where it is wanted it is compiled along.
find_package(fmt REQUIRED)
add_library(engr_fmt INTERFACE)
target_link_libraries(engr_fmt INTERFACE $<IF:$<BOOL:${ENGR_STATIC_APP}>,fmt::fmt-header-only,fmt::fmt>)
