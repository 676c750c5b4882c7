#include "base/json_text.h"

#include "support/json_text.h"
#include "support/utf8.h"

#include <algorithm>
#include <array>

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

constexpr std::array<std::string_view, 8> secret_members = {
    "passwd", "password", "token", "localKey", "local_key", "secKey", "authKey", "wf_passwd"};

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

std::string written(const json &value, int indent) {
    return support::visible_json(value.dump(indent, ' ', false, json::error_handler_t::replace));
}

} // namespace

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
