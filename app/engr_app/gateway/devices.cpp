// Asking for devices, many at once.
#include "gateway/devices.h"

#include "base/json_text.h"
#include "gateway/request.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

// Requests under way at once: enough to hide the round trip, few enough that each is answered in
// time.
constexpr std::size_t requests_at_once = 64;

} // namespace

nlohmann::json expect_devices(gateway_session &session, const lan_client::answer &list,
                              const lan_client::answer &states) {
    std::vector<device> devices = parse_device_list(expect_success(session, list));
    line_state known;
    if (!says_no_devices(states)) {
        known = parse_line_state(expect_success(session, states));
    }
    return lan_client::as_json(lan_client::with_states(std::move(devices), known));
}

std::string device_text(gateway_session &session, const std::string &id) {
    const std::string name = session.names().device_name(id);
    return name.empty() ? "device " + id : fmt::format("device {} ({})", name, id);
}

std::string product_of(gateway_session &session, const std::string &id) {
    const auto devices =
        parse_device_list(expect_success(session, session.ask({device_list_request()}).front()));
    const auto found = std::ranges::find(devices, id, &device::id);
    return found == devices.end() ? "" : found->product_id;
}

const char *state_word(const nlohmann::json &device_of_list) {
    const auto online = device_of_list.find("online");
    if (online == device_of_list.end() || !online->is_boolean()) {
        return "-";
    }
    return online->get<bool>() ? "online" : "offline";
}

void ask_of_each(gateway_session &session, nlohmann::json &devices, const char *what,
                 const std::function<lan_client::request(const nlohmann::json &)> &request_for,
                 const std::function<void(nlohmann::json &, const lan_client::answer &)> &take) {
    progress_bar bar = session.out().bar(what, devices.size(), "devices");
    for (std::size_t start = 0; start < devices.size(); start += requests_at_once) {
        const std::size_t end = std::min(start + requests_at_once, devices.size());
        std::vector<lan_client::request> requests;
        for (std::size_t at = start; at < end; ++at) {
            requests.push_back(request_for(devices[at]));
        }
        const auto answers = session.ask(std::move(requests));
        for (std::size_t at = start; at < end; ++at) {
            take(devices[at], answers[at - start]);
        }
        bar.show(end);
    }
}

lan_client::request gateway_version_request() {
    return upgrade_status_request({});
}

void warn_of_withdrawal(gateway_session &session) {
    session.out().progress("asking for versions, which withdraws an image that another app has "
                           "announced and not started ...");
}

std::string add_versions(gateway_session &session, nlohmann::json &devices) {
    warn_of_withdrawal(session);
    const auto own = session.ask({gateway_version_request()});
    const auto now = parse_upgrade_status({}, expect_success(session, own.front()));
    if (now.running) {
        throw failure("busy", fmt::format("an upgrade of {} is under way; ask for versions when it "
                                          "has ended",
                                          now.running_id));
    }
    const auto order_for = [](const nlohmann::json &device) {
        return upgrade_order{.cid = member_text(device, "cid"), .version = {}, .md5 = {}};
    };
    ask_of_each(
        session, devices, "versions",
        [&](const nlohmann::json &device) { return upgrade_status_request(order_for(device)); },
        [&](nlohmann::json &device, const lan_client::answer &answered) {
            const auto status =
                parse_upgrade_status(order_for(device), expect_success(session, answered));
            device["sw_ver"] =
                status.version.empty() ? nlohmann::json() : nlohmann::json(status.version);
        });
    return now.version;
}

} // namespace engr_app
