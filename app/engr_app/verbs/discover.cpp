// discover: which gateways announce themselves.
#include "base/failure.h"
#include "gateway/announcement_json.h"
#include "gateway/session.h"
#include "verbs/arguments.h"
#include "verbs/verb.h"

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

const char *yes_or_no(bool value) {
    return value ? "yes" : "no";
}

int discover(session &present) {
    console &out = present.out();
    out.progress("listening for gateways on " + present.options().interface_name + " ...");
    const heard_gateways heard = present.listen(present.listen_time());
    if (heard.announcements.empty()) {
        throw not_found(heard, "", present.options().interface_name);
    }
    if (out.json()) {
        nlohmann::json all = nlohmann::json::array();
        for (const lan_client::announcement &said : heard.announcements) {
            all.push_back(announcement_json(said));
        }
        out.document(all);
        return exit_success;
    }
    std::vector<console::row> rows;
    for (const lan_client::announcement &said : heard.announcements) {
        rows.push_back({said.id, said.address, yes_or_no(said.activated),
                        std::to_string(said.ability), yes_or_no(said.needs_wifi_setup),
                        said.version, said.product_key});
    }
    out.table({"ID", "ADDRESS", "ACTIVATED", "ABILITY", "NEEDS WI-FI", "VERSION", "PRODUCT KEY"},
              rows);
    if (heard.unreadable > 0) {
        out.notice(std::to_string(heard.unreadable) +
                   " more discovery datagram(s) could not be read: damaged, or of gateways with "
                   "other key seeds");
    }
    return exit_success;
}

} // namespace

verb_work declare_discover(arguments &declared) {
    declared.concerns_no_gateway();
    declared.notes("Gateways announce themselves every 5 seconds, so it listens for 6 seconds\n"
                   "unless --timeout says otherwise.\n\n"
                   "Examples:\n"
                   "  engr_app discover\n"
                   "  engr_app discover --interface eth0 --timeout 12\n"
                   "  engr_app discover --json");
    return discover;
}

} // namespace engr_app
