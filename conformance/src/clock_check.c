/* Promises of sleeping and of the time of day. */
#include "kit.h"

void clock_a_sleep_lasts_its_time(void) {
    const uint64_t start = kit->now_ms();
    kelo_hal_system_sleep(20);
    EXPECT(kit_since(start) >= 20, "expected a sleep of 20 ms, it took %u",
           (unsigned)kit_since(start));
    EXPECT_IN_TIME(kit_since(start) <= 20 + kit->at_once_ms, "expected 20 ms, a sleep took %u",
                   (unsigned)kit_since(start));
}

typedef struct {
    atomic_bool begun;
    uint32_t lasted;
} sleeper_t;

static void sleep_twice(void *argument) {
    sleeper_t *sleeper = argument;
    atomic_store(&sleeper->begun, true);
    kelo_hal_system_sleep(AN_HOUR_MS);
    kelo_hal_system_sleep(AN_HOUR_MS); /* told to stop already */
}

void clock_a_stop_ends_a_sleep_at_once(void) {
    sleeper_t sleeper = {false, 0};
    kit_thread_t thread;
    kit_start(&thread, sleep_twice, &sleeper);
    kit_wait(&sleeper.begun);
    kelo_hal_system_sleep(20);
    const uint64_t start = kit->now_ms();
    kit_stop(&thread);
    EXPECT_IN_TIME(kit_at_once(start), "expected a stop to end a sleep at once, it took %u ms",
                   (unsigned)kit_since(start));
}

static void delay_when_stopped(void *argument) {
    sleeper_t *sleeper = argument;
    atomic_store(&sleeper->begun, true);
    kelo_hal_system_sleep(AN_HOUR_MS); /* ended by the stop */
    const uint64_t start = kit->now_ms();
    kelo_hal_system_delay(50);
    sleeper->lasted = kit_since(start);
}

void clock_a_delay_lasts_its_time_on_a_stopped_thread(void) {
    sleeper_t sleeper = {false, 0};
    kit_thread_t thread;
    kit_start(&thread, delay_when_stopped, &sleeper);
    kit_wait(&sleeper.begun);
    kit_stop(&thread);
    EXPECT(sleeper.lasted >= 50, "expected a delay of 50 ms, it took %u", (unsigned)sleeper.lasted);
}

void clock_the_time_of_day_goes_on(void) {
    if (kit->earliest_time == 0) {
        kit_skip("the clock of this machine is not set");
        return;
    }
    const uint64_t start = kit->now_ms();
    const uint32_t before = uni_time_get_posix();
    EXPECT(before >= kit->earliest_time, "expected a time of day from %u on, it is %u",
           (unsigned)kit->earliest_time, (unsigned)before);
    kelo_hal_system_sleep(1100);
    kelo_hal_system_delay(1000); // whole seconds
    const uint32_t passed = uni_time_get_posix() - before;
    const uint32_t slept_ms = kit_since(start);
    const uint32_t slept_s = slept_ms / 1000;
    EXPECT(slept_ms >= 2100, "expected a sleep of 1100 ms and a delay of 1000 ms, they took %u ms",
           (unsigned)slept_ms);
    EXPECT(passed >= 2 && passed <= slept_s + 1, "expected %u s to pass, the time of day tells %u",
           (unsigned)slept_s, (unsigned)passed);
}
