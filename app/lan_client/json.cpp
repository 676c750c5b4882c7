// Bounded reading of JSON.
#include "lan_client/json.h"

#include "lan_client/limits.h"
#include "utf8.h"

#include <cstddef>

#include <nlohmann/json.hpp>

namespace lan_client {
namespace {

using nlohmann::json;

// Copying and writing a value takes stack for every level.
constexpr std::size_t max_nesting = 200;

// Every value but the first stands behind a comma or opens a structure.
bool is_too_much(std::string_view text) {
    std::size_t depth = 0;
    std::size_t values = 1;
    bool in_string = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char byte = text[at];
        if (byte == '"') {
            in_string = !in_string;
        } else if (in_string) {
            at += byte == '\\' ? 1 : 0;
        } else if (byte == '{' || byte == '[') {
            if (++depth > max_nesting || ++values > max_json_values) {
                return true;
            }
        } else if (byte == ',') {
            if (++values > max_json_values) {
                return true;
            }
        } else if ((byte == '}' || byte == ']') && depth > 0) {
            --depth;
        }
    }
    return false;
}

json parse_bounded(std::string_view text, const json::parser_callback_t &callback) {
    return is_too_much(text) ? json(json::value_t::discarded)
                             : json::parse(to_utf8(text), callback, false);
}

} // namespace

json parse_json(std::string_view text) {
    return parse_bounded(text, nullptr);
}

json parse_json(std::string_view text, const list_entry_taker &take) {
    using event_t = json::parse_event_t;
    std::string member;
    bool in_list = false;
    const auto take_entries = [&](int depth, event_t event, json &parsed) {
        if (depth == 1) {
            if (event == event_t::key) {
                member = parsed.get<std::string>();
            }
            in_list = event == event_t::array_start;
        }
        const bool ends_entry = in_list && depth == 2 &&
                                (event == event_t::object_end || event == event_t::array_end ||
                                 event == event_t::value);
        if (ends_entry) {
            take(member, std::move(parsed));
        }
        return !ends_entry;
    };
    return parse_bounded(text, take_entries);
}

std::string member_text(const json &object, const char *name) {
    if (!object.is_object() || !object.contains(name)) {
        return "";
    }
    const json &member = object.at(name);
    return member.is_string() ? member.get<std::string>()
                              : member.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::optional<uint64_t> member_count(const json &object, const char *name) {
    if (!object.is_object()) {
        return std::nullopt;
    }
    const auto found = object.find(name);
    return found != object.end() && found->is_number_unsigned()
               ? std::optional(found->get<uint64_t>())
               : std::nullopt;
}

} // namespace lan_client
