/* Text helper of the SDK. */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Finds the last occurrence of a character. Any thread; does not block.
 *
 * @param text       NUL-terminated text
 * @param start      0: the search covers the whole text from its end; n: the last n characters are
 *     left out
 * @param character  what to look for
 * @return its index, or -1 when there is none or text is null
 */
int32_t str_revr_find_ch(const char *text, uint32_t start, char character);

#ifdef __cplusplus
}
#endif
