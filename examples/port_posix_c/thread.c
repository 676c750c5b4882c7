/* Threads: each has a pipe that its stop makes readable, so that every wait can watch it. */
#include "internal.h"

#include "platform/memory.h"
#include "platform/thread.h"

#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <unistd.h>

/** What the port's calls, printf and the handlers need beside what the caller asks for. */
enum { OWN_STACK = 128 * 1024 };

struct kelo_thread {
    pthread_t thread;
    int stop[2];
    atomic_int is_stopped;
    int ends_itself; /**< stopped by itself: releases its own record */
    thrd_hook_t enter;
    thrd_hook_t leave;
    thrd_entry_t entry;
    void *argument;
    char name[16];
};

static _Thread_local struct kelo_thread *self;

static void release(struct kelo_thread *thread) {
    close(thread->stop[0]);
    close(thread->stop[1]);
    Free(thread);
}

static void *run(void *argument) {
    struct kelo_thread *thread = argument;
    self = thread;
    port_set_stop_event(thread->stop[0]);
    pthread_setname_np(pthread_self(), thread->name);
    if (thread->enter != NULL) {
        thread->enter();
    }
    thread->entry(thread->argument);
    if (thread->leave != NULL) {
        thread->leave();
    }
    if (thread->ends_itself) {
        port_set_stop_event(-1);
        release(thread);
    }
    return NULL;
}

int32_t CreateAndStart(thrd_handle_t *handle, thrd_hook_t enter, thrd_hook_t leave,
                       thrd_entry_t entry, void *argument, const thrd_param_t *param) {
    *handle = NULL;
    if (entry == NULL || param == NULL) {
        return -1;
    }
    struct kelo_thread *thread = Malloc(sizeof *thread);
    if (thread == NULL) {
        return -1;
    }
    if (pipe2(thread->stop, O_CLOEXEC | O_NONBLOCK) != 0) {
        Free(thread);
        return -1;
    }
    atomic_init(&thread->is_stopped, 0);
    thread->ends_itself = 0;
    thread->enter = enter;
    thread->leave = leave;
    thread->entry = entry;
    thread->argument = argument;
    snprintf(thread->name, sizeof thread->name, "%s", param->name != NULL ? param->name : "");

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    const size_t page = 4096;
    pthread_attr_setstacksize(&attributes,
                              (OWN_STACK + (size_t)param->stack_size + page - 1) / page * page);
    *handle = thread; /* before it runs */
    const int error = pthread_create(&thread->thread, &attributes, run, thread);
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        *handle = NULL;
        release(thread);
        return -1;
    }
    return 0;
}

int32_t GetThrdSta(thrd_handle_t handle) {
    return handle == NULL || atomic_load(&handle->is_stopped) ? THRD_STATE_STOPPING
                                                              : THRD_STATE_RUNNING;
}

int32_t DeleteThrdHandle(thrd_handle_t handle) {
    if (handle == NULL) {
        return 0;
    }
    atomic_store(&handle->is_stopped, 1);
    if (write(handle->stop[1], "", 1) != 1) {
        return -1;
    }
    if (handle == self) {
        handle->ends_itself = 1;
        pthread_detach(pthread_self());
        return 0;
    }
    pthread_join(handle->thread, NULL);
    release(handle);
    return 0;
}

uint64_t GetThrdSelfId(void) {
    static _Atomic uint64_t last;
    static _Thread_local uint64_t own;
    if (own == 0) {
        own = atomic_fetch_add(&last, 1) + 1;
    }
    return own;
}
