// discover: which gateways announce themselves.
#include "base/failure.h"
#include "gateway/discovery.h"
#include "gateway/session.h"
#include "verbs/verb.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

int discover(gateway_session &session) {
    console &out = session.out();
    out.progress(fmt::format("listening for gateways on {} ...", session.options().interface_name));
    const discovery_result found = session.discover(session.discovery_time());
    if (found.announcements.empty()) {
        throw not_found(found, "", session.options().interface_name);
    }
    if (out.json()) {
        nlohmann::json all = nlohmann::json::array();
        for (const lan_client::announcement &announced : found.announcements) {
            all.push_back(announcement_json(announced));
        }
        out.document(all);
        return exit_success;
    }
    std::vector<console::row> rows;
    for (const lan_client::announcement &announced : found.announcements) {
        rows.push_back({announced.id, announced.address, yes_or_no(announced.activated),
                        std::to_string(announced.ability), yes_or_no(announced.needs_wifi_setup),
                        announced.version, announced.product_key});
    }
    out.table({"ID", "ADDRESS", "ACTIVATED", "ABILITY", "NEEDS WI-FI", "VERSION", "PRODUCT KEY"},
              rows);
    if (found.unreadable > 0) {
        out.notice(fmt::format("{} more discovery datagram(s) could not be read: damaged, or of "
                               "gateways with other key seeds",
                               found.unreadable));
    }
    return exit_success;
}

} // namespace

verb_work declare_discover(CLI::App &parser) {
    concerns_no_gateway(parser);
    parser.footer("Gateways announce themselves every 5 seconds, so it listens for 6 seconds\n"
                  "unless --timeout says otherwise.\n\n"
                  "Examples:\n"
                  "  engr_app discover\n"
                  "  engr_app discover --interface eth0 --timeout 12\n"
                  "  engr_app discover --json");
    return discover;
}

} // namespace engr_app
