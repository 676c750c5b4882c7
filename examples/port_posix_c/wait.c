/* Waiting, which a stop of the thread ends; the clock; the port's own contexts. */
#include "internal.h"

#include "platform/clock.h"

#include <errno.h>
#include <pthread.h>
#include <sched.h>
#include <stddef.h>
#include <time.h>

static _Thread_local int stop_event = -1;

void port_set_stop_event(int descriptor) {
    stop_event = descriptor;
}

int64_t port_now_ms(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

enum wake port_wait(struct pollfd *watched, nfds_t count, int64_t until) {
    watched[count] = (struct pollfd){stop_event, POLLIN, 0};
    for (;;) {
        const int64_t now = port_now_ms();
        const int64_t left = until > now ? until - now : 0;
        const int time = until == INT64_MAX ? -1 : left > 3600000 ? 3600000 : (int)left;
        const int ready = poll(watched, count + 1, time);
        if (ready > 0) {
            return watched[count].revents != 0 ? WAKE_STOPPED : WAKE_READY;
        }
        if (ready == 0 && port_now_ms() >= until) {
            return WAKE_TIME;
        }
        if (ready < 0 && errno != EINTR) {
            return WAKE_READY; /* what is wrong shows in the call that follows */
        }
    }
}

int port_is_stopped(void) {
    struct pollfd watched = {stop_event, POLLIN, 0};
    return stop_event >= 0 && poll(&watched, 1, 0) > 0;
}

int port_start_context(void *(*body)(void *)) {
    pthread_t thread;
    const int error = pthread_create(&thread, NULL, body, NULL);
    if (error == 0) {
        pthread_detach(thread);
    }
    return error;
}

uint32_t uni_time_get_posix(void) {
    return (uint32_t)time(NULL);
}

void kelo_hal_system_sleep(uint32_t milliseconds) {
    struct pollfd none[1];
    if (milliseconds == 0) {
        sched_yield();
    } else {
        (void)port_wait(none, 0, port_now_ms() + milliseconds + 1);
    }
}

void kelo_hal_system_delay(uint32_t milliseconds) {
    struct timespec left = {(time_t)(milliseconds / 1000), (long)(milliseconds % 1000) * 1000000};
    if (milliseconds == 0) {
        sched_yield();
    }
    while (milliseconds != 0 && clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
    }
}
