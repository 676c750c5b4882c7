#include "verbs.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace control {
namespace {

using nlohmann::ordered_json;

std::string line_of(const ordered_json &object) {
    return object.dump(-1, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

} // namespace

std::string terminal_text(std::string_view text) {
    const bool is_plain =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
    if (is_plain) {
        return std::string(text);
    }
    const std::string quoted =
        ordered_json(text).dump(-1, ' ', true, ordered_json::error_handler_t::replace);
    return quoted.substr(1, quoted.size() - 2);
}

const verb *find_verb(std::string_view name) {
    const auto *const found = std::find_if(std::begin(verbs), std::end(verbs),
                                           [&](const verb &of) { return of.name == name; });
    return found == std::end(verbs) ? nullptr : found;
}

std::string usage_fault(std::string_view name, std::size_t argument_count) {
    const verb *found = find_verb(name);
    if (found == nullptr) {
        std::string fault = fmt::format("unknown verb '{}'; there are:", name);
        for (const verb &of : verbs) {
            fault += fmt::format(" {}", of.name);
        }
        return fault;
    }
    if (argument_count < found->least || argument_count > found->most) {
        return fmt::format("usage: {} {}", name, found->arguments);
    }
    return {};
}

std::string request_line(const request &asked) {
    return ordered_json{{"verb", asked.verb}, {"args", asked.arguments}}.dump() + "\n";
}

request parse_request(std::string_view line) {
    const ordered_json json = ordered_json::parse(line, nullptr, false);
    if (!json.is_object() || !json.contains("verb") || !json.contains("args") ||
        !json["verb"].is_string() || !json["args"].is_array()) {
        return {};
    }
    request asked{json["verb"], {}};
    for (const ordered_json &argument : json["args"]) {
        if (!argument.is_string()) {
            return {};
        }
        asked.arguments.push_back(argument);
    }
    return asked;
}

std::string shown_result(const ordered_json &result, bool for_terminal) {
    return result.dump(result.size() > 1 ? 2 : -1, ' ', for_terminal);
}

std::string result_line(const ordered_json &result) {
    return line_of({{"result", result}});
}

std::string error_line(std::string_view message, bool is_usage) {
    return line_of({{"error", message}, {"usage", is_usage}});
}

} // namespace control
