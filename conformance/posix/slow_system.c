/*
 * Stands before the C library's calls that start threads and that wait. While a thread is slow, one
 * that it starts gets time to run first, and what it waits for gets time to come before the wait.
 */
#include "slow_system.h"

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <time.h>

static _Thread_local bool is_slow;

static void make_slow(bool on) {
    is_slow = on;
}

void (*slow_system(void))(bool on) {
    return make_slow;
}

static void be_late(void) {
    const struct timespec late = {0, 30 * 1000 * 1000};
    if (is_slow) {
        nanosleep(&late, NULL);
    }
}

/** The C library's own function, stored through a pointer of any function type. */
static void find(const char *name, void *function) {
    void *const found = dlsym(RTLD_NEXT, name);
    memcpy(function, &found, sizeof found);
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *),
                   void *argument) {
    static int (*create)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
    if (create == NULL) {
        find("pthread_create", &create);
    }
    const int result = create(thread, attributes, body, argument);
    be_late();
    return result;
}

int poll(struct pollfd *watched, nfds_t count, int timeout) {
    static int (*wait)(struct pollfd *, nfds_t, int);
    if (wait == NULL) {
        find("poll", &wait);
    }
    be_late();
    return wait(watched, count, timeout);
}

int ppoll(struct pollfd *watched, nfds_t count, const struct timespec *timeout,
          const sigset_t *mask) {
    static int (*wait)(struct pollfd *, nfds_t, const struct timespec *, const sigset_t *);
    if (wait == NULL) {
        find("ppoll", &wait);
    }
    be_late();
    return wait(watched, count, timeout, mask);
}

int pthread_cond_wait(pthread_cond_t *condition, pthread_mutex_t *mutex) {
    static int (*wait)(pthread_cond_t *, pthread_mutex_t *);
    if (wait == NULL) {
        find("pthread_cond_wait", &wait);
    }
    be_late();
    return wait(condition, mutex);
}

int pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex,
                           const struct timespec *end) {
    static int (*wait)(pthread_cond_t *, pthread_mutex_t *, const struct timespec *);
    if (wait == NULL) {
        find("pthread_cond_timedwait", &wait);
    }
    be_late();
    return wait(condition, mutex, end);
}
