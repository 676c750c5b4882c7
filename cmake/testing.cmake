# How tests are declared: one call for a GoogleTest executable, one for a Python test of whole programs.
include_guard(GLOBAL)

if(ENGR_BUILD_TESTS)
    find_package(GTest REQUIRED)
    find_package(Python3 3.9 REQUIRED COMPONENTS Interpreter)
    include(GoogleTest)
endif()

# Under these a failing test shows a stack with names and never counts as passed.
set(engr_test_environment
    "ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1"
    "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1"
    "TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=${CMAKE_SOURCE_DIR}/cmake/tsan_suppressions.txt"
    "ENGR_BIN_DIR=${CMAKE_BINARY_DIR}/bin")

# engr_add_test(NAME SOURCES file... [LIBS target...] [LABELS label...] [TIMEOUT seconds] [MAIN])
# Builds bin/NAME and registers each of its tests with ctest as NAME.SUITE.CASE. MAIN: the sources have a main of
# their own (that calls RUN_ALL_TESTS), so that gtest_main is left out. The timeout (120 s when left out) is a
# bound against hanging, not a measure of speed. Label no_tsan keeps a test out of the build with the thread sanitizer.
function(engr_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "MAIN" "TIMEOUT" "SOURCES;LIBS;LABELS")
    if(arg_UNPARSED_ARGUMENTS OR NOT arg_SOURCES)
        message(FATAL_ERROR "engr_add_test(${name}): expected NAME SOURCES file... [LIBS ...] [LABELS ...] "
                            "[TIMEOUT s] [MAIN]; not understood: '${arg_UNPARSED_ARGUMENTS}'")
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 120)
    endif()
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE ${arg_LIBS} GTest::gmock GTest::gtest engr_warnings)
    if(NOT arg_MAIN)
        target_link_libraries(${name} PRIVATE GTest::gtest_main)
    endif()
    if(ENGR_SANITIZE STREQUAL "thread" AND "no_tsan" IN_LIST arg_LABELS)
        set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ON)
        return()
    endif()
    # gtest_discover_tests expands its properties three times: a list stays one value with 2^3 backslashes.
    set(kept_semicolon "\\\\\\\\\\\\\\\\;")
    string(REPLACE ";" "${kept_semicolon}" environment "${engr_test_environment}")
    string(REPLACE ";" "${kept_semicolon}" labels "${arg_LABELS}")
    set(properties TIMEOUT ${arg_TIMEOUT} ENVIRONMENT "${environment}")
    if(labels)
        list(APPEND properties LABELS "${labels}")
    endif()
    gtest_discover_tests(${name} TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
                         PROPERTIES ${properties})
endfunction()

# engr_add_python_test(NAME FILE [LABELS label...] [TIMEOUT seconds])
# Registers a unittest file as the ctest test NAME; it finds the built programs in the environment variable
# ENGR_BIN_DIR.
function(engr_add_python_test name file)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "TIMEOUT" "LABELS")
    if(ENGR_SANITIZE STREQUAL "thread" AND "no_tsan" IN_LIST arg_LABELS)
        return()
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 120)
    endif()
    get_filename_component(path "${file}" ABSOLUTE)
    add_test(NAME ${name}
             COMMAND "${Python3_EXECUTABLE}" -B "${path}" -v
             WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}")
    set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT} ENVIRONMENT "${engr_test_environment}")
    if(arg_LABELS)
        set_tests_properties(${name} PROPERTIES LABELS "${arg_LABELS}")
    endif()
endfunction()

# engr_add_fuzz_target(NAME SOURCES file... [LIBS target...])
# Builds bin/NAME, a libFuzzer program, as part of the target "fuzzers". Its seed inputs, when there are any, lie in
# fuzz/corpus/NAME. Nothing happens unless ENGR_BUILD_FUZZERS is on.
function(engr_add_fuzz_target name)
    if(NOT ENGR_BUILD_FUZZERS)
        return()
    endif()
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBS")
    add_executable(${name} EXCLUDE_FROM_ALL ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE ${arg_LIBS} engr_warnings)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    if(NOT TARGET fuzzers)
        add_custom_target(fuzzers)
    endif()
    add_dependencies(fuzzers ${name})
endfunction()
