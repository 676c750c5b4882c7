/*
 * Threads of a new port.
 * Needs: the handle stored before the body runs, a stop that ends what the thread waits in and then
 * waits for its end (a thread that stops itself is not waited for), and stacks of the asked size
 * plus what the port's own calls take.
 */
#include "platform/thread.h"

int32_t CreateAndStart(thrd_handle_t *handle, thrd_hook_t, thrd_hook_t, thrd_entry_t, void *,
                       const thrd_param_t *) {
    *handle = nullptr;
    return -1;
}
int32_t GetThrdSta(thrd_handle_t) {
    return THRD_STATE_STOPPING;
}
int32_t DeleteThrdHandle(thrd_handle_t) {
    return -1;
}
uint64_t GetThrdSelfId() {
    return 1;
}
