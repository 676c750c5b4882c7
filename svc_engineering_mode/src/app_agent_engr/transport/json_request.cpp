/* Parsing a request's payload. */
#include "json_request.h"

#include <cstdint>

namespace {

/** Requests are at most a handful of levels deep. The parser recurses, and the server task's stack
 * is small. */
constexpr uint32_t nesting_limit = 32;

bool is_nested_too_deep(const char *text) {
    uint32_t depth = 0;
    bool in_string = false;
    for (const char *at = text; *at != '\0'; ++at) {
        if (in_string && *at == '\\' && at[1] != '\0') {
            ++at;
        } else if (*at == '"') {
            in_string = !in_string;
        } else if (!in_string && (*at == '{' || *at == '[')) {
            if (++depth > nesting_limit) {
                return true;
            }
        } else if (!in_string && (*at == '}' || *at == ']') && depth > 0) {
            --depth;
        }
    }
    return false;
}

} // namespace

json_request::json_request(const char *text)
    : root_(text == nullptr || is_nested_too_deep(text) ? nullptr
                                                        : cJSON_ParseWithOpts(text, nullptr, 1)) {}
