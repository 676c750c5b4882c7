// discover: which gateways announce themselves.
#include "base/failure.h"
#include "gateway/discovery.h"
#include "gateway/session.h"
#include "verbs/table_arguments.h"
#include "verbs/verb.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using lan_client::announcement;

struct discover_arguments {
    bool wide = false;
    table_view view;

    /** Whether all rows have to be there before the first is shown. */
    [[nodiscard]] bool is_shaped() const { return view != table_view{}; }
    [[nodiscard]] bool shows_all() const { return wide || !view.fields.empty(); }
};

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

void print_table(console &out, const discovery_result &found, const discover_arguments &given) {
    console::row header;
    for (const auto &[name, width] : columns(given.shows_all())) {
        header.push_back(name);
    }
    std::vector<console::row> rows;
    for (const announcement &announced : found.announcements) {
        rows.push_back(cells(announced, given.shows_all()));
    }
    out.table(header, rows, given.view);
}

int discover(gateway_session &session, const discover_arguments &given) {
    console &out = session.out();
    const std::string &interface_name = session.options().interface_name;
    const std::chrono::milliseconds time = session.discovery_time();
    session.end_on_interrupt();
    out.progress(fmt::format("listening for gateways on {} for {} ...",
                             interfaces_text(interface_name), seconds_text(time)));
    growing_table table = out.grow_table(columns(given.wide));
    const auto show_row = [&](const announcement &announced) {
        if (!out.json() && !given.is_shaped()) {
            table.add(cells(announced, given.wide));
        }
    };
    const discovery_result found = session.listen({interface_name, time, {}, show_row});
    if (found.announcements.empty()) {
        throw not_found(found, "");
    }
    if (out.json()) {
        print_json(out, found);
    } else if (given.is_shaped()) {
        print_table(out, found, given);
    }
    if (found.unreadable > 0) {
        out.notice(unreadable_note(found));
    }
    return exit_success;
}

} // namespace

verb_work declare_discover(CLI::App &parser) {
    const auto given = std::make_shared<discover_arguments>();
    parser.add_flag("--wide", given->wide,
                    "Show what else an announcement says: the ability (a number of the gateway's "
                    "own), the version of the protocol, and the product key");
    declare_table(parser, given->view,
                  {"ID", "ADDRESS", "INTERFACE", "ACTIVATED", "NEEDS WI-FI", "ABILITY", "VERSION",
                   "PRODUCT KEY"});
    concerns_no_gateway(parser);
    parser.footer("Each gateway is shown when it is heard first, unless an option for the table "
                  "needs them all. Gateways announce themselves "
                  "every 5 seconds, so it listens for 6 seconds unless --listen says otherwise.\n\n"
                  "Examples:\n"
                  "  engr_app discover\n"
                  "  engr_app discover --interface eth0 --listen 12\n"
                  "  engr_app discover --json");
    return with_arguments(given, discover);
}

} // namespace engr_app
