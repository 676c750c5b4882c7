// devices: the gateway's devices with their online state.
#include "gateway/devices.h"
#include "base/failure.h"
#include "base/json_text.h"
#include "gateway/session.h"
#include "verbs/verb.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

int devices(gateway_session &session, bool with_versions) {
    const auto answers = session.ask({device_list_request(), line_state_request()});
    nlohmann::json all = expect_devices(session, answers[0], answers[1]);
    if (with_versions) {
        add_versions(session, all);
    }
    console &out = session.out();
    if (out.json()) {
        out.document(all);
        return exit_success;
    }
    std::vector<console::row> rows;
    for (const nlohmann::json &one : all) {
        rows.push_back({member_text(one, "cid"), member_text(one, "pid"), state_word(one)});
        if (with_versions) {
            rows.back().push_back(one["sw_ver"].is_null() ? "-" : member_text(one, "sw_ver"));
        }
    }
    console::row header{"CID", "PID", "STATE"};
    if (with_versions) {
        header.push_back("VERSION");
    }
    out.table(header, rows);
    out.progress(fmt::format("{} devices", all.size()));
    return exit_success;
}

} // namespace

verb_work declare_devices(CLI::App &parser) {
    const auto with_versions = std::make_shared<bool>(false);
    parser.add_flag("--versions", *with_versions, "Ask for the firmware version of each as well");
    parser.footer(std::string(versions_note) +
                  "STATE is online, offline, or - for what the gateway keeps in neither list\n"
                  "(null in \"online\" with --json).\n\n"
                  "Examples:\n"
                  "  engr_app devices\n"
                  "  engr_app devices --gateway 127.0.0.1 --json");
    return with_arguments(with_versions, devices);
}

} // namespace engr_app
