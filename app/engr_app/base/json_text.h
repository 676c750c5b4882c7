// JSON from the network, and JSON for scripts.
#pragma once

#include "lan_client/json.h"

#include <cstddef>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

using lan_client::member_count;
using lan_client::member_text;
using lan_client::parse_json;

/** The payload as JSON if it is JSON, else as a string. */
[[nodiscard]] nlohmann::json payload_json(std::string_view payload);

/**
 * Valid JSON in UTF-8, on one line. Characters that are not visible, such as control characters and
 * direction marks, are escaped (\u0085).
 */
[[nodiscard]] std::string one_line(const nlohmann::json &value);

/** The same on many lines, indented. */
[[nodiscard]] std::string many_lines(const nlohmann::json &value);

/**
 * The text with the values of members that hold passwords, tokens or keys replaced by "***". A text
 * that names such a member but can't be parsed is replaced as a whole.
 */
[[nodiscard]] std::string without_secrets(std::string_view text);

/**
 * 1 to `max_bytes` printable ASCII characters without double quote and backslash: what gateways put
 * into their own JSON as it is.
 */
[[nodiscard]] bool is_plain_text(std::string_view text, std::size_t max_bytes);

} // namespace engr_app
