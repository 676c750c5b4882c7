// devices: the gateway's devices with their online state.
#include "gateway/devices.h"
#include "base/counted.h"
#include "base/json_list.h"
#include "files/seen_words.h"
#include "gateway/session.h"
#include "verbs/table_arguments.h"
#include "verbs/verb.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace engr_app {
namespace {

struct devices_arguments {
    bool versions = false;
    table_view view;
};

/** What is shown of a gateway's devices. */
struct found_devices {
    std::vector<lan_client::device_with_state> all;
    std::vector<std::string> versions; /**< of each; none unless they were asked for */
    const names_file *names;           /**< null when it names no devices */
};

/** The ids of the first devices, of so many at most. */
std::vector<std::string> ids_of(const std::vector<lan_client::device_with_state> &devices,
                                std::size_t most) {
    std::vector<std::string> ids;
    for (std::size_t at = 0; at < std::min(devices.size(), most); ++at) {
        ids.push_back(devices[at].id);
    }
    return ids;
}

std::string json_of(const found_devices &found, const devices_arguments &given) {
    json_list list;
    for (std::size_t at = 0; at < found.all.size(); ++at) {
        const auto &one = found.all[at];
        list.begin_object();
        list.add("cid", one.id);
        if (found.names != nullptr) {
            list.add_known("name", found.names->device_name(one.id));
        }
        list.add("online", one.online);
        list.add("pid", one.product_id);
        if (found.names != nullptr) {
            list.add_known("room", found.names->device_room(one.id));
        }
        if (given.versions) {
            list.add_known("sw_ver", found.versions[at]);
        }
    }
    return std::move(list).take();
}

void show_devices(console &out, const found_devices &found, const devices_arguments &given) {
    const auto text_or_dash = [](const std::string &text) { return text.empty() ? "-" : text; };
    console::row header{"CID"};
    if (found.names != nullptr) {
        header.insert(header.end(), {"NAME", "ROOM"});
    }
    header.insert(header.end(), {"PID", "STATE"});
    if (given.versions) {
        header.emplace_back("VERSION");
    }
    std::vector<console::row> rows;
    for (std::size_t at = 0; at < found.all.size(); ++at) {
        const auto &one = found.all[at];
        console::row cells{one.id};
        if (found.names != nullptr) {
            cells.insert(cells.end(), {text_or_dash(found.names->device_name(one.id)),
                                       text_or_dash(found.names->device_room(one.id))});
        }
        cells.insert(cells.end(), {one.product_id, state_word(one.online)});
        if (given.versions) {
            cells.push_back(text_or_dash(found.versions[at]));
        }
        rows.push_back(std::move(cells));
    }
    out.table(header, rows, given.view);
    const auto offline =
        std::ranges::count_if(found.all, [](const auto &one) { return one.online == false; });
    out.progress(counted(found.all.size(), "device") +
                 (offline > 0 ? fmt::format(", {} offline", offline) : ""));
}

int devices(gateway_session &session, const devices_arguments &given) {
    const names_file &names = session.names();
    const auto answers = session.ask({device_list_request(), line_state_request()});
    found_devices found{.all = expect_devices(session, answers[0], answers[1]),
                        .versions = {},
                        .names = names.names_devices() ? &names : nullptr};
    if (given.versions) {
        found.versions = ask_versions(session, ids_of(found.all, found.all.size())).devices;
    }
    // For completion, which asks no gateway.
    remember_words("CID", session.chosen().label(), ids_of(found.all, seen_words_max));
    if (session.out().json()) {
        session.out().written_document(json_of(found, given));
    } else {
        show_devices(session.out(), found, given);
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
