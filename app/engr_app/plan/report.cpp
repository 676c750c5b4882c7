#include "plan/report.h"

#include "base/json_text.h"
#include "gateway/devices.h"
#include "gateway/format.h"

#include <array>
#include <map>
#include <utility>

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

struct worded {
    const char *name;
    const char *words;
};

// In the order of step_state and step_check.
constexpr std::array<worded, 5> states{{{"as_planned", "as planned"},
                                        {"to_do", "to do"},
                                        {"done", "done"},
                                        {"failed", "FAILED"},
                                        {"not_tried", "not tried"}}};
constexpr std::array<worded, 5> checks{{{"none", "-"},
                                        {"noted", "sent before, can't be read back"},
                                        {"answer", "accepted, can't be read back"},
                                        {"report", "reported by the gateway"},
                                        {"reading", "read back"}}};

json device_json(const planned_device &planned, const std::string &state) {
    return {{"cid", planned.id},
            {"pid", planned.product},
            {"name", planned.name},
            {"room", planned.room},
            {"state", state}};
}

std::string state_of(const json &device) {
    const std::string word = state_word(device);
    return word == "-" ? "bound" : word;
}

json devices_json(const gateway_outcome &outcome) {
    json all = json::array();
    if (!outcome.site) {
        return all;
    }
    std::map<std::string, const json *> there;
    for (const json &one : outcome.site->at("devices")) {
        there.emplace(member_text(one, "cid"), &one);
    }
    for (const planned_device &planned :
         outcome.plan.devices.value_or(std::vector<planned_device>{})) {
        const auto found = there.find(planned.id);
        all.push_back(
            device_json(planned, found == there.end() ? "missing" : state_of(*found->second)));
        there.erase(planned.id);
    }
    there.erase(outcome.id); // a gateway may list itself
    for (const auto &[id, device] : there) {
        all.push_back(device_json({id, member_text(*device, "pid"), "", ""},
                                  outcome.plan.devices ? "not planned" : state_of(*device)));
    }
    return all;
}

json gateway_report(const gateway_outcome &outcome) {
    json steps = json::array();
    for (const plan_step &one : outcome.steps) {
        steps.push_back({{"item", one.item},
                         {"state", states[static_cast<std::size_t>(one.state)].name},
                         {"check", checks[static_cast<std::size_t>(one.check)].name},
                         {"words", one.words}});
    }
    const auto &problem = outcome.problem;
    return {
        {"gateway", outcome.plan.name},
        {"id", outcome.id},
        {"address", outcome.address},
        {"as_planned", outcome.is_success()},
        {"steps", steps},
        {"notes", outcome.notes},
        {"devices", devices_json(outcome)},
        {"error", problem ? json{{"kind", problem->kind()}, {"message", problem->what()}} : json()},
        {"site", outcome.site ? *outcome.site : json()}};
}

std::string words_of(const std::array<worded, 5> &list, const std::string &name) {
    for (const worded &one : list) {
        if (name == one.name) {
            return one.words;
        }
    }
    return name;
}

} // namespace

std::string check_words(const std::string &check) {
    return words_of(checks, check);
}

std::string state_words(const std::string &state) {
    return words_of(states, state);
}

json plan_report(const std::string &plan_name, bool applied,
                 const std::vector<gateway_outcome> &outcomes) {
    json gateways = json::array();
    for (const gateway_outcome &one : outcomes) {
        gateways.push_back(gateway_report(one));
    }
    return {{"plan_report", 1},
            {"plan", plan_name},
            {"time", time_text()},
            {"applied", applied},
            {"gateways", gateways}};
}

} // namespace engr_app
