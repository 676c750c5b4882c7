// Interleavings: known faults are found by chance and by search, sound stories pass, runs repeat
// themselves.
#include "sim/testing.h"

#include "platform/clock.h"
#include "platform/log.h"
#include "platform/memory.h"
#include "platform/message_bus.h"
#include "platform/mutex.h"
#include "platform/socket.h"
#include "platform/thread.h"
#include "platform/timer.h"

#include <gmock/gmock.h>

using testing::HasSubstr;

namespace {

int counter;
kelo_mutex_t first_mutex;
kelo_mutex_t second_mutex;

void add_one() {
    const int seen = counter;
    GetThrdSta(nullptr);
    counter = seen + 1;
}

void expect_two_additions(sim::world &world, const std::function<void()> &add) {
    counter = 0;
    kelo_hal_mutex_create_init(&first_mutex);
    {
        sim::test_thread one = world.spawn("one", add);
        sim::test_thread other = world.spawn("other", add);
    }
    kelo_hal_mutex_release(first_mutex);
    if (counter != 2) {
        world.problem("an addition was lost");
    }
}

void lost_update(sim::world &world) {
    expect_two_additions(world, add_one);
}

void guarded_update(sim::world &world) {
    expect_two_additions(world, [] {
        kelo_hal_mutex_lock(first_mutex);
        add_one();
        kelo_hal_mutex_unlock(first_mutex);
    });
}

void lock_both(kelo_mutex_t one, kelo_mutex_t other) {
    kelo_hal_mutex_lock(one);
    kelo_hal_mutex_lock(other);
    kelo_hal_mutex_unlock(other);
    kelo_hal_mutex_unlock(one);
}

void locks_in_both_orders(sim::world &world) {
    kelo_hal_mutex_create_init(&first_mutex);
    kelo_hal_mutex_create_init(&second_mutex);
    {
        sim::test_thread one = world.spawn("one", [] { lock_both(first_mutex, second_mutex); });
        sim::test_thread other = world.spawn("other", [] { lock_both(second_mutex, first_mutex); });
    }
    kelo_hal_mutex_release(first_mutex);
    kelo_hal_mutex_release(second_mutex);
}

void expect_found(const sim::search_result &found, const char *problem) {
    ASSERT_TRUE(found.failure) << "not found in " << found.runs << " runs: " << problem;
    ASSERT_FALSE(found.failure->problems.empty());
    EXPECT_THAT(found.failure->problems.front(), HasSubstr(problem));
}

/** Some of everything, much of it by chance. */
void busy_story(sim::world &world) {
    world.fail("Malloc", sim::odds(0.3));
    const int32_t server = kelo_hal_net_socket_create(KELO_SOCKET_TCP);
    kelo_hal_net_bind(server, KELO_ADDRESS_ANY, 4000);
    kelo_hal_net_listen(server, 5);
    sim::test_thread reader = world.spawn("reader", [server] {
        const int32_t client = kelo_hal_net_accept(server, nullptr, nullptr);
        char buffer[16];
        int32_t count = 0;
        while ((count = kelo_hal_net_recv(client, buffer, sizeof buffer)) > 0) {
            PrintLog(0, LOG_LEVEL_TRACE, "busy.c", 1, "reader", "%d bytes", count);
            kelo_hal_net_send(client, buffer, static_cast<uint32_t>(count));
        }
        kelo_hal_net_close(client);
    });
    sim::test_thread worker = world.spawn("worker", [] {
        for (int round = 0; round < 20; ++round) {
            void *block = Malloc(8);
            PrintLog(0, LOG_LEVEL_TRACE, "busy.c", 2, "worker", "%s",
                     block != nullptr ? "has" : "lacks");
            Free(block);
        }
    });
    sim::peer app = world.connect(4000);
    app.link().short_read_odds = 0.5;
    app.link().delay_ms_max = 7;
    EXPECT_TRUE(app.send(std::string(50, 'a')));
    EXPECT_EQ(app.receive(50), std::string(50, 'a'));
    app.close();
    reader.join();
    worker.join();
    kelo_hal_net_close(server);
}

uint32_t ticks;

} // namespace

TEST(schedules, a_lost_update_is_found_by_seeds_and_by_search_and_needs_one_preemption) {
    expect_found(sim::try_seeds(200, lost_update), "an addition was lost");
    EXPECT_TRUE(sim::try_all_schedules(lost_update, {.preemptions_max = 0}).complete);
    expect_found(sim::try_all_schedules(lost_update, {.preemptions_max = 1}),
                 "an addition was lost");
}

TEST(schedules, a_search_of_a_part_finds_what_happens_there_and_nothing_else) {
    const sim::search_bounds part = {.preemptions_max = 1, .whole_story = false};
    expect_found(sim::try_all_schedules(
                     [](sim::world &world) {
                         sim::begin_race();
                         lost_update(world);
                         sim::end_race();
                     },
                     part),
                 "an addition was lost");
    const sim::search_result outside = sim::try_all_schedules(lost_update, part);
    EXPECT_TRUE(outside.complete);
    EXPECT_EQ(outside.runs, 1U);
}

TEST(schedules, a_deadlock_is_found_by_seeds_and_by_search_with_the_circle_of_waits) {
    expect_found(sim::try_seeds(200, locks_in_both_orders), "deadlock");
    const sim::search_result found = sim::try_all_schedules(locks_in_both_orders);
    expect_found(found, "deadlock");
    EXPECT_THAT(found.failure->problems.front(), HasSubstr("one waits for mutex 2 (other)"));
    EXPECT_TRUE(found.failure->ended_early);
}

TEST(schedules, the_decisions_of_a_failure_repeat_it) {
    const sim::options chosen = {.quiet_points = false};
    const sim::search_result found = sim::try_all_schedules(lost_update, {}, chosen);
    ASSERT_TRUE(found.failure);
    sim::options again = chosen;
    again.decisions = found.failure->decisions;
    EXPECT_EQ(sim::run_story(again, lost_update).problems, found.failure->problems);
}

TEST(schedules, a_guarded_update_passes_every_schedule) {
    sim::expect_all_schedules(guarded_update, {.preemptions_max = 100});
    sim::expect_all_seeds(300, guarded_update);
}

TEST(schedules, the_same_seed_gives_the_same_text_and_another_seed_another) {
    const auto text = [](uint64_t seed) {
        const sim::run_result run = sim::run_story({.seed = seed, .trace = true}, busy_story);
        EXPECT_EQ(run.problems, std::vector<std::string>());
        return run.log + run.trace + run.decisions;
    };
    EXPECT_EQ(text(5), text(5));
    EXPECT_NE(text(5), text(6));
    EXPECT_THAT(text(5), HasSubstr("worker Malloc(8) = 0 (fault)"));
}

TEST(schedules, thirty_days_pass_and_the_last_moment_is_included) {
    sim::world world;
    uint16_t timer = 0;
    ticks = 0;
    sys_add_timer([](uint16_t, void *) { ++ticks; }, nullptr, &timer);
    sys_start_timer(timer, 5000, SYS_TIMER_PERIODIC);
    world.run_for(2'592'000'000);
    EXPECT_EQ(ticks, 518'400U);
    EXPECT_EQ(world.posix_s(), 1'700'000'000U + 2'592'000U);
    world.jump_posix(-100);
    EXPECT_EQ(uni_time_get_posix(), 1'700'000'000U + 2'592'000U - 100U);
    sys_delete_timer(timer);
    EXPECT_EQ(world.finish(), std::vector<std::string>());
}
