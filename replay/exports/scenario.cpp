// Writes the files that a gateway of the session is started with.
#include "exports/exports.h"

#include <nlohmann/json.hpp>

namespace replay {
namespace {

using nlohmann::ordered_json;

ordered_json object_in(const std::string &text) {
    ordered_json object = ordered_json::parse(text.empty() ? "{}" : text, nullptr, false);
    return object.is_object() ? object : ordered_json::object();
}

/** Does to a scenario what the operator did to the gateway; what was refused did nothing. */
void apply(ordered_json &scenario, const session::control &of) {
    const bool is_fault = of.line.size() == 3 && of.line[0] == "fault";
    const bool is_callback = of.line.size() == 3 && of.line[0] == "callback";
    if ((!is_fault && !is_callback) || !object_in(of.answer).contains("result")) {
        return;
    }
    ordered_json &entries = scenario[is_fault ? "services" : "callbacks"];
    if (of.line[2] == "off" || of.line[2] == "present") {
        entries.erase(of.line[1]);
    } else if (of.line[2] == "absent") {
        entries[of.line[1]] = "absent";
    } else {
        entries[of.line[1]] = ordered_json::parse(of.line[2], nullptr, false);
    }
}

} // namespace

std::string site_of(const recording &from) {
    return object_in(from.begin.site).dump(2) + "\n";
}

std::string scenario_of(const recording &from) {
    ordered_json scenario = object_in(from.begin.scenario);
    for (const session::event &each : from.events) {
        if (const auto *control = std::get_if<session::control>(&each.what)) {
            apply(scenario, *control);
        }
    }
    return scenario.dump(2) + "\n";
}

} // namespace replay
