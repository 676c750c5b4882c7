// discover: which gateways announce themselves.
#include "base/failure.h"
#include "gateway/discovery.h"
#include "gateway/session.h"
#include "verbs/verb.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using lan_client::announcement;

std::vector<growing_table::column> columns(bool wide) {
    std::vector<growing_table::column> all{
        {"ID", 16}, {"ADDRESS", 15}, {"INTERFACE", 9}, {"ACTIVATED", 9}, {"NEEDS WI-FI", 11}};
    if (wide) {
        all.insert(all.end(), {{"ABILITY", 7}, {"VERSION", 7}, {"PRODUCT KEY", 16}});
    }
    return all;
}

console::row cells(const announcement &announced, bool wide) {
    console::row shown{announced.id, announced.address, announced.interface_name,
                       yes_or_no(announced.activated), yes_or_no(announced.needs_wifi_setup)};
    if (wide) {
        shown.insert(shown.end(),
                     {std::to_string(announced.ability), announced.version, announced.product_key});
    }
    return shown;
}

void print_json(console &out, const discovery_result &found) {
    nlohmann::json all = nlohmann::json::array();
    for (const announcement &announced : found.announcements) {
        all.push_back(announcement_json(announced));
    }
    out.document(all);
}

int discover(gateway_session &session, bool wide) {
    console &out = session.out();
    const std::string &interface_name = session.options().interface_name;
    const std::chrono::milliseconds time = session.discovery_time();
    session.end_on_interrupt();
    out.progress(fmt::format("listening for gateways on {} for {} ...",
                             interfaces_text(interface_name), seconds_text(time)));
    growing_table table = out.grow_table(columns(wide));
    const auto show_row = [&](const announcement &announced) {
        if (!out.json()) {
            table.add(cells(announced, wide));
        }
    };
    const discovery_result found = session.listen({interface_name, time, {}, show_row});
    if (found.announcements.empty()) {
        throw not_found(found, "");
    }
    if (out.json()) {
        print_json(out, found);
    }
    if (found.unreadable > 0) {
        out.notice(unreadable_note(found));
    }
    return exit_success;
}

} // namespace

verb_work declare_discover(CLI::App &parser) {
    const auto wide = std::make_shared<bool>(false);
    parser.add_flag("--wide", *wide,
                    "Show what else an announcement says: the ability (a number of the gateway's "
                    "own), the version of the protocol, and the product key");
    concerns_no_gateway(parser);
    parser.footer("Each gateway is shown when it is heard first. Gateways announce themselves "
                  "every 5 seconds, so it listens for 6 seconds unless --listen says otherwise.\n\n"
                  "Examples:\n"
                  "  engr_app discover\n"
                  "  engr_app discover --interface eth0 --listen 12\n"
                  "  engr_app discover --json");
    return with_arguments(wide, discover);
}

} // namespace engr_app
