# How a port's conformance is made part of ctest; also installed with the package EngrLanAgent.
include_guard(GLOBAL)

if(NOT ENGR_PROMISES)
    set(ENGR_PROMISES "${CMAKE_CURRENT_LIST_DIR}/../conformance/include/conformance/promises.def")
endif()

# engr_add_conformance_tests(TARGET [LAUNCHER command...] [LABELS label...] [TIMEOUT seconds])
# Registers each promise of the contracts with ctest as TARGET.GROUP.PROMISE. TARGET is a program whose main calls
# conformance_main. LAUNCHER stands before it: an emulator, or what loads it onto a board. A promise that the harness
# can't look at shows as skipped.
function(engr_add_conformance_tests target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "LAUNCHER;LABELS")
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 120)
    endif()
    if(CMAKE_CROSSCOMPILING_EMULATOR)
        math(EXPR arg_TIMEOUT "${arg_TIMEOUT} * 20")
    endif()
    set(launcher ${arg_LAUNCHER} ${CMAKE_CROSSCOMPILING_EMULATOR})
    # With a sanitizer a request for more memory than there is would end the program.
    set(no_memory ASAN_OPTIONS=allocator_may_return_null=1 TSAN_OPTIONS=allocator_may_return_null=1)
    file(STRINGS "${ENGR_PROMISES}" promises REGEX "^PROMISE")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${ENGR_PROMISES}")
    foreach(promise IN LISTS promises)
        string(REGEX REPLACE "PROMISE\\(([a-z0-9_]+), ([a-z0-9_]+)\\)" "\\1.\\2" promise "${promise}")
        add_test(NAME ${target}.${promise} COMMAND ${launcher} $<TARGET_FILE:${target}> ${promise})
        set_tests_properties(${target}.${promise} PROPERTIES TIMEOUT ${arg_TIMEOUT} SKIP_RETURN_CODE 77
                             LABELS "${arg_LABELS}" ENVIRONMENT "${no_memory}")
    endforeach()
endfunction()
