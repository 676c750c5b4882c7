#include "base/json_text.h"

#include "support/utf8.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

// Copying and writing a value takes stack for every level.
constexpr std::size_t max_nesting = 200;

constexpr std::array<std::string_view, 8> secret_members = {
    "passwd", "password", "token", "localKey", "local_key", "secKey", "authKey", "wf_passwd"};

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
            if (++depth > max_nesting || ++values > lan_client::max_json_values) {
                return true;
            }
        } else if (byte == ',') {
            if (++values > lan_client::max_json_values) {
                return true;
            }
        } else if ((byte == '}' || byte == ']') && depth > 0) {
            --depth;
        }
    }
    return false;
}

bool is_secret(std::string_view name) {
    return std::ranges::find(secret_members, name) != secret_members.end();
}

void hide_secrets(json &value) {
    if (value.is_object()) {
        for (auto &[name, member] : value.items()) {
            // Discovery's "token": true is no secret.
            if (is_secret(name) && !member.is_boolean()) {
                member = "***";
            }
        }
    }
    if (value.is_structured()) {
        std::ranges::for_each(value, hide_secrets);
    }
}

std::string json_escape(uint32_t value) {
    if (value < 0x10000) {
        return fmt::format("\\u{:04x}", value);
    }
    const uint32_t above = value - 0x10000;
    return fmt::format("\\u{:04x}\\u{:04x}", 0xD800 + (above >> 10), 0xDC00 + (above & 0x3FF));
}

// Beyond ASCII's printable characters and the line ends between members there is nothing but the
// content of texts, so an escape is valid wherever one is needed.
std::string escape_unsafe(std::string_view written) {
    std::string out;
    out.reserve(written.size());
    while (!written.empty()) {
        const support::code_point next = support::first_code_point(written);
        if (next.value != '\n' && !support::is_visible(next.value)) {
            out += json_escape(next.value);
        } else {
            out += written.substr(0, next.bytes);
        }
        written.remove_prefix(next.bytes);
    }
    return out;
}

std::string written(const json &value, int indent) {
    return escape_unsafe(value.dump(indent, ' ', false, json::error_handler_t::replace));
}

} // namespace

json parse_json(std::string_view text) {
    if (is_too_much(text)) {
        return json(json::value_t::discarded);
    }
    return json::parse(support::valid_utf8(text), nullptr, false);
}

json payload_json(std::string_view payload) {
    json value = parse_json(payload);
    return value.is_discarded() ? json(support::valid_utf8(payload)) : value;
}

std::string one_line(const json &value) {
    return written(value, -1);
}

std::string many_lines(const json &value) {
    return written(value, 2);
}

std::string member_text(const json &object, const char *name) {
    if (!object.is_object() || !object.contains(name)) {
        return "";
    }
    const json &member = object.at(name);
    return member.is_string() ? member.get<std::string>() : one_line(member);
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

std::string without_secrets(std::string_view text) {
    const bool suspect = std::ranges::any_of(secret_members, [text](std::string_view name) {
        return text.find(name) != std::string_view::npos;
    });
    if (!suspect) {
        return std::string(text);
    }
    json value = parse_json(text);
    if (value.is_discarded()) {
        return "(hidden: it names a secret)";
    }
    hide_secrets(value);
    return one_line(value);
}

bool is_plain_text(std::string_view text, std::size_t max_bytes) {
    return !text.empty() && text.size() <= max_bytes &&
           std::ranges::all_of(text, [](char character) {
               return character >= ' ' && character <= '~' && character != '"' && character != '\\';
           });
}

} // namespace engr_app
