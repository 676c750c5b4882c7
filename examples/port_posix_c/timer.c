/* Timers: one context runs all callbacks; a condition tells it and those who wait for it. */
#include "internal.h"

#include "platform/timer.h"

#include <pthread.h>
#include <stddef.h>
#include <time.h>

enum { TIMERS_MAX = 64 };

struct timer {
    uint16_t id; /**< 0: free */
    int runs;
    int64_t due;
    uint32_t period; /**< 0: one-shot */
    sys_timer_callback_t callback;
    void *argument;
};

static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t changed; /**< a timer was started, or a callback has returned */
static struct timer timers[TIMERS_MAX];
static uint16_t last_id;
static uint16_t running_id; /**< whose callback runs; 0: none */
static int has_context;
static pthread_t context;

static struct timer *find(uint16_t id) {
    for (int i = 0; i < TIMERS_MAX; ++i) {
        if (id != 0 && timers[i].id == id) {
            return &timers[i];
        }
    }
    return NULL;
}

static struct timer *next_due(void) {
    struct timer *next = NULL;
    for (int i = 0; i < TIMERS_MAX; ++i) {
        struct timer *timer = &timers[i];
        if (timer->id != 0 && timer->runs && (next == NULL || timer->due < next->due)) {
            next = timer;
        }
    }
    return next;
}

static void expire(struct timer *timer) {
    const int64_t now = port_now_ms();
    const struct timer expired = *timer;
    timer->runs = timer->period != 0;
    timer->due += timer->period;
    if (timer->due <= now) {
        timer->due = now + timer->period; /* missed expiries are left out */
    }
    running_id = expired.id;
    pthread_mutex_unlock(&mutex);
    expired.callback(expired.id, expired.argument);
    pthread_mutex_lock(&mutex);
    running_id = 0;
    pthread_cond_broadcast(&changed);
}

static void *run(void *unused) {
    (void)unused;
    pthread_mutex_lock(&mutex);
    context = pthread_self();
    for (;;) {
        struct timer *next = next_due();
        if (next == NULL) {
            pthread_cond_wait(&changed, &mutex);
        } else if (next->due > port_now_ms()) {
            const struct timespec until = {(time_t)(next->due / 1000),
                                           (long)(next->due % 1000) * 1000000};
            pthread_cond_timedwait(&changed, &mutex, &until);
        } else {
            expire(next);
        }
    }
    return NULL;
}

static int start_context(void) {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&changed, &attributes);
    pthread_condattr_destroy(&attributes);
    return port_start_context(run);
}

/** An id that no timer has, as late as possible after its last use. */
static uint16_t new_id(void) {
    do {
        ++last_id;
    } while (last_id == 0 || find(last_id) != NULL);
    return last_id;
}

int32_t sys_add_timer(sys_timer_callback_t callback, void *argument, uint16_t *timer_id) {
    int32_t result = -1;
    pthread_mutex_lock(&mutex);
    if (callback != NULL && !has_context) {
        has_context = start_context() == 0;
    }
    for (int i = 0; i < TIMERS_MAX && result != 0 && callback != NULL && has_context; ++i) {
        if (timers[i].id == 0) {
            timers[i] = (struct timer){new_id(), 0, 0, 0, callback, argument};
            *timer_id = timers[i].id;
            result = 0;
        }
    }
    pthread_mutex_unlock(&mutex);
    return result;
}

int32_t sys_start_timer(uint16_t timer_id, uint32_t milliseconds, int32_t type) {
    if (milliseconds == 0 || (type != SYS_TIMER_ONE_SHOT && type != SYS_TIMER_PERIODIC)) {
        return -1;
    }
    pthread_mutex_lock(&mutex);
    struct timer *timer = find(timer_id);
    if (timer != NULL) {
        timer->runs = 1;
        timer->due = port_now_ms() + milliseconds + 1; /* the clock was rounded down */
        timer->period = type == SYS_TIMER_PERIODIC ? milliseconds : 0;
        pthread_cond_broadcast(&changed);
    }
    pthread_mutex_unlock(&mutex);
    return timer != NULL ? 0 : -1;
}

int32_t sys_stop_timer(uint16_t timer_id) {
    pthread_mutex_lock(&mutex);
    struct timer *timer = find(timer_id);
    if (timer != NULL) {
        timer->runs = 0;
    }
    pthread_mutex_unlock(&mutex);
    return timer != NULL ? 0 : -1;
}

int32_t sys_delete_timer(uint16_t timer_id) {
    pthread_mutex_lock(&mutex);
    struct timer *timer = find(timer_id);
    if (timer != NULL) {
        timer->id = 0;
        while (running_id == timer_id && !pthread_equal(context, pthread_self())) {
            pthread_cond_wait(&changed, &mutex);
        }
    }
    pthread_mutex_unlock(&mutex);
    return timer != NULL ? 0 : -1;
}

int32_t IsThisSysTimerRun(uint16_t timer_id) {
    pthread_mutex_lock(&mutex);
    const struct timer *timer = find(timer_id);
    const int32_t runs = timer != NULL && timer->runs ? 1 : 0;
    pthread_mutex_unlock(&mutex);
    return runs;
}
