# How tests are declared: one call for a GoogleTest executable, one for a Python test of whole programs.
include_guard(GLOBAL)

if(ENGR_BUILD_TESTS)
    find_package(GTest REQUIRED)
    find_package(Python3 3.9 REQUIRED COMPONENTS Interpreter)
    include(GoogleTest)
endif()

# Under these a failing test shows a stack with names and never counts as passed.
set(tsan_suppressions "${PROJECT_SOURCE_DIR}/cmake/tsan_suppressions.txt")
set(engr_test_environment
    "ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1"
    "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1"
    "TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=${tsan_suppressions}"
    "XDG_CONFIG_HOME=/nonexistent" # a tester's own files stay out
    "ENGR_BIN_DIR=${PROJECT_BINARY_DIR}/bin")

# Runs a command in a network namespace of its own; ends with 77, which means skipped, where it may not make one.
set(engr_isolated "${PROJECT_SOURCE_DIR}/tests/isolated")

# engr_add_test(NAME SOURCES file... [LIBS target...] [LABELS label...] [TIMEOUT seconds] [ISOLATED])
# Builds bin/NAME and registers each of its tests with ctest as NAME.SUITE.CASE. The timeout (120 s when left out) is
# a bound against hanging, not a measure of speed. Label no_tsan keeps a test out of the build with the thread
# sanitizer. ISOLATED gives each test a network of its own: whatever sends or hears broadcasts, or uses a fixed port,
# needs it.
function(engr_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "ISOLATED" "TIMEOUT" "SOURCES;LIBS;LABELS")
    if(arg_UNPARSED_ARGUMENTS OR NOT arg_SOURCES)
        message(FATAL_ERROR "engr_add_test(${name}): expected NAME SOURCES file... [LIBS ...] [LABELS ...] "
                            "[TIMEOUT s] [ISOLATED]; not understood: '${arg_UNPARSED_ARGUMENTS}'")
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 120)
    endif()
    if(CMAKE_CROSSCOMPILING_EMULATOR)
        math(EXPR arg_TIMEOUT "${arg_TIMEOUT} * 20")
    endif()
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE ${arg_LIBS} engr_test_main GTest::gmock GTest::gtest engr_warnings)
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
    if(arg_ISOLATED)
        # CMake's way to put a program before a test's own.
        set_target_properties(${name} PROPERTIES CROSSCOMPILING_EMULATOR
                              "${engr_isolated};${CMAKE_CROSSCOMPILING_EMULATOR}")
        list(APPEND properties SKIP_RETURN_CODE 77)
    endif()
    gtest_discover_tests(${name} TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
                         PROPERTIES ${properties})
endfunction()

# engr_add_python_test(NAME FILE [LABELS label...] [TIMEOUT seconds] [ISOLATED])
# Registers a unittest file as the ctest test NAME; it finds the built programs in the environment variable
# ENGR_BIN_DIR, and the modules that tests share in its path. ISOLATED: as above.
function(engr_add_python_test name file)
    cmake_parse_arguments(PARSE_ARGV 2 arg "ISOLATED" "TIMEOUT" "LABELS")
    if(arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "engr_add_python_test(${name}): not understood: '${arg_UNPARSED_ARGUMENTS}'")
    endif()
    if(ENGR_SANITIZE STREQUAL "thread" AND "no_tsan" IN_LIST arg_LABELS)
        return()
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 120)
    endif()
    set(launcher)
    if(arg_ISOLATED)
        set(launcher "${engr_isolated}")
    endif()
    get_filename_component(path "${file}" ABSOLUTE)
    add_test(NAME ${name}
             COMMAND ${launcher} "${Python3_EXECUTABLE}" -B "${path}" -v
             WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}")
    # Those that may take long begin first: they wait rather than work, and others fill the time.
    set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT} COST ${arg_TIMEOUT} SKIP_RETURN_CODE 77
                         ENVIRONMENT "${engr_test_environment};PYTHONPATH=${PROJECT_SOURCE_DIR}/tests"
                         LABELS "${arg_LABELS}")
endfunction()

# engr_make_faulty(OUTPUT SOURCE FROM TO [FROM TO]...)
# Writes a copy of a source with faults that a test has to find: each text FROM becomes TO. An executable that has the
# copy takes it instead of the library's own file.
function(engr_make_faulty output source)
    file(READ "${source}" text)
    set(at 2)
    while(at LESS ARGC)
        math(EXPR next "${at} + 1")
        string(REPLACE "${ARGV${at}}" "${ARGV${next}}" faulty "${text}")
        if(faulty STREQUAL text)
            message(FATAL_ERROR "${source}: a place that is made faulty for a test is gone: ${ARGV${at}}")
        endif()
        set(text "${faulty}")
        math(EXPR at "${next} + 1")
    endwhile()
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${source}")
    file(CONFIGURE OUTPUT "${output}" CONTENT "@text@" @ONLY)
endfunction()

# engr_add_fuzz_target(NAME SOURCES file... [LIBS target...])
# Builds bin/NAME, a libFuzzer program, as part of the target "fuzzers". Its first inputs lie in fuzz/corpus/NAME, its
# words in fuzz/dictionaries/NAME.dict; script/fuzz needs the sources that it is about. Nothing happens unless
# ENGR_BUILD_FUZZERS is on.
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
