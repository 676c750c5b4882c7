// The trace line of a call: its name, its arguments in order, and its result, as JSON.
#pragma once

#include "gateway/records.h"
#include "gateway/upgrade.h"

#include <cjson/cJSON.h>
#include <cstdint>
#include <string>
#include <string_view>

namespace gateway {

/** The arguments of one call, in order. What is not UTF-8 in a text shows as U+FFFD. */
class call_arguments {
  public:
    call_arguments &number(std::string_view name, int64_t value);
    /** A text; null when absent. */
    call_arguments &text(std::string_view name, const char *value);
    /** A password or token: "***" unless it is absent or empty. */
    call_arguments &secret(std::string_view name, const char *value);
    /** A payload, as a text. */
    call_arguments &bytes(std::string_view name, const void *data, std::size_t length);
    /** A device record, as its id; null when absent. */
    call_arguments &device(std::string_view name, const dev_cntl_t *value);
    /** A firmware record, as its four fields; null when absent. */
    call_arguments &firmware(std::string_view name, const lan_fw_info_t *value);
    /** A parsed request or a member of one, its secrets as "***"; null when absent. */
    call_arguments &json(std::string_view name, const cJSON *item);

    /** The members of a JSON object, without its braces. */
    [[nodiscard]] const std::string &members() const { return members_; }

  private:
    call_arguments &member(std::string_view name, std::string_view json_text);
    std::string members_;
};

/** A result as JSON: a number, a text or a device's id; null for a null pointer. */
std::string result_json(int64_t result);
std::string result_json(const char *text);
std::string result_json(const dev_cntl_t *device);

/**
 * The whole line, without line feed.
 *
 * @param result  JSON
 */
std::string trace_line(std::string_view call_name, const call_arguments &arguments,
                       std::string_view result);

} // namespace gateway
