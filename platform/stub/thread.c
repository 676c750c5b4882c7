/*
 * Threads of a new port.
 * Needs: the handle stored before the body runs, a stop that ends what the thread waits in and then
 * waits for its end (a thread that stops itself is not waited for), and stacks of the asked size
 * plus what the port's own calls take.
 */
#include "platform/thread.h"

#include <stddef.h>

int32_t CreateAndStart(thrd_handle_t *handle, thrd_hook_t enter, thrd_hook_t leave,
                       thrd_entry_t entry, void *argument, const thrd_param_t *param) {
    (void)enter;
    (void)leave;
    (void)entry;
    (void)argument;
    (void)param;
    *handle = NULL;
    return -1;
}
int32_t GetThrdSta(thrd_handle_t handle) {
    (void)handle;
    return THRD_STATE_STOPPING;
}
int32_t DeleteThrdHandle(thrd_handle_t handle) {
    (void)handle;
    return -1;
}
uint64_t GetThrdSelfId(void) {
    return 1;
}
