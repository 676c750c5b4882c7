/* Parsing a request's payload. */
#include "json_request.h"

#include <cstdint>

namespace {

/** Real requests have a handful of levels. The parser recurses, and the server task's stack is
 * small. */
constexpr uint32_t nesting_limit = 32;

/** The parser takes far more memory for a value than its text has; docs/resources.md tells how
 * much. An option of the build. */
constexpr uint32_t value_limit = ENGR_JSON_VALUE_LIMIT;

/** Whether parsing a text could take too much stack or memory. */
bool is_too_large(const char *text) {
    uint32_t depth = 0;
    uint32_t values = 1; // an upper bound: each but the first follows one of ,[{
    bool in_string = false;
    for (const char *at = text; *at != '\0'; ++at) {
        if (in_string && *at == '\\' && at[1] != '\0') {
            ++at;
        } else if (*at == '"') {
            in_string = !in_string;
        } else if (!in_string && *at == ',') {
            ++values;
        } else if (!in_string && (*at == '{' || *at == '[')) {
            ++values;
            ++depth;
        } else if (!in_string && (*at == '}' || *at == ']') && depth > 0) {
            --depth;
        }
        if (depth > nesting_limit || values > value_limit) {
            return true;
        }
    }
    return false;
}

} // namespace

json_request::json_request(const char *text)
    : root_(text == nullptr || is_too_large(text) ? nullptr
                                                  : cJSON_ParseWithOpts(text, nullptr, 1)) {}
