// Contracts of threads, sleeping, mutexes and the log's promises to its callers.
#include "contract_test.h"

#include "platform/log.h"
#include "platform/mutex.h"

#include <cerrno>
#include <cstring>
#include <vector>

namespace contract_tests {

namespace {

using thread_contract = contract_test;

std::vector<std::string> &steps() {
    static std::vector<std::string> instance;
    return instance;
}

thrd_handle_t shared_handle = nullptr;

} // namespace

TEST_F(thread_contract, the_handle_is_stored_before_hooks_and_body_run_in_order) {
    port->run([&] {
        steps().clear();
        const thrd_param_t param{0x800, 3, "a_name_longer_than_fifteen"};
        const auto running = [] { return GetThrdSta(shared_handle) == THRD_STATE_RUNNING; };
        static std::atomic<bool> left;
        left = false;
        static const auto note = [running](const char *step) {
            steps().push_back(running() ? step : "no handle yet");
        };
        ASSERT_EQ(CreateAndStart(
                      &shared_handle, [] { note("enter"); },
                      [] {
                          note("leave");
                          left = true;
                      },
                      [](void *argument) { note(static_cast<const char *>(argument)); },
                      const_cast<char *>("body"), &param),
                  0);
        EXPECT_TRUE(wait_until([] { return left.load(); }));
        EXPECT_EQ(DeleteThrdHandle(shared_handle), 0);
        EXPECT_EQ(steps(), (std::vector<std::string>{"enter", "body", "leave"}));
    });
}

TEST_F(thread_contract, a_stop_ends_a_sleep_at_once_and_waits_for_the_body) {
    port->run([&] {
        std::atomic<bool> asleep{false};
        std::atomic<bool> left{false};
        std::atomic<port_thread *> self{nullptr};
        port_thread thread([&] {
            asleep = true;
            kelo_hal_system_sleep(an_hour_ms);
            EXPECT_EQ(GetThrdSta(self.load()->handle), THRD_STATE_STOPPING);
            kelo_hal_system_sleep(an_hour_ms);
            left = true;
        });
        self = &thread;
        EXPECT_TRUE(wait_until([&] { return asleep.load(); }));
        const uint64_t start = port->now_ms();
        EXPECT_EQ(DeleteThrdHandle(thread.handle), 0);
        thread.handle = nullptr;
        EXPECT_TRUE(left) << "the call returned before the body";
        EXPECT_LT(port->now_ms() - start, expectation_bound_ms);
    });
}

TEST_F(thread_contract, a_thread_may_stop_itself) {
    port->run([&] {
        std::atomic<bool> ended{false};
        struct story {
            thrd_handle_t handle;
            std::atomic<bool> *ended;
        } told{nullptr, &ended};
        const thrd_param_t param{0x800, 3, "own_end"};
        ASSERT_EQ(CreateAndStart(
                      &told.handle, nullptr, nullptr,
                      [](void *argument) {
                          auto *mine = static_cast<story *>(argument);
                          EXPECT_EQ(DeleteThrdHandle(mine->handle), 0);
                          EXPECT_EQ(GetThrdSta(mine->handle), THRD_STATE_STOPPING);
                          kelo_hal_system_sleep(an_hour_ms);
                          *mine->ended = true;
                      },
                      &told, &param),
                  0);
        EXPECT_TRUE(wait_until([&] { return ended.load(); }));
    });
}

TEST_F(thread_contract, each_thread_has_its_identity_and_at_least_the_stack_it_asked_for) {
    port->run([&] {
        static std::atomic<uint64_t> other;
        other = 0;
        constexpr uint32_t stack_size = 1024 * 1024;
        const thrd_param_t param{stack_size, 0, "deep"};
        thrd_handle_t handle = nullptr;
        ASSERT_EQ(CreateAndStart(
                      &handle, nullptr, nullptr,
                      [](void *) {
                          volatile char used[stack_size - 4096];
                          for (size_t i = 0; i < sizeof used; i += 1024) {
                              used[i] = 1;
                          }
                          other = GetThrdSelfId();
                      },
                      nullptr, &param),
                  0);
        EXPECT_TRUE(wait_until([] { return other != 0; }));
        EXPECT_NE(GetThrdSelfId(), 0u);
        EXPECT_NE(GetThrdSelfId(), other);
        EXPECT_EQ(GetThrdSelfId(), GetThrdSelfId());
        EXPECT_EQ(DeleteThrdHandle(handle), 0);
    });
}

TEST_F(thread_contract, null_handles_do_nothing_and_a_failed_creation_leaves_null) {
    port->run([&] {
        EXPECT_EQ(DeleteThrdHandle(nullptr), 0);
        EXPECT_EQ(GetThrdSta(nullptr), THRD_STATE_STOPPING);
        kelo_hal_mutex_lock(nullptr);
        kelo_hal_mutex_unlock(nullptr);
        kelo_hal_mutex_release(nullptr);
        const thrd_param_t param{0x800, 3, "none"};
        thrd_handle_t handle = nullptr;
        EXPECT_LT(CreateAndStart(&handle, nullptr, nullptr, nullptr, nullptr, &param), 0);
        EXPECT_EQ(handle, nullptr);
    });
}

TEST_F(thread_contract, a_mutex_lets_one_thread_in_at_a_time) {
    port->run([&] {
        kelo_mutex_t mutex = nullptr;
        ASSERT_EQ(kelo_hal_mutex_create_init(&mutex), 0);
        int count = 0;
        const auto add = [&] {
            for (int i = 0; i < 200; i++) {
                kelo_hal_mutex_lock(mutex);
                const int read = count;
                kelo_hal_system_sleep(0);
                count = read + 1;
                kelo_hal_mutex_unlock(mutex);
            }
        };
        port_thread first(add);
        port_thread second(add);
        EXPECT_TRUE(wait_until([&] { return first.ended && second.ended; }));
        EXPECT_EQ(count, 400);
        EXPECT_EQ(kelo_hal_mutex_release(mutex), 0);
    });
}

TEST_F(thread_contract, a_sleep_lasts_its_time_and_a_log_line_changes_no_error_code) {
    port->run([&] {
        const uint64_t start = port->now_ms();
        kelo_hal_system_sleep(20);
        EXPECT_GE(port->now_ms() - start, 20u);
        EXPECT_LT(kelo_hal_net_close(0x7FFFFFFE), 0);
        errno = EDOM;
        PrintLog(LOG_MODULE_AGENT, LOG_LEVEL_FAILURE, "file.cpp", 1, "function", "%s %d", "text",
                 5);
        EXPECT_EQ(errno, EDOM);
        EXPECT_EQ(kelo_hal_net_get_errno(), KELO_ERR_BAD_SOCKET);
    });
}

} // namespace contract_tests
