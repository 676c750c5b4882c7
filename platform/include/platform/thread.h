/*
 * Threads.
 *
 * Stopping is a request and a wait: DeleteThrdHandle marks the thread as told to stop, ends at once
 * whatever contract call it sleeps or waits in (kelo_hal_system_sleep, select, recvfrom, a send
 * that waits for room), and then waits for the end of the entry function. The thread itself asks
 * GetThrdSta at a convenient point and leaves. Waits for a mutex, and those of sys_delete_timer and
 * cmmod_unreg_msgcb for a callback, are short and not cut.
 *
 * Contract calls also come from threads that the port did not make, those of the application, and
 * wait there like anywhere; nobody tells such a thread to stop. REQUIRED of a port: what it keeps
 * for each thread, such as the object that its waits look at, it makes for them at their first call
 * and releases when they end, or it takes that from a bounded pool where no end is told.
 */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A thread; the port gives the record behind it its form. */
typedef struct kelo_thread *thrd_handle_t;

/** What a new thread gets. */
typedef struct {
    uint32_t
        stack_size; /**< wanted stack in bytes, a minimum: the port adds what its own calls need */
    uint32_t priority; /**< 0 (lowest) to 5; a port without priorities ignores it */
    const char *name;  /**< name for debuggers, copied; a port may cut it (Linux: 15 characters) */
} thrd_param_t;

/** Entry function of a thread. */
typedef void (*thrd_entry_t)(void *argument);
/** Called on the new thread before and after its entry function. */
typedef void (*thrd_hook_t)(void);

/** Answers of GetThrdSta. */
enum {
    THRD_STATE_RUNNING = 1, /**< not told to stop */
    THRD_STATE_STOPPING = 2 /**< told to stop */
};

/**
 * Creates a thread and starts it. The handle is stored before the entry function (and the enter
 * hook) run.
 *
 * @param[out] handle  the new thread; null when the call fails. Lives until DeleteThrdHandle.
 * @param enter        hook called first on the new thread, or null
 * @param leave        hook called last on the new thread, or null
 * @param entry        what the thread runs; required
 * @param argument     handed to entry
 * @param param        stack, priority and name; read only during the call
 * @return 0; else entry or param is null, or there is no memory or no room for a thread. The caller
 *     passes the code on
 */
int32_t CreateAndStart(thrd_handle_t *handle, thrd_hook_t enter, thrd_hook_t leave,
                       thrd_entry_t entry, void *argument, const thrd_param_t *param);

/**
 * State of a thread. May be called on any thread; does not block.
 *
 * @param handle  a living handle; null answers THRD_STATE_STOPPING
 * @return THRD_STATE_RUNNING until the thread is told to stop, then THRD_STATE_STOPPING
 */
int32_t GetThrdSta(thrd_handle_t handle);

/**
 * Tells a thread to stop, waits until its entry function and the leave hook have returned, and
 * releases the handle. A thread that stops itself is not waited for: the call returns at once and
 * the handle stays valid for GetThrdSta until the entry function returns, then it is released. For
 * each thread exactly one call is made.
 *
 * @param handle  a living handle; null does nothing
 * @return 0; a port that could not wait for the thread returns a negative code, which the caller
 *     only logs
 */
int32_t DeleteThrdHandle(thrd_handle_t handle);

/**
 * Identity of the calling thread, whoever made it. May be called on any thread; does not block.
 *
 * @return a number that no other living thread has; never 0
 */
uint64_t GetThrdSelfId(void);

#ifdef __cplusplus
}
#endif
