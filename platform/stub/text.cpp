/* Text helper of a new port. engr_platform_common has it ready. */
#include "platform/text.h"

int32_t str_revr_find_ch(const char *, uint32_t, char) {
    return -1;
}
