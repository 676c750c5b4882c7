// JSON that came from the network, and JSON that goes to scripts.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

/// Parses one JSON text; malformed UTF-8 in it becomes U+FFFD. What is no JSON, or is nested so
/// deeply that working on it would need much stack, gives a discarded value.
[[nodiscard]] nlohmann::json parse_json(std::string_view text);

/// The payload as JSON if it is JSON, else as a string.
[[nodiscard]] nlohmann::json payload_json(std::string_view payload);

/// Valid JSON in UTF-8, on one line.
[[nodiscard]] std::string one_line(const nlohmann::json &value);

/// A member's text, or "" when it is absent; a number or other value in its JSON form.
[[nodiscard]] std::string member_text(const nlohmann::json &object, const char *name);

/// The text with the values of members that hold passwords, tokens or keys replaced by "***". A
/// text that names such a member but can't be parsed is replaced as a whole.
[[nodiscard]] std::string without_secrets(std::string_view text);

/// 1 to `max_bytes` printable ASCII characters without double quote and backslash: what gateways
/// put into their own JSON as it is.
[[nodiscard]] bool is_plain_text(std::string_view text, std::size_t max_bytes);

/// The bytes as lower-case hex digits.
[[nodiscard]] std::string to_hex(std::string_view bytes);

} // namespace engr_app
