// Parsing of foreign JSON, writing of our own.
#include "base/json_text.h"

#include "base/escape.h"
#include "lan_client/utf8.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

// Copying and writing a value takes stack for every level.
constexpr std::size_t max_nesting = 200;

constexpr std::array<std::string_view, 8> secret_members = {
    "passwd", "password", "token", "localKey", "local_key", "secKey", "authKey", "wf_passwd"};

// Every value but the first stands behind a comma or opens a structure.
bool is_too_much(std::string_view text, std::size_t max_values) {
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
            if (++depth > max_nesting || ++values > max_values) {
                return true;
            }
        } else if (byte == ',') {
            if (++values > max_values) {
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

std::string escape(char32_t value) {
    std::array<char, 16> text{};
    if (value < 0x10000) {
        std::snprintf(text.data(), text.size(), "\\u%04x", static_cast<unsigned>(value));
    } else {
        const auto above = static_cast<unsigned>(value) - 0x10000;
        std::snprintf(text.data(), text.size(), "\\u%04x\\u%04x", 0xD800 + (above >> 10),
                      0xDC00 + (above & 0x3FF));
    }
    return text.data();
}

// Beyond ASCII's printable characters and the line ends between members there is nothing but the
// content of texts, so an escape is valid wherever one is needed.
std::string escape_unsafe(std::string_view written) {
    std::string out;
    out.reserve(written.size());
    while (!written.empty()) {
        const lan_client::code_point next = lan_client::first_code_point(written);
        if (next.value != '\n' && is_unsafe(next.value)) {
            out += escape(next.value);
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

json parse_json(std::string_view text, std::size_t max_values) {
    if (is_too_much(text, max_values)) {
        return json(json::value_t::discarded);
    }
    return json::parse(lan_client::to_utf8(text), nullptr, false);
}

json payload_json(std::string_view payload) {
    json value = parse_json(payload);
    return value.is_discarded() ? json(lan_client::to_utf8(payload)) : value;
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

std::optional<std::uint64_t> member_count(const json &object, const char *name) {
    if (!object.is_object()) {
        return std::nullopt;
    }
    const auto found = object.find(name);
    return found != object.end() && found->is_number_unsigned()
               ? std::optional(found->get<std::uint64_t>())
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

std::string to_hex(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string out;
    out.reserve(bytes.size() * 2);
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        out += digits[value >> 4];
        out += digits[value & 0xF];
    }
    return out;
}

} // namespace engr_app
