/* Promises of the heap. */
#include "kit.h"

#include "platform/memory.h"

#include <stddef.h>

enum { BLOCKS = 8 };

void memory_blocks_are_aligned_and_apart(void) {
    unsigned char *blocks[BLOCKS];
    for (size_t i = 0; i < BLOCKS; ++i) {
        blocks[i] = Malloc(i + 1);
        if (!EXPECT(blocks[i] != NULL, "expected a block of %u bytes", (unsigned)(i + 1))) {
            return;
        }
        EXPECT((uintptr_t)blocks[i] % _Alignof(max_align_t) == 0,
               "expected a block to be aligned for any type");
        memset(blocks[i], (int)i, i + 1);
    }
    for (size_t i = 0; i < BLOCKS; ++i) {
        EXPECT(blocks[i][0] == i && blocks[i][i] == i, "expected blocks not to overlap");
        Free(blocks[i]);
    }
    Free(NULL);
}

void memory_no_bytes_are_a_block_too(void) {
    void *block = Malloc(0);
    EXPECT(block != NULL, "expected a block for 0 bytes, not null");
    Free(block);
}

static void release(void *argument) {
    Free(argument);
}

void memory_a_block_is_released_on_any_thread(void) {
    for (int i = 0; i < BLOCKS; ++i) {
        kit_thread_t thread;
        kit_start(&thread, release, Malloc(64));
        kit_join(&thread);
    }
}

void memory_what_is_not_there_is_null(void) {
    volatile size_t too_much = SIZE_MAX / 4 * 3; /* more than the compiler may know of */
    void *block = Malloc(too_much);
    EXPECT(block == NULL, "expected null for more memory than there is");
    Free(block);
}
