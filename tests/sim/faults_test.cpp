// Faults: by name, count, chance and thread; each single failure in turn.
#include "sim/testing.h"

#include "platform/memory.h"
#include "platform/mutex.h"
#include "platform/socket.h"

#include <cerrno>
#include <cstring>

namespace {

/** Which of six allocations fail, as 1 and 0. */
std::string failing_allocations() {
    std::string failing;
    for (int call = 0; call < 6; ++call) {
        void *block = Malloc(1);
        failing += block == nullptr ? '1' : '0';
        Free(block);
    }
    return failing;
}

/** Takes three blocks; leaks the first when the second cannot be had and the fault is asked for. */
void three_blocks(bool leaks) {
    void *first = Malloc(1);
    void *second = first != nullptr ? Malloc(2) : nullptr;
    void *third = second != nullptr ? Malloc(3) : nullptr;
    Free(third);
    Free(second);
    if (second != nullptr || !leaks) {
        Free(first);
    }
}

} // namespace

TEST(faults, strike_the_calls_that_they_name) {
    sim::world world({.seed = 3});
    world.fail("Malloc", sim::nth(3));
    EXPECT_EQ(failing_allocations(), "001000");
    const sim::fault_id lasting = world.fail("Malloc", sim::from_nth(5));
    EXPECT_EQ(failing_allocations(), "000011");
    EXPECT_EQ(world.strikes(lasting), 2U);
    world.clear(lasting);
    world.fail("Malloc", sim::every(), {.thread = "other"});
    EXPECT_EQ(failing_allocations(), "000000");
    std::string in_other;
    world.spawn("other", [&in_other] { in_other = failing_allocations(); }).join();
    EXPECT_EQ(in_other, "111111");
    world.clear_faults();
    world.fail("Malloc", sim::odds(0.5));
    const std::string by_chance = failing_allocations();
    EXPECT_NE(by_chance.find('1'), std::string::npos);
    EXPECT_NE(by_chance.find('0'), std::string::npos);
    EXPECT_EQ(world.calls("Malloc"), 30U);
    EXPECT_EQ(world.finish(), std::vector<std::string>());
}

TEST(faults, set_result_and_codes_and_leave_the_call_without_effect) {
    sim::world world;
    world.fail("kelo_hal_net_socket_create", sim::nth(1),
               {.result = -7, .error_code = KELO_ERR_TRY_AGAIN});
    EXPECT_EQ(kelo_hal_net_socket_create(KELO_SOCKET_TCP), -7);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(kelo_hal_net_get_errno(), KELO_ERR_TRY_AGAIN);
    kelo_mutex_t mutex = nullptr;
    world.fail("kelo_hal_mutex_create_init", sim::nth(1), {.result = -9});
    EXPECT_EQ(kelo_hal_mutex_create_init(&mutex), -9);
    EXPECT_EQ(mutex, nullptr);
    EXPECT_EQ(world.finish(), std::vector<std::string>());
}

TEST(faults, each_single_failure_is_tried_until_a_run_meets_none) {
    EXPECT_EQ(
        sim::expect_survives_each_failure("Malloc", [](sim::world &) { three_blocks(false); }), 3U);
    const auto armed_late = [](sim::world &) {
        three_blocks(false);
        sim::arm_failure();
        three_blocks(false);
    };
    EXPECT_EQ(sim::expect_survives_each_failure("Malloc", armed_late, {.from_start = false}), 3U);
}

TEST(faults, the_one_failure_that_is_not_survived_is_found) {
    const sim::search_result found =
        sim::for_each_nth_failure("Malloc", [](sim::world &) { three_blocks(true); });
    ASSERT_TRUE(found.failure);
    EXPECT_EQ(found.failure->nth, 1U + 1U);
    ASSERT_EQ(found.failure->problems.size(), 1U);
}
