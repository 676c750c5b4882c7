// Problems that a world detects: leftovers, misuse of the contracts, stories that cannot go on.
#include "sim/testing.h"

#include "platform/clock.h"
#include "platform/critical_section.h"
#include "platform/memory.h"
#include "platform/message_bus.h"
#include "platform/mutex.h"
#include "platform/socket.h"
#include "platform/thread.h"
#include "platform/timer.h"

#include <gmock/gmock.h>

using testing::HasSubstr;

namespace {

struct problem_case {
    const char *text; /**< that the first problem contains */
    sim::story story;
};

void expect_problems(const std::vector<problem_case> &cases) {
    for (const problem_case &one : cases) {
        SCOPED_TRACE(one.text);
        const sim::run_result run = sim::run_story({.untimed_wait_ms_max = 10'000}, one.story);
        ASSERT_FALSE(run.problems.empty());
        EXPECT_THAT(run.problems.front(), HasSubstr(one.text));
    }
}

thrd_handle_t start(thrd_entry_t entry) {
    const thrd_param_t param = {0x800, 3, "worker"};
    thrd_handle_t handle = nullptr;
    CreateAndStart(&handle, nullptr, nullptr, entry, nullptr, &param);
    return handle;
}

kelo_mutex_t new_mutex() {
    kelo_mutex_t mutex = nullptr;
    kelo_hal_mutex_create_init(&mutex);
    return mutex;
}

uint16_t post_to(cmmod_callback_t callback) {
    uint16_t id = 0;
    cmmod_reg_msgcb(callback, &id);
    cmmod_post_msg(id, "x", 1);
    return id;
}

} // namespace

TEST(problems, everything_left_over_is_reported) {
    expect_problems({
        {"24 bytes of memory from call 2 of Malloc, by main at 3 ms",
         [](sim::world &world) {
             world.run_for(3);
             Free(Malloc(1));
             Malloc(24);
         }},
        {"left over: UDP socket 3",
         [](sim::world &) { kelo_hal_net_socket_create(KELO_SOCKET_UDP); }},
        {"left over: mutex 1, held by main",
         [](sim::world &) { kelo_hal_mutex_lock(new_mutex()); }},
        {"left over: thread worker, ended but not deleted",
         [](sim::world &) { start([](void *) {}); }},
        {"left over: thread worker, still running",
         [](sim::world &) { start([](void *) { kelo_hal_system_sleep(1000); }); }},
        {"left over: timer 1 of main",
         [](sim::world &) {
             uint16_t timer = 0;
             sys_add_timer([](uint16_t, void *) {}, nullptr, &timer);
         }},
        {"left over: bus registration 1",
         [](sim::world &) { post_to([](cmmod_msg_t *message) { put_rfc_data(message->rfc); }); }},
        {"left over: message block of 1 bytes",
         [](sim::world &world) {
             const uint16_t id = post_to([](cmmod_msg_t *) {});
             world.run_until_idle();
             cmmod_unreg_msgcb(id);
         }},
        {"a fault of Malloc never struck (1 calls since it was set)",
         [](sim::world &world) {
             world.fail("Malloc", sim::nth(2));
             Free(Malloc(1));
         }},
        {"a callback on the timers context has not returned",
         [](sim::world &world) {
             uint16_t timer = 0;
             sys_add_timer([](uint16_t, void *) { kelo_hal_system_sleep(1000); }, nullptr, &timer);
             sys_start_timer(timer, 1, SYS_TIMER_ONE_SHOT);
             world.run_for(1);
         }},
    });
}

TEST(problems, misuse_of_a_contract_is_reported) {
    expect_problems({
        {"Free of memory that is not in use",
         [](sim::world &) {
             void *block = Malloc(1);
             Free(block);
             Free(block);
         }},
        {"unlock of mutex 1, which nobody holds",
         [](sim::world &) { kelo_hal_mutex_unlock(new_mutex()); }},
        {"unlock of mutex 1, which other holds",
         [](sim::world &world) {
             kelo_mutex_t mutex = new_mutex();
             world.spawn("other", [mutex] { kelo_hal_mutex_lock(mutex); }).join();
             kelo_hal_mutex_unlock(mutex);
         }},
        {"lock of mutex 1, which was released",
         [](sim::world &) {
             kelo_mutex_t mutex = new_mutex();
             kelo_hal_mutex_release(mutex);
             kelo_hal_mutex_lock(mutex);
         }},
        {"GetThrdSta with the handle of thread worker, which was released",
         [](sim::world &) {
             thrd_handle_t worker = start([](void *) {});
             DeleteThrdHandle(worker);
             GetThrdSta(worker);
         }},
        {"put_rfc_data of a message block without a reference",
         [](sim::world &) {
             rfc_data_t own = {};
             put_rfc_data(&own);
         }},
    });
}

TEST(problems, stories_that_cannot_go_on_are_ended_and_reported) {
    expect_problems({
        {"the critical section is entered by the thread that holds it",
         [](sim::world &) {
             kelo_hal_critical_section_enter();
             kelo_hal_critical_section_enter();
         }},
        {"the critical section is left by a thread that does not hold it",
         [](sim::world &) { kelo_hal_critical_section_leave(); }},
        {"the critical section is held in a wait for the end of a sleep",
         [](sim::world &) {
             kelo_hal_critical_section_enter();
             kelo_hal_system_sleep(1);
         }},
        {"kelo_hal_mutex_lock never fails",
         [](sim::world &world) { world.fail("kelo_hal_mutex_lock", sim::nth(1)); }},
        {"deadlock: threads wait for each other",
         [](sim::world &) {
             kelo_mutex_t mutex = new_mutex();
             kelo_hal_mutex_lock(mutex);
             kelo_hal_mutex_lock(mutex);
         }},
        {"livelock",
         [](sim::world &world) {
             world.spawn("spinner", [] {
                 while (true) {
                     GetThrdSelfId();
                 }
             });
         }},
        {"hang: main waits for the end of thread since 0 ms",
         [](sim::world &) {
             DeleteThrdHandle(start([](void *) {
                 uint16_t timer = 0;
                 sys_add_timer([](uint16_t, void *) {}, nullptr, &timer);
                 sys_start_timer(timer, 100, SYS_TIMER_PERIODIC);
                 sim::world::current().run_until([] { return false; }, 1'000'000);
             }));
         }},
    });
}

TEST(problems, a_write_beyond_the_end_of_a_block_is_reported) {
    const auto story = [](sim::world &) {
        auto *block = static_cast<char *>(Malloc(4));
        *const_cast<volatile char *>(block + 4) = 0;
        Free(block);
    };
    // The address sanitizer, where there is one, ends the process at the write itself.
    const auto tell = [&story] {
        std::fputs(sim::run_story({}, story).problems.at(0).c_str(), stderr);
        std::abort();
    };
    EXPECT_DEATH(tell(),
                 "bytes behind the end of a block were overwritten: 4 bytes|heap-buffer-overflow");
}
