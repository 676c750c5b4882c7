/* Promises of timers. */
#include "kit.h"

#include "platform/timer.h"

/** A timer, what its callback does, and what it noted. */
typedef struct kit_timer {
    uint16_t id;
    atomic_uint expiries;
    void (*action)(struct kit_timer *timer); /**< or null */
    struct kit_timer *other;
    uint64_t expired_at;
    uint64_t context;
    int32_t runs_inside;
    atomic_bool entered;
    atomic_bool left;
} kit_timer_t;

static atomic_uint inside; /**< callbacks that run */

static void expire(uint16_t id, void *argument) {
    kit_timer_t *timer = argument;
    EXPECT(atomic_fetch_add(&inside, 1) == 0, "expected one callback at a time");
    EXPECT(id == timer->id, "expected a callback to be given its timer's id");
    timer->expired_at = kit->now_ms();
    timer->context = GetThrdSelfId();
    if (timer->action != NULL) {
        timer->action(timer);
    }
    atomic_fetch_sub(&inside, 1);
    atomic_fetch_add(&timer->expiries, 1);
}

static void add(kit_timer_t *timer, void (*action)(kit_timer_t *timer)) {
    memset(timer, 0, sizeof *timer);
    timer->action = action;
    EXPECT(sys_add_timer(expire, timer, &timer->id) == 0, "expected a timer");
    EXPECT(timer->id != 0, "expected no timer to have id 0");
}

static void start(kit_timer_t *timer, uint32_t milliseconds, int32_t type) {
    EXPECT(sys_start_timer(timer->id, milliseconds, type) == 0, "expected a timer to start");
}

static void drop(kit_timer_t *timer) {
    EXPECT(sys_delete_timer(timer->id) == 0, "expected a timer to be deleted");
}

/** Lets everything happen that is due within that time: a timer started now expires after it. */
static void pass(uint32_t milliseconds) {
    kit_timer_t marker;
    add(&marker, NULL);
    start(&marker, milliseconds, SYS_TIMER_ONE_SHOT);
    EXPECT(kit_wait_count(&marker.expiries, 1), "expected a timer to expire");
    drop(&marker);
}

static void look_whether_it_runs(kit_timer_t *timer) {
    timer->runs_inside = IsThisSysTimerRun(timer->id);
}

void timer_a_one_shot_expires_once_and_not_early(void) {
    kit_timer_t timer;
    add(&timer, look_whether_it_runs);
    EXPECT(IsThisSysTimerRun(timer.id) == 0, "expected a new timer not to run");
    const uint64_t begin = kit->now_ms();
    start(&timer, 20, SYS_TIMER_ONE_SHOT);
    EXPECT(IsThisSysTimerRun(timer.id) == 1 || kit_since(begin) >= 20,
           "expected a started timer to run");
    EXPECT(kit_wait_count(&timer.expiries, 1), "expected a timer to expire");
    EXPECT(timer.expired_at - begin >= 20, "expected 20 ms, a timer expired after %u",
           (unsigned)(timer.expired_at - begin));
    EXPECT_IN_TIME(timer.expired_at - begin <= 20 + kit->at_once_ms,
                   "expected 20 ms, a timer expired after %u",
                   (unsigned)(timer.expired_at - begin));
    EXPECT(timer.runs_inside == 0, "expected a one-shot to count as stopped in its callback");
    pass(40);
    EXPECT(atomic_load(&timer.expiries) == 1, "expected a one-shot to expire once");
    drop(&timer);
}

static void stop_at_third(kit_timer_t *timer) {
    timer->runs_inside = IsThisSysTimerRun(timer->id);
    if (atomic_load(&timer->expiries) == 2) {
        EXPECT(sys_stop_timer(timer->id) == 0, "expected a callback to stop its timer");
    }
}

void timer_a_periodic_one_expires_until_stopped(void) {
    kit_timer_t timer;
    add(&timer, stop_at_third);
    const uint64_t begin = kit->now_ms();
    start(&timer, 10, SYS_TIMER_PERIODIC);
    EXPECT(kit_wait_count(&timer.expiries, 3), "expected a periodic timer to go on");
    EXPECT(timer.expired_at - begin >= 30, "expected three periods of 10 ms to take 30, not %u",
           (unsigned)(timer.expired_at - begin));
    EXPECT(timer.runs_inside == 1, "expected a periodic timer to run in its callback");
    pass(30);
    EXPECT(atomic_load(&timer.expiries) == 3, "expected a stopped timer not to expire");
    EXPECT(IsThisSysTimerRun(timer.id) == 0, "expected a stopped timer not to run");
    drop(&timer);
}

static void take_long_at_first(kit_timer_t *timer) {
    if (atomic_load(&timer->expiries) == 0) {
        kelo_hal_system_sleep(105); /* ten periods and a half */
    }
}

void timer_missed_expiries_are_not_made_up_for(void) {
    kit_timer_t timer;
    add(&timer, take_long_at_first);
    const uint64_t begin = kit->now_ms();
    start(&timer, 10, SYS_TIMER_PERIODIC);
    EXPECT(kit_wait_count(&timer.expiries, 4), "expected a periodic timer to go on");
    /* The first, the one that came due meanwhile, and two that are a period apart. */
    EXPECT(kit_since(begin) >= 10 + 105 + 10, "expected missed expiries to be left out");
    drop(&timer);
}

void timer_stopped_and_restarted_ones_forget_the_old_time(void) {
    kit_timer_t stopped;
    kit_timer_t restarted;
    kit_timer_t deleted;
    add(&stopped, NULL);
    add(&restarted, NULL);
    add(&deleted, NULL);
    const uint64_t begin = kit->now_ms();
    start(&stopped, 200, SYS_TIMER_ONE_SHOT);
    start(&restarted, 200, SYS_TIMER_ONE_SHOT);
    start(&restarted, AN_HOUR_MS, SYS_TIMER_ONE_SHOT);
    start(&deleted, 200, SYS_TIMER_ONE_SHOT);
    drop(&deleted);
    EXPECT(sys_stop_timer(stopped.id) == 0, "expected a timer to be stopped");
    if (EXPECT_IN_TIME(kit_since(begin) < 200, "expected the old times to lie ahead still")) {
        pass(300);
        EXPECT(atomic_load(&stopped.expiries) == 0, "expected a stopped timer not to expire");
        EXPECT(atomic_load(&restarted.expiries) == 0, "expected a restart to replace the old time");
        EXPECT(atomic_load(&deleted.expiries) == 0, "expected a deleted timer not to expire");
    }
    EXPECT(IsThisSysTimerRun(restarted.id) == 1, "expected a restarted timer to run");
    drop(&stopped);
    drop(&restarted);
}

static void linger(kit_timer_t *timer) {
    atomic_store(&timer->entered, true);
    kelo_hal_system_sleep(50);
    atomic_store(&timer->left, true);
}

void timer_a_deletion_waits(void) {
    kit_timer_t timer;
    add(&timer, linger);
    start(&timer, 1, SYS_TIMER_ONE_SHOT);
    kit_wait(&timer.entered);
    drop(&timer);
    EXPECT(atomic_load(&timer.left), "expected the callback to be over when the deletion returns");
    pass(1);
}

static void delete_itself(kit_timer_t *timer) {
    drop(timer);
    start(timer->other, 1, SYS_TIMER_ONE_SHOT);
}

void timer_a_callback_may_delete_its_own_timer(void) {
    kit_timer_t first;
    kit_timer_t second;
    add(&first, delete_itself);
    add(&second, NULL);
    first.other = &second;
    start(&first, 1, SYS_TIMER_PERIODIC);
    EXPECT(kit_wait_count(&second.expiries, 1), "expected a callback to start another timer");
    EXPECT(atomic_load(&first.expiries) == 1, "expected a deleted timer to expire no more");
    drop(&second);
}

void timer_callbacks_run_one_after_the_other(void) {
    enum { TIMERS = 3 };
    kit_timer_t timers[TIMERS];
    for (int i = 0; i < TIMERS; ++i) {
        add(&timers[i], linger);
        start(&timers[i], 10, SYS_TIMER_ONE_SHOT);
    }
    for (int i = 0; i < TIMERS; ++i) {
        EXPECT(kit_wait_count(&timers[i].expiries, 1), "expected each timer to expire");
        EXPECT(timers[i].context == timers[0].context, "expected one context for all callbacks");
        drop(&timers[i]);
    }
}

void timer_ids_come_back_late_and_never_while_in_use(void) {
    enum { LATE = 1000 };
    kit_timer_t living;
    add(&living, NULL);
    uint16_t first = 0;
    for (uint32_t i = 0; i < kit->ids; ++i) {
        kit_timer_t timer;
        add(&timer, NULL);
        first = i == 0 ? timer.id : first;
        EXPECT(timer.id != living.id, "expected an id in use not to be given again");
        EXPECT(i == 0 || i >= LATE || timer.id != first, "expected an id not to come back at once");
        drop(&timer);
    }
    drop(&living);
}

void timer_wrong_uses_fail(void) {
    kit_timer_t timer;
    uint16_t id = 7;
    EXPECT(sys_add_timer(NULL, NULL, &id) != 0, "expected a timer without callback to be refused");
    EXPECT(id == 7, "expected a refusal to leave the id");
    add(&timer, NULL);
    EXPECT(sys_start_timer(timer.id, 0, SYS_TIMER_ONE_SHOT) != 0, "expected 0 ms to be refused");
    EXPECT(sys_start_timer(timer.id, 10, 2) != 0, "expected an unknown type to be refused");
    drop(&timer);
    EXPECT(sys_delete_timer(timer.id) != 0, "expected an unknown id to be refused");
    EXPECT(sys_start_timer(timer.id, 10, SYS_TIMER_ONE_SHOT) != 0,
           "expected an unknown id to be refused");
    EXPECT(sys_stop_timer(timer.id) != 0, "expected an unknown id to be refused");
    EXPECT(IsThisSysTimerRun(timer.id) == 0, "expected an unknown timer not to run");
}
