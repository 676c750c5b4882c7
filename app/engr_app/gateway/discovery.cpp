// Names and addresses of gateways.
#include "gateway/discovery.h"

#include <algorithm>
#include <charconv>

#include <arpa/inet.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using lan_client::announcement;

bool is_ipv4(const std::string &text) {
    in_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

std::string list_of(const discovery_result &found) {
    std::string list;
    for (const lan_client::announcement &announced : found.announcements) {
        list += fmt::format("{}{} ({})", list.empty() ? "" : ", ", announced.id, announced.address);
    }
    return list;
}

} // namespace

std::string gateway::place() const {
    return port == lan_client::gateway_port ? address : fmt::format("{}:{}", address, port);
}

std::string gateway::name() const {
    return announced ? fmt::format("gateway {} ({})", announced->id, place())
                     : "gateway " + place();
}

std::string gateway::label() const {
    return announced ? announced->id : place();
}

std::optional<gateway> parse_address(const std::string &text) {
    const std::size_t colon = text.find(':');
    gateway named;
    named.address = text.substr(0, colon);
    if (!is_ipv4(named.address)) {
        return std::nullopt;
    }
    if (colon != std::string::npos) {
        const char *end = text.data() + text.size();
        const auto [rest, problem] = std::from_chars(text.data() + colon + 1, end, named.port);
        if (problem != std::errc() || rest != end || named.port == 0) {
            throw wrong_usage(fmt::format("--gateway {}: the port must be 1 to 65535", text));
        }
    }
    return named;
}

gateway from_announcement(const announcement &found) {
    return {found.address, lan_client::gateway_port, found};
}

const announcement *discovery_result::find_id(const std::string &id) const {
    const auto found = std::ranges::find(announcements, id, &announcement::id);
    return found == announcements.end() ? nullptr : &*found;
}

const announcement *discovery_result::find_address(const std::string &address) const {
    const auto found = std::ranges::find(announcements, address, &announcement::address);
    return found == announcements.end() ? nullptr : &*found;
}

failure not_found(const discovery_result &found, const std::string &wanted,
                  const std::string &interface_name) {
    const bool some = !found.announcements.empty();
    if (some && wanted.empty()) {
        return {"several_gateways",
                fmt::format("several gateways found, pick one with --gateway ID or --gateway "
                            "ADDRESS: {}",
                            list_of(found))};
    }
    const std::string sentence =
        wanted.empty()
            ? fmt::format("no gateway found on interface {}", interface_name)
            : fmt::format("gateway {} was not found on interface {}", wanted, interface_name);
    if (found.unreadable > 0) {
        return {"other_seeds",
                fmt::format("{}, but {} discovery datagram(s) that this program can't read: it "
                            "must be built with the key seeds of the gateway",
                            sentence, found.unreadable)};
    }
    return {"no_gateway",
            some ? fmt::format("{}; found: {}", sentence, list_of(found))
                 : sentence + ": check that it is switched on and in engineering mode, name its "
                              "network with --interface, or reach it with --gateway ADDRESS (a "
                              "gateway with 10 apps connected stays silent)"};
}

nlohmann::json announcement_json(const lan_client::announcement &announced) {
    return {{"id", announced.id},
            {"address", announced.address},
            {"told_address", announced.announced_address},
            {"activated", announced.activated},
            {"ability", announced.ability},
            {"needs_wifi_setup", announced.needs_wifi_setup},
            {"version", announced.version},
            {"product_key", announced.product_key}};
}

} // namespace engr_app
