/* Text helper. */
#include "platform/text.h"

#include <string_view>

int32_t str_revr_find_ch(const char *text, uint32_t start, char character) {
    if (text == nullptr) {
        return -1;
    }
    std::string_view searched(text);
    searched.remove_suffix(start < searched.size() ? start : searched.size());
    const size_t index = searched.rfind(character);
    return index <= INT32_MAX ? static_cast<int32_t>(index) : -1;
}
