// Names and places of gateways.
#include "gateway/gateway.h"

#include <algorithm>
#include <charconv>

#include <arpa/inet.h>

namespace engr_app {
namespace {

using lan_client::announcement;

bool is_ipv4(const std::string &text) {
    in_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

std::string list_of(const heard_gateways &heard) {
    std::string list;
    for (const lan_client::announcement &said : heard.announcements) {
        list += (list.empty() ? "" : ", ") + said.id + " (" + said.address + ")";
    }
    return list;
}

} // namespace

std::string gateway::place() const {
    return port == lan_client::gateway_port ? address : address + ":" + std::to_string(port);
}

std::string gateway::name() const {
    return announced ? "gateway " + announced->id + " (" + place() + ")" : "gateway " + place();
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
            throw failure("usage", "--gateway " + text + ": the port must be 1 to 65535",
                          exit_wrong_usage);
        }
    }
    return named;
}

gateway from_announcement(const announcement &heard) {
    return {heard.address, lan_client::gateway_port, heard};
}

const announcement *heard_gateways::find_id(const std::string &id) const {
    const auto found = std::ranges::find(announcements, id, &announcement::id);
    return found == announcements.end() ? nullptr : &*found;
}

const announcement *heard_gateways::find_address(const std::string &address) const {
    const auto found = std::ranges::find(announcements, address, &announcement::address);
    return found == announcements.end() ? nullptr : &*found;
}

failure not_found(const heard_gateways &heard, const std::string &wanted,
                  const std::string &interface_name) {
    if (!heard.announcements.empty() && wanted.empty()) {
        return {"several_gateways", "several gateways found, pick one with --gateway ID or "
                                    "--gateway ADDRESS: " +
                                        list_of(heard)};
    }
    std::string sentence =
        wanted.empty() ? "no gateway found on interface " + interface_name
                       : "gateway " + wanted + " was not heard on interface " + interface_name;
    if (heard.unreadable > 0) {
        return {"other_seeds", sentence + ", but " + std::to_string(heard.unreadable) +
                                   " discovery datagram(s) that this program can't read: it must "
                                   "be built with the key seeds of the gateway"};
    }
    if (!heard.announcements.empty()) {
        return {"no_gateway", sentence + "; heard: " + list_of(heard)};
    }
    return {"no_gateway",
            sentence + ": check that it is switched on and in engineering mode, name its network "
                       "with --interface, or reach it with --gateway ADDRESS (a gateway with 10 "
                       "apps connected stays silent)"};
}

} // namespace engr_app
