/* Heap over the C library's. */
#include "platform/memory.h"

#include <cstdlib>

void *Malloc(size_t size) {
    return std::malloc(size != 0 ? size : 1);
}

void Free(void *block) {
    std::free(block);
}
