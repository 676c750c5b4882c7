// JSON from the network.
#pragma once

#include <cstdint>
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

/** Gets what an object with lists has, in its order, while it is read. Texts last until the
 * function returns. */
class list_handler {
  public:
    virtual ~list_handler() = default;

    /** A member of the object begins: a list, whose entries follow, or anything else. */
    virtual void member(std::string_view name, bool is_list) = 0;
    /** An entry of the list begins. */
    virtual void entry() {}
    /** It is this string. */
    virtual void entry_text(std::string_view) {}
    /** It is an object with this member; a number or other value in its JSON form. Members that are
     * lists or objects are passed over. */
    virtual void entry_member(std::string_view, std::string_view) {}
};

/**
 * Reads an object with long lists without keeping it. What comes last may still be wrong, so look
 * at the result before using what the handler got.
 *
 * @return whether the text is an object, with no more values and levels than parse_json takes
 */
[[nodiscard]] bool read_lists(std::string_view text, list_handler &handler);

/** A member's text, or "" when it is absent; a number or other value in its JSON form. */
[[nodiscard]] std::string member_text(const nlohmann::json &object, const char *name);

/** A member that is a whole number from 0 on; nothing when it is absent or anything else. */
[[nodiscard]] std::optional<uint64_t> member_count(const nlohmann::json &object, const char *name);

} // namespace lan_client
