// JSON from the network.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace lan_client {

/**
 * Parses one JSON text from the network; malformed UTF-8 in it becomes U+FFFD.
 *
 * @return a discarded value for what is no JSON, for more than max_json_values values, each of
 * which takes some hundred bytes of memory but only two of the text, and for what is nested so
 * deeply that working on it would need much stack
 */
[[nodiscard]] nlohmann::json parse_json(std::string_view text);

/** Gets an entry of a list, and the name of the member that the list is. */
using list_entry_taker = std::function<void(const std::string &list, nlohmann::json &&entry)>;

/**
 * The same for an object with long lists: each entry of a list that is a member of the object is
 * handed over when it has been read, and is not kept. What comes after it may still be wrong, so
 * look at the result before the entries are used.
 */
[[nodiscard]] nlohmann::json parse_json(std::string_view text, const list_entry_taker &take);

/** A member's text, or "" when it is absent; a number or other value in its JSON form. */
[[nodiscard]] std::string member_text(const nlohmann::json &object, const char *name);

/** A member that is a whole number from 0 on; nothing when it is absent or anything else. */
[[nodiscard]] std::optional<uint64_t> member_count(const nlohmann::json &object, const char *name);

} // namespace lan_client
