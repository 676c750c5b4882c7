/* The record behind a thread handle, and what the waits of the port need of the calling thread. */
#pragma once

#include "platform/thread.h"

#include <pthread.h>

#include <atomic>

struct kelo_thread {
    pthread_t system;
    std::atomic<int32_t> state{THRD_STATE_RUNNING};
    int stop_event; /**< eventfd, readable from the moment the thread is told to stop */
    bool released_by_itself = false;
    thrd_hook_t enter;
    thrd_hook_t leave;
    thrd_entry_t entry;
    void *argument;
    char name[16];
};

namespace linux_port {

/** Eventfd that is readable once the calling thread is told to stop; -1 on a thread that the port
 * did not make. */
int stop_event();

/** Whether the calling thread is told to stop; never on a thread that the port did not make. */
bool told_to_stop();

} // namespace linux_port
