// JSON from the network, and JSON for scripts.
#pragma once

#include "lan_client/limits.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

/**
 * Parses one JSON text from the network; malformed UTF-8 in it becomes U+FFFD.
 *
 * @return a discarded value for what is no JSON, for more than lan_client::max_json_values values,
 * each of which takes some hundred bytes of memory but only two of the text, and for what is nested
 * so deeply that working on it would need much stack
 */
[[nodiscard]] nlohmann::json parse_json(std::string_view text);

/** The payload as JSON if it is JSON, else as a string. */
[[nodiscard]] nlohmann::json payload_json(std::string_view payload);

/**
 * Valid JSON in UTF-8, on one line. Characters that are not visible, such as control characters and
 * direction marks, are escaped (\u0085).
 */
[[nodiscard]] std::string one_line(const nlohmann::json &value);

/** The same on many lines, indented. */
[[nodiscard]] std::string many_lines(const nlohmann::json &value);

/** A member's text, or "" when it is absent; a number or other value in its JSON form. */
[[nodiscard]] std::string member_text(const nlohmann::json &object, const char *name);

/** A member that is a whole number from 0 on; nothing when it is absent or anything else. */
[[nodiscard]] std::optional<uint64_t> member_count(const nlohmann::json &object, const char *name);

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
