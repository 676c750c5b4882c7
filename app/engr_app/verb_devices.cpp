// devices: the gateway's devices with their online state.
#include "arguments.h"
#include "device_list.h"
#include "failure.h"
#include "json_text.h"
#include "session.h"
#include "verbs.h"

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

int devices(session &present) {
    const auto answers = present.ask({device_list_request(), line_state_request()});
    const nlohmann::json all = accepted_devices(present, answers[0], answers[1]);
    console &out = present.out();
    if (out.json()) {
        out.document(all);
        return exit_success;
    }
    std::vector<console::row> rows;
    for (const nlohmann::json &one : all) {
        rows.push_back({member_text(one, "cid"), member_text(one, "pid"), state_word(one)});
    }
    out.table({"CID", "PID", "STATE"}, rows);
    out.progress(std::to_string(all.size()) + " devices");
    return exit_success;
}

} // namespace

verb_work declare_devices(arguments &declared) {
    declared.notes("STATE is online, offline, or - for what the gateway keeps in neither list\n"
                   "(null in \"online\" with --json).\n\n"
                   "Examples:\n"
                   "  engr_app devices\n"
                   "  engr_app devices --gateway 127.0.0.1 --json");
    return devices;
}

} // namespace engr_app
