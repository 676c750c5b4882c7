/*
 * Runs each test in its own process, as ctest does: the agent is a module with state, and a
 * test that found what another one left there would depend on their order. A filter that names one
 * test, and the option
 * --in_process, keep everything in this process, for a debugger.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

/** What is kept of GoogleTest's output when each test is a separate run. */
class one_test_printer : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo &test) override {
        std::cout << "[ RUN      ] " << test.test_suite_name() << '.' << test.name() << std::endl;
    }
    void OnTestPartResult(const testing::TestPartResult &result) override {
        if (!result.passed()) {
            std::cout << result << std::flush;
        }
    }
    void OnTestEnd(const testing::TestInfo &test) override {
        const testing::TestResult &result = *test.result();
        std::cout << (result.Failed()    ? "[  FAILED  ] "
                      : result.Skipped() ? "[  SKIPPED ] "
                                         : "[       OK ] ")
                  << test.test_suite_name() << '.' << test.name() << " (" << result.elapsed_time()
                  << " ms)" << std::endl;
    }
};

/** Full names of the tests that the options select. */
std::vector<std::string> selected_tests() {
    // Only a listing applies GoogleTest's filter without running anything.
    GTEST_FLAG_SET(list_tests, true);
    testing::internal::CaptureStdout();
    [[maybe_unused]] const int listed = RUN_ALL_TESTS();
    testing::internal::GetCapturedStdout();
    GTEST_FLAG_SET(list_tests, false);

    std::vector<std::string> names;
    const testing::UnitTest &all = *testing::UnitTest::GetInstance();
    for (int at = 0; at < all.total_test_suite_count(); ++at) {
        const testing::TestSuite &suite = *all.GetTestSuite(at);
        for (int test = 0; test < suite.total_test_count(); ++test) {
            if (suite.GetTestInfo(test)->should_run()) {
                names.push_back(std::string(suite.name()) + "." + suite.GetTestInfo(test)->name());
            }
        }
    }
    return names;
}

/** In the process of one test. */
[[noreturn]] void run_here(const std::string &name) {
    GTEST_FLAG_SET(filter, name);
    testing::TestEventListeners &listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new one_test_printer);
    std::exit(RUN_ALL_TESTS());
}

bool passes(const std::string &name) {
    std::cout << std::flush;
    const pid_t child = fork();
    if (child == 0) {
        run_here(name);
    }
    int status = -1;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        std::perror("no process for a test");
        return false;
    }
    if (WIFSIGNALED(status)) {
        std::cout << "[  FAILED  ] " << name << ": ended by signal " << WTERMSIG(status) << ", "
                  << strsignal(WTERMSIG(status)) << std::endl;
    }
    return status == 0;
}

int run_each_in_its_process() {
    std::vector<std::string> names = selected_tests();
    if (GTEST_FLAG_GET(shuffle)) {
        const int32_t seed = GTEST_FLAG_GET(random_seed);
        std::shuffle(names.begin(), names.end(), std::mt19937(static_cast<uint32_t>(seed)));
        GTEST_FLAG_SET(shuffle, false);
    }
    std::vector<std::string> failed;
    for (const std::string &name : names) {
        if (!passes(name)) {
            failed.push_back(name);
        }
    }
    std::cout << "[==========] " << names.size() << " tests ran, " << failed.size() << " failed."
              << std::endl;
    for (const std::string &name : failed) {
        std::cout << "[  FAILED  ] " << name << '\n';
    }
    return failed.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char **argv) {
    testing::InitGoogleMock(&argc, argv);
    const bool in_process = argc > 1 && std::string_view(argv[1]) == "--in_process";
    if (argc > (in_process ? 2 : 1)) {
        std::cerr << argv[0] << ": unknown option " << argv[in_process ? 2 : 1] << '\n';
        return 2;
    }
    const bool several = GTEST_FLAG_GET(filter).find_first_of("*?:-") != std::string::npos;
    if (in_process || !several || GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    int result = EXIT_SUCCESS;
    // A negative count means for ever, as it does to GoogleTest.
    const int repeat = GTEST_FLAG_GET(repeat);
    GTEST_FLAG_SET(repeat, 1);
    for (int left = repeat; left != 0 && result == EXIT_SUCCESS; left -= left > 0 ? 1 : 0) {
        result = run_each_in_its_process();
    }
    return result;
}
