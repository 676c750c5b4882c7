// The firmware versions that a gateway tells of itself and of its devices.
#include "gateway/device_versions.h"

#include "base/failure.h"
#include "base/json_text.h"
#include "gateway/devices.h"
#include "gateway/session.h"

#include <nlohmann/json.hpp>

namespace engr_app {

lan_client::request gateway_version_request() {
    return standing_request({});
}

void tell_of_withdrawal(session &present) {
    present.out().progress("asking for versions, which withdraws an image that another app has "
                           "announced and not started ...");
}

std::string add_versions(session &present, nlohmann::json &devices) {
    tell_of_withdrawal(present);
    const auto own = present.ask({gateway_version_request()});
    const auto now = parse_standing({}, present.accepted(own.front()));
    if (now.running) {
        throw failure("busy", "an upgrade of " + now.running_id +
                                  " is under way; ask for versions when it has ended");
    }
    const auto order_for = [](const nlohmann::json &device) {
        upgrade_order order;
        order.cid = member_text(device, "cid");
        return order;
    };
    ask_of_each(
        present, devices, "versions",
        [&](const nlohmann::json &device) { return standing_request(order_for(device)); },
        [&](nlohmann::json &device, const lan_client::answer &answered) {
            const auto told = parse_standing(order_for(device), present.accepted(answered));
            device["sw_ver"] =
                told.version.empty() ? nlohmann::json() : nlohmann::json(told.version);
        });
    return now.version;
}

} // namespace engr_app
