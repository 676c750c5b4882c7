// Finding the secrets in a log message.
#include "log_secrets.h"

#include <strings.h>

namespace linux_port {

namespace {

constexpr std::string_view secret_names[] = {"\"passwd\"", "\"token\"", "\"local_key\""};
constexpr std::string_view blanks = " \t\r\n";

bool begins_with_name(std::string_view text, std::string_view name) {
    return text.size() >= name.size() && strncasecmp(text.data(), name.data(), name.size()) == 0;
}

/** Length of a secret's name with its colon at the start of the text; 0 when none is there. */
size_t secret_name_length(std::string_view text) {
    for (const std::string_view name : secret_names) {
        if (begins_with_name(text, name)) {
            const size_t colon = text.find_first_not_of(blanks, name.size());
            if (colon != std::string_view::npos && text[colon] == ':') {
                return colon + 1;
            }
        }
    }
    return 0;
}

/** Length of the JSON value at the start of the text, blanks before it included. */
size_t value_length(std::string_view text) {
    size_t at = text.find_first_not_of(blanks);
    if (at == std::string_view::npos || text[at] != '"') {
        at = text.find_first_of(",}");
        return at == std::string_view::npos ? text.size() : at;
    }
    for (++at; at < text.size() && text[at] != '"'; ++at) {
        at += text[at] == '\\' ? 1 : 0;
    }
    return at < text.size() ? at + 1 : text.size();
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
