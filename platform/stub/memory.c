/*
 * Heap of a new port.
 * Needs: blocks aligned for any type that any thread may release. The largest frame takes about 2
 * MiB; where the board's heap has less, such frames are refused.
 */
#include "platform/memory.h"

void *Malloc(size_t size) {
    (void)size;
    return NULL;
}
void Free(void *block) {
    (void)block;
}
