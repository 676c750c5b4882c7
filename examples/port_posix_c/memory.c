/* The heap: the C library's. */
#include "platform/memory.h"

#include <stdlib.h>

void *Malloc(size_t size) {
    return malloc(size != 0 ? size : 1);
}

void Free(void *block) {
    free(block);
}
