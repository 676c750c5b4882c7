/* Promises of the critical section and of mutexes. */
#include "kit.h"

#include "platform/critical_section.h"
#include "platform/mutex.h"
#include "platform/timer.h"

/** What two threads add to, one at a time. */
typedef struct {
    volatile unsigned count; /* guarded by the lock under check */
    kelo_mutex_t mutex;
    uint16_t timer;
    atomic_uint begun; /**< threads, which wait for each other */
    atomic_uint added; /**< how often the threads have added 1 */
} counter_t;

static void never_called(uint16_t timer, void *argument) {
    (void)timer;
    (void)argument;
}

/** The first stay is so long that another thread surely tries to come in; on a clock that stands
 * still meanwhile so many calls long. */
enum { FIRST_STAY_MS = 30, FIRST_STAY_CALLS_MAX = 200000 };

static void stay(const counter_t *counter, uint32_t milliseconds) {
    const uint64_t start = kit->now_ms();
    int calls = 0;
    do {
        sys_start_timer(counter->timer, AN_HOUR_MS, SYS_TIMER_ONE_SHOT);
        sys_stop_timer(counter->timer);
        ++calls;
    } while (kit_since(start) < milliseconds && calls < FIRST_STAY_CALLS_MAX);
}

static void add_in_critical_section(void *argument) {
    counter_t *counter = argument;
    atomic_fetch_add(&counter->begun, 1);
    while (atomic_load(&counter->begun) < 2) {
        kelo_hal_system_sleep(0);
    }
    for (uint32_t i = 0; i < kit->rounds; ++i) {
        kelo_hal_critical_section_enter();
        const unsigned read = counter->count;
        stay(counter, i == 0 ? FIRST_STAY_MS : 0);
        counter->count = read + 1;
        kelo_hal_critical_section_leave();
    }
}

void critical_section_lets_one_thread_in_at_a_time(void) {
    counter_t counter = {0, NULL, 0, 0, 0};
    kit_thread_t threads[2];
    EXPECT(sys_add_timer(never_called, NULL, &counter.timer) == 0, "expected a timer");
    kit_start(&threads[0], add_in_critical_section, &counter);
    kit_start(&threads[1], add_in_critical_section, &counter);
    kit_stop(&threads[0]);
    kit_stop(&threads[1]);
    EXPECT(counter.count == 2 * kit->rounds, "expected %u, two threads counted %u",
           (unsigned)(2 * kit->rounds), counter.count);
    EXPECT(sys_delete_timer(counter.timer) == 0, "expected the timer to be deleted");
}

/** On a busy machine a sleep of any length may take tens of milliseconds, and a thread makes fewer
 * rounds. */
enum { ROUNDS_MS_MAX = 5000 };

static void add_under_mutex(void *argument) {
    counter_t *counter = argument;
    const uint64_t start = kit->now_ms();
    for (uint32_t i = 0; i < kit->rounds && kit_since(start) < ROUNDS_MS_MAX; ++i) {
        EXPECT(kelo_hal_mutex_lock(counter->mutex) == 0, "expected a lock to return 0");
        const unsigned read = counter->count;
        kelo_hal_system_sleep(0);
        counter->count = read + 1;
        EXPECT(kelo_hal_mutex_unlock(counter->mutex) == 0, "expected an unlock to return 0");
        atomic_fetch_add(&counter->added, 1);
    }
}

void mutex_lets_one_thread_in_at_a_time(void) {
    counter_t counter = {0, NULL, 0, 0, 0};
    kit_thread_t threads[2];
    EXPECT(kelo_hal_mutex_create_init(&counter.mutex) == 0, "expected a mutex");
    kit_start(&threads[0], add_under_mutex, &counter);
    kit_start(&threads[1], add_under_mutex, &counter);
    kit_join(&threads[0]);
    kit_join(&threads[1]);
    EXPECT(counter.count == atomic_load(&counter.added), "expected %u, two threads counted %u",
           atomic_load(&counter.added), counter.count);
    EXPECT(kelo_hal_mutex_release(counter.mutex) == 0, "expected a release to return 0");
}

/** A thread that waits for a mutex which is held by the check. */
typedef struct {
    kelo_mutex_t mutex;
    atomic_bool begun;
    atomic_bool held; /**< the check holds it */
} waiter_t;

static void wait_for_mutex(void *argument) {
    waiter_t *waiter = argument;
    atomic_store(&waiter->begun, true);
    kelo_hal_system_sleep(AN_HOUR_MS); /* ended by the stop */
    kelo_hal_mutex_lock(waiter->mutex);
    EXPECT(!atomic_load(&waiter->held), "expected a lock to wait on a stopped thread, too");
    kelo_hal_mutex_unlock(waiter->mutex);
}

static void stop_it(void *argument) {
    kit_stop(argument);
}

void mutex_a_stop_does_not_end_a_wait_for_it(void) {
    waiter_t waiter = {NULL, false, true};
    kit_thread_t thread;
    kit_thread_t stopper;
    EXPECT(kelo_hal_mutex_create_init(&waiter.mutex) == 0, "expected a mutex");
    kelo_hal_mutex_lock(waiter.mutex);
    kit_start(&thread, wait_for_mutex, &waiter);
    kit_wait(&waiter.begun);
    kit_start(&stopper, stop_it, &thread);
    kelo_hal_system_sleep(30);
    EXPECT(!atomic_load(&stopper.ended),
           "expected the stop to wait for a thread that wants a lock");
    atomic_store(&waiter.held, false);
    kelo_hal_mutex_unlock(waiter.mutex);
    kit_join(&stopper);
    EXPECT(kelo_hal_mutex_release(waiter.mutex) == 0, "expected a release to return 0");
}

void mutex_null_does_nothing(void) {
    kelo_hal_mutex_lock(NULL);
    kelo_hal_mutex_unlock(NULL);
    kelo_hal_mutex_release(NULL);
}
