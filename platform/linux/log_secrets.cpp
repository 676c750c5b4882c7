/* Finding the secrets in a log message. */
#include "log_secrets.h"

#include <strings.h>

#include <algorithm>
#include <charconv>

namespace linux_port {

namespace {

constexpr std::string_view secret_names[] = {"passwd", "token", "local_key"};
constexpr size_t longest_name = 9;
constexpr std::string_view blanks = " \t\r\n";

/** Length of the JSON string at the start of the text, which begins with a quote; to the end of the
 * text when it is not closed. */
size_t string_length(std::string_view text) {
    size_t at = 1;
    while (at < text.size() && text[at] != '"') {
        at += text[at] == '\\' ? 2 : 1;
    }
    return std::min(at + 1, text.size());
}

/** Value of the four hexadecimal digits at the start of a text; -1 when they are none. */
int hex_value(std::string_view text) {
    int value = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    return text.size() == 4 && end == text.data() + 4 && error == std::errc() ? value : -1;
}

/** Whether a JSON string, in its quotes, spells the name of a secret in any letter case. */
bool names_secret(std::string_view quoted) {
    std::string name;
    for (size_t at = 1; at + 1 < quoted.size(); ++at) {
        if (name.size() == longest_name) {
            return false;
        }
        char character = quoted[at];
        if (character == '\\' && quoted[at + 1] == 'u') {
            const int code = hex_value(quoted.substr(at + 2, 4));
            character = code > 0 && code < 0x80 ? static_cast<char>(code) : '?';
            at += 5;
        }
        name += character;
    }
    return std::ranges::any_of(secret_names, [&name](std::string_view secret) {
        return name.size() == secret.size() &&
               strncasecmp(name.data(), secret.data(), secret.size()) == 0;
    });
}

/** Length of a secret's name with its colon at the start of the text; 0 when none is there. */
size_t secret_name_length(std::string_view text) {
    if (text.front() != '"') {
        return 0;
    }
    // No longer than a name of which each letter is an escape of six.
    const size_t name = string_length(text.substr(0, 2 + 6 * longest_name));
    if (text[name - 1] != '"' || !names_secret(text.substr(0, name))) {
        return 0;
    }
    const size_t colon = text.find_first_not_of(blanks, name);
    return colon != std::string_view::npos && text[colon] == ':' ? colon + 1 : 0;
}

/** Length of the JSON array or object at the start of the text; to the end of the text when it is
 * not closed. */
size_t nested_length(std::string_view text) {
    size_t depth = 0;
    for (size_t at = 0; at < text.size(); ++at) {
        const char character = text[at];
        if (character == '"') {
            at += string_length(text.substr(at)) - 1;
        } else if (character == '[' || character == '{') {
            ++depth;
        } else if ((character == ']' || character == '}') && --depth == 0) {
            return at + 1;
        }
    }
    return text.size();
}

/** Length of the JSON value at the start of the text, blanks before it included. */
size_t value_length(std::string_view text) {
    const size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string_view::npos) {
        return text.size();
    }
    const std::string_view value = text.substr(begin);
    if (value.front() == '"') {
        return begin + string_length(value);
    }
    if (value.front() == '[' || value.front() == '{') {
        return begin + nested_length(value);
    }
    return begin + std::min(value.find_first_of(",}]"), value.size());
}

} // namespace

std::string without_secrets(std::string_view message) {
    std::string shown;
    shown.reserve(message.size());
    while (!message.empty()) {
        if (const size_t name = secret_name_length(message); name != 0) {
            shown.append(message.substr(0, name)).append("***");
            message.remove_prefix(name);
            message.remove_prefix(value_length(message));
        } else {
            shown += message.front();
            message.remove_prefix(1);
        }
    }
    return shown;
}

} // namespace linux_port
