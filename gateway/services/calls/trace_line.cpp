#include "calls/trace_line.h"

#include "support/utf8.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <strings.h>
#include <utility>

namespace gateway {
namespace {

constexpr const char *hidden = "***";
/** Members of requests that hold secrets. */
constexpr const char *secret_members[] = {"passwd", "token", "local_key"};

std::string json_text(std::string_view text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

bool is_secret(const char *name) {
    return name != nullptr &&
           std::any_of(std::begin(secret_members), std::end(secret_members),
                       [&](const char *secret) { return strcasecmp(name, secret) == 0; });
}

/** Replaces the values of secret members. The agent bounds how deep a request is. */
void hide_secrets(cJSON &parent) {
    for (cJSON *each = parent.child; each != nullptr; each = each->next) {
        if (!is_secret(each->string)) {
            hide_secrets(*each);
            continue;
        }
        cJSON *replacement = cJSON_CreateString(hidden);
        if (replacement == nullptr) {
            throw std::bad_alloc();
        }
        // The member keeps its name and its place; the old value is deleted with the replacement.
        std::swap(each->type, replacement->type);
        std::swap(each->valuestring, replacement->valuestring);
        std::swap(each->child, replacement->child);
        cJSON_Delete(replacement);
    }
}

} // namespace

call_arguments &call_arguments::member(std::string_view name, std::string_view json_text) {
    members_ += fmt::format(R"({}"{}": {})", members_.empty() ? "" : ", ", name, json_text);
    return *this;
}

call_arguments &call_arguments::number(std::string_view name, int64_t value) {
    return member(name, std::to_string(value));
}

call_arguments &call_arguments::text(std::string_view name, const char *value) {
    return member(name, result_json(value));
}

call_arguments &call_arguments::secret(std::string_view name, const char *value) {
    return text(name, value == nullptr || *value == '\0' ? value : hidden);
}

call_arguments &call_arguments::bytes(std::string_view name, const void *data, std::size_t length) {
    return member(name,
                  data == nullptr ? "null" : json_text({static_cast<const char *>(data), length}));
}

call_arguments &call_arguments::device(std::string_view name, const dev_cntl_t *value) {
    return member(name, result_json(value));
}

call_arguments &call_arguments::firmware(std::string_view name, const lan_fw_info_t *value) {
    if (value == nullptr) {
        return member(name, "null");
    }
    const auto bounded = [](const char *bytes, std::size_t size) {
        return json_text({bytes, strnlen(bytes, size)});
    };
    return member(name,
                  fmt::format(R"({{"fw_kind": {}, "sw_ver": {}, "file_size": {}, "file_md5": {}}})",
                              value->fw_kind, bounded(value->sw_ver, sizeof value->sw_ver),
                              value->file_size, bounded(value->file_md5, sizeof value->file_md5)));
}

call_arguments &call_arguments::json(std::string_view name, const cJSON *item) {
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> copy(
        item == nullptr ? nullptr : cJSON_Duplicate(item, 1), cJSON_Delete);
    if (!copy) {
        return member(name, "null");
    }
    hide_secrets(*copy);
    // Shown as it came, a member given twice included; so it is printed and not read again.
    const std::unique_ptr<char, decltype(&cJSON_free)> printed(cJSON_PrintUnformatted(copy.get()),
                                                               cJSON_free);
    return member(name, printed == nullptr ? "null" : support::valid_utf8(printed.get()));
}

std::string result_json(int64_t result) {
    return std::to_string(result);
}
std::string result_json(const char *text) {
    return text == nullptr ? "null" : json_text(text);
}
std::string result_json(const dev_cntl_t *device) {
    return result_json(device == nullptr ? nullptr : device->dev_id);
}

std::string trace_line(std::string_view call_name, const call_arguments &arguments,
                       std::string_view result) {
    return fmt::format(R"({{"call": "{}", "args": {{{}}}, "result": {}}})", call_name,
                       arguments.members(), result);
}

} // namespace gateway
