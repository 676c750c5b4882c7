/* Heap of the SDK. Every buffer whose ownership passes through a contract is allocated here, unless
 * its header says otherwise. */
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Allocates memory. May be called on any thread; does not block.
 *
 * @param size  bytes wanted; 0 gives a block that can be released but not used
 * @return the block, aligned for any type and not cleared, owned by the caller until Free; null
 *     when there is no memory
 */
void *Malloc(size_t size);

/**
 * Releases a block of Malloc. May be called on any thread, also on another one than that of the
 * Malloc; does not block.
 *
 * @param block  the block, or null, which does nothing
 */
void Free(void *block);

#ifdef __cplusplus
}
#endif
