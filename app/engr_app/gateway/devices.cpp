// Asking for devices, many at once.
#include "gateway/devices.h"

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

std::vector<lan_client::device_with_state> expect_devices(gateway_session &session,
                                                          const lan_client::answer &list,
                                                          const lan_client::answer &states) {
    std::vector<device> devices = parse_device_list(expect_success(session, list));
    line_state known;
    if (!says_no_devices(states)) {
        known = parse_line_state(expect_success(session, states));
    }
    return lan_client::with_states(std::move(devices), known);
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

const char *state_word(std::optional<bool> online) {
    return !online ? "-" : *online ? "online" : "offline";
}

const char *state_word(const nlohmann::json &device_of_list) {
    const auto online = device_of_list.find("online");
    const bool is_known = online != device_of_list.end() && online->is_boolean();
    return state_word(is_known ? std::optional(online->get<bool>()) : std::nullopt);
}

void ask_of_each(
    gateway_session &session, std::size_t count, const char *what,
    const std::function<lan_client::request(std::size_t at)> &request_for,
    const std::function<void(std::size_t at, const lan_client::answer &answered)> &take) {
    progress_bar bar = session.out().bar(what, count, "devices");
    for (std::size_t start = 0; start < count; start += requests_at_once) {
        const std::size_t end = std::min(start + requests_at_once, count);
        std::vector<lan_client::request> requests;
        for (std::size_t at = start; at < end; ++at) {
            requests.push_back(request_for(at));
        }
        const auto answers = session.ask(std::move(requests));
        for (std::size_t at = start; at < end; ++at) {
            take(at, answers[at - start]);
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

firmware_versions ask_versions(gateway_session &session, const std::vector<std::string> &ids) {
    warn_of_withdrawal(session);
    const auto own = session.ask({gateway_version_request()});
    const auto now = parse_upgrade_status({}, expect_success(session, own.front()));
    if (now.running) {
        throw failure("busy", fmt::format("an upgrade of {} is under way; ask for versions when it "
                                          "has ended",
                                          now.running_id));
    }
    firmware_versions found{.gateway = now.version, .devices = {}};
    const auto order_for = [&ids](std::size_t at) {
        return upgrade_order{.cid = ids[at], .version = {}, .md5 = {}};
    };
    ask_of_each(
        session, ids.size(), "versions",
        [&](std::size_t at) { return upgrade_status_request(order_for(at)); },
        [&](std::size_t at, const lan_client::answer &answered) {
            found.devices.push_back(
                parse_upgrade_status(order_for(at), expect_success(session, answered)).version);
        });
    return found;
}

} // namespace engr_app
