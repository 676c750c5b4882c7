// devices: the gateway's devices with their online state.
#include "gateway/devices.h"
#include "base/counted.h"
#include "base/json_text.h"
#include "files/seen_words.h"
#include "gateway/session.h"
#include "verbs/table_arguments.h"
#include "verbs/verb.h"

#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

struct devices_arguments {
    bool versions = false;
    table_view view;
};

void add_names(nlohmann::json &all, const names_file &names) {
    const auto known = [](const std::string &text) {
        return text.empty() ? nlohmann::json() : nlohmann::json(text);
    };
    for (nlohmann::json &one : all) {
        const std::string id = member_text(one, "cid");
        one["name"] = known(names.device_name(id));
        one["room"] = known(names.device_room(id));
    }
}

/** For completion, which asks no gateway. */
void remember_devices(gateway_session &session, const nlohmann::json &all) {
    std::vector<std::string> ids;
    for (const nlohmann::json &one : all) {
        if (ids.size() == seen_words_max) {
            break;
        }
        ids.push_back(member_text(one, "cid"));
    }
    remember_words("CID", session.chosen().label(), ids);
}

std::string text_or_dash(const nlohmann::json &device, const char *name) {
    return device[name].is_null() ? "-" : member_text(device, name);
}

void show_devices(console &out, const nlohmann::json &all, bool named,
                  const devices_arguments &given) {
    console::row header{"CID"};
    if (named) {
        header.insert(header.end(), {"NAME", "ROOM"});
    }
    header.insert(header.end(), {"PID", "STATE"});
    if (given.versions) {
        header.emplace_back("VERSION");
    }
    std::vector<console::row> rows;
    for (const nlohmann::json &one : all) {
        console::row cells{member_text(one, "cid")};
        if (named) {
            cells.insert(cells.end(), {text_or_dash(one, "name"), text_or_dash(one, "room")});
        }
        cells.insert(cells.end(), {member_text(one, "pid"), state_word(one)});
        if (given.versions) {
            cells.push_back(text_or_dash(one, "sw_ver"));
        }
        rows.push_back(std::move(cells));
    }
    out.table(header, rows, given.view);
    const auto offline = std::ranges::count_if(
        all, [](const nlohmann::json &one) { return one["online"] == false; });
    out.progress(counted(all.size(), "device") +
                 (offline > 0 ? fmt::format(", {} offline", offline) : ""));
}

int devices(gateway_session &session, const devices_arguments &given) {
    const names_file &names = session.names();
    const auto answers = session.ask({device_list_request(), line_state_request()});
    nlohmann::json all = expect_devices(session, answers[0], answers[1]);
    if (given.versions) {
        add_versions(session, all);
    }
    if (names.names_devices()) {
        add_names(all, names);
    }
    remember_devices(session, all);
    if (session.out().json()) {
        session.out().document(all);
    } else {
        show_devices(session.out(), all, names.names_devices(), given);
    }
    return exit_success;
}

} // namespace

verb_work declare_devices(CLI::App &parser) {
    const auto given = std::make_shared<devices_arguments>();
    parser.add_flag("--versions", given->versions, "Ask for the firmware version of each as well");
    declare_table(parser, given->view, {"CID", "NAME", "ROOM", "PID", "STATE", "VERSION"});
    parser.footer(
        std::string(versions_note) +
        "STATE is online, offline, or - for what the gateway keeps in neither list\n"
        "(null in \"online\" with --json).\n\n"
        "Gateways know ids only. A file of your own adds names and rooms to tables, and lets you\n"
        "give a name wherever an id is expected: ~/.config/engr_app/names.json, or --names FILE:\n"
        "  {\"devices\": {\"a4c1380001000001\": {\"name\": \"ceiling\", \"room\": \"kitchen\"}},\n"
        "   \"products\": {\"zbdimmer\": {\"1\": \"switch\", \"2\": \"brightness\"}}}\n\n"
        "Examples:\n"
        "  engr_app devices\n"
        "  engr_app devices --filter state=offline --sort room\n"
        "  engr_app devices --fields cid,state --no-header\n"
        "  engr_app devices --gateway 127.0.0.1 --json");
    return with_arguments(given, devices);
}

} // namespace engr_app
