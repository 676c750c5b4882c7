// Names and addresses of gateways.
#include "gateway/discovery.h"

#include "lan_client/devices.h"
#include "support/interfaces.h"

#include <algorithm>
#include <charconv>

#include <arpa/inet.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using namespace std::chrono_literals;
using lan_client::announcement;

bool is_ipv4(const std::string &text) {
    in_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

// Somebody meant an address, since no id has this form.
bool is_like_ipv4(const std::string &text) {
    return std::ranges::count(text, '.') == 3 &&
           text.find_first_not_of("0123456789.") == std::string::npos;
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

std::string gateway::file_mark() const {
    constexpr std::size_t longest_mark = 64;
    const std::string id = label();
    const bool fit = id.size() <= longest_mark && std::ranges::all_of(id, [](char one) {
                         return (one >= '0' && one <= '9') || (one >= 'a' && one <= 'z') ||
                                (one >= 'A' && one <= 'Z') || one == '-' || one == '_' ||
                                one == '.';
                     });
    std::string mark = fit ? id : place();
    std::ranges::replace(mark, ':', '_');
    return mark;
}

std::optional<gateway> parse_address(const std::string &text) {
    const std::size_t colon = text.find(':');
    gateway named;
    named.address = text.substr(0, colon);
    if (!is_ipv4(named.address)) {
        if (is_like_ipv4(named.address)) {
            throw wrong_usage(fmt::format("--gateway {}: {} is not an IPv4 address, whose four "
                                          "numbers are 0 to 255",
                                          text, named.address));
        }
        if (text.size() > lan_client::max_device_id_bytes) {
            throw wrong_usage(fmt::format("--gateway {}: neither an IPv4 address nor an id, which "
                                          "has at most {} characters",
                                          text, lan_client::max_device_id_bytes));
        }
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

bool is_gateway_address(const std::string &text) {
    try {
        return parse_address(text).has_value();
    } catch (const failure &) {
        return false;
    }
}

gateway from_announcement(const announcement &found) {
    return {found.address, lan_client::gateway_port, found, false};
}

const announcement *discovery_result::find_id(const std::string &id) const {
    const auto found = std::ranges::find(announcements, id, &announcement::id);
    return found == announcements.end() ? nullptr : &*found;
}

const announcement *discovery_result::find_address(const std::string &address) const {
    const auto found = std::ranges::find(announcements, address, &announcement::address);
    return found == announcements.end() ? nullptr : &*found;
}

std::string interfaces_text(const std::string &interface_name) {
    std::vector<std::string> names = support::interfaces_up();
    if (!interface_name.empty()) {
        names = {interface_name};
    } else if (names.empty()) {
        return "all interfaces";
    }
    std::string text;
    for (std::size_t at = 0; at < names.size(); ++at) {
        const char *gap = at + 1 < names.size() ? ", " : " and ";
        text += (at == 0 ? "" : gap) + names[at];
    }
    return text;
}

std::string unreadable_note(const discovery_result &found) {
    return found.unreadable == 0
               ? ""
               : fmt::format("{} discovery datagram{} could not be read: damaged, or from gateways "
                             "with other key seeds than this program's",
                             found.unreadable, found.unreadable == 1 ? "" : "s");
}

failure not_found(const discovery_result &found, const std::string &wanted) {
    const bool some = !found.announcements.empty();
    if (some && wanted.empty()) {
        return {"several_gateways",
                fmt::format("several gateways found, pick one with --gateway ID or --gateway "
                            "ADDRESS, or for later commands with engr_app use ID: {}",
                            list_of(found))};
    }
    const std::string places = interfaces_text(found.interface_name);
    const std::string sentence =
        wanted.empty() ? fmt::format("no gateway was heard on {}", places)
                       : fmt::format("gateway {} was not heard on {}", wanted, places);
    if (found.unreadable > 0) {
        return {"other_seeds", fmt::format("{}, but {}", sentence, unreadable_note(found))};
    }
    if (some) {
        return {"no_gateway",
                fmt::format("{}; heard: {} (a gateway with 10 apps connected stays silent)",
                            sentence, list_of(found))};
    }
    std::string note;
    if (found.limit < lan_client::discovery_period) {
        note += fmt::format(" within {} s (each announces itself only every {} s, see --listen)",
                            std::chrono::duration<double>(found.limit).count(),
                            lan_client::discovery_period / 1s);
    }
    if (places.ends_with("lo")) {
        note += "; lo reaches only this machine";
    }
    return {"no_gateway",
            fmt::format("{}{}: check that it is switched on, in engineering mode and on the same "
                        "network, or reach it with --gateway ADDRESS (a gateway with 10 apps "
                        "connected stays silent)",
                        sentence, note)};
}

nlohmann::json announcement_json(const lan_client::announcement &announced) {
    return {{"id", announced.id},
            {"address", announced.address},
            {"interface", announced.interface_name},
            {"told_address", announced.announced_address},
            {"activated", announced.activated},
            {"ability", announced.ability},
            {"needs_wifi_setup", announced.needs_wifi_setup},
            {"version", announced.version},
            {"product_key", announced.product_key}};
}

} // namespace engr_app
