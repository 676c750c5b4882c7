#include "verbs.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace control {
namespace {

using nlohmann::ordered_json;

constexpr std::size_t any_number = 16;

constexpr verb verb_table[] = {
    {"status", "", 0, 0,
     "Shows what the gateway is, has been told and does, with faults and callbacks"},
    {"set", "FIELD VALUE", 2, 2, "Sets a field of the gateway record; '' empties a text"},
    {"device", "ID FIELD VALUE", 3, 3, "Sets a field of a device"},
    {"report", "ID DPS-JSON", 2, 2, "A device reports data points, as in '{\"1\": true}'"},
    {"join", "ID [PID]", 1, 2, "A device joins at once; joining has to be open"},
    {"network", "up|down", 1, 1, "Takes the gateway's network down, and up again"},
    {"ip", "ADDRESS|auto", 1, 1,
     "What the platform reports as the gateway's address; '' for none, auto for the real one"},
    {"wifi-config-needed", "0|1", 1, 1, "Whether the gateway still needs Wi-Fi configuration"},
    {"wifi-mode", "N", 1, 1, "Work mode of the Wi-Fi layer; 4 is the own access point"},
    {"airkiss", "STATUS ACTIVE", 2, 2,
     "Wi-Fi station status (4, 6 and 7 are connected), and 1 when active"},
    {"fault", "SERVICE RESULT|off", 2, 2,
     "Makes a service return RESULT instead of doing its work"},
    {"callback", "NAME RESULT|absent|present", 2, 2, "Makes a callback absent, or return RESULT"},
    {"register", "FRAME_TYPE RESULT", 2, 2, "Registers a frame handler that returns RESULT"},
    {"upgrade", "start [OPTION VALUE...]", 1, 11,
     "The service starts a transfer; --cid ID, --file-size N, --chunk-size N, --percent 0|1, "
     "--remain N"},
    {"call", "FUNCTION [ARG...]", 1, any_number, "Calls an exported function of the agent"},
};

} // namespace

std::span<const verb> verbs() {
    return verb_table;
}

std::string usage_fault(std::string_view name, std::size_t argument_count) {
    const auto found = std::find_if(std::begin(verb_table), std::end(verb_table),
                                    [&](const verb &of) { return of.name == name; });
    if (found == std::end(verb_table)) {
        std::string fault = "unknown verb '" + std::string(name) + "'; there are:";
        for (const verb &of : verb_table) {
            fault += std::string(" ") + of.name;
        }
        return fault;
    }
    if (argument_count < found->least || argument_count > found->most) {
        return "usage: " + std::string(name) + " " + found->arguments;
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

std::string result_line(const ordered_json &result) {
    return ordered_json{{"result", result}}.dump(-1, ' ', false,
                                                 ordered_json::error_handler_t::replace) +
           "\n";
}

std::string error_line(std::string_view message, bool is_usage) {
    return ordered_json{{"error", message}, {"usage", is_usage}}.dump(
               -1, ' ', false, ordered_json::error_handler_t::replace) +
           "\n";
}

} // namespace control
