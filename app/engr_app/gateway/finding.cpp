// Which gateway a name means, and where it is.
#include "gateway/finding.h"

#include "files/known_gateways.h"
#include "gateway/link_address.h"
#include "gateway/session.h"

#include <fmt/format.h>

namespace engr_app {
namespace {

using lan_client::announcement;

// As long as names of hosts on a local network are usually kept: no address changes hands sooner.
constexpr int64_t trusted_age_s = 120;

gateway find_only(gateway_session &session) {
    session.out().progress(fmt::format("listening for gateways on {} ...",
                                       interfaces_text(session.options().interface_name)));
    const discovery_result result = session.discover(session.discovery_time());
    if (result.announcements.size() != 1) {
        throw not_found(result, "");
    }
    const announcement &found = result.announcements.front();
    session.out().progress(fmt::format("found gateway {} ({}); engr_app use {} saves this wait "
                                       "from now on",
                                       found.id, found.address, found.id));
    return from_announcement(found);
}

bool is_on_named_interface(gateway_session &session, const announcement &announced) {
    const std::string &named = session.options().interface_name;
    return named.empty() || named == announced.interface_name;
}

} // namespace

gateway listen_for(gateway_session &session, const std::string &id) {
    session.out().progress(fmt::format("listening for gateway {} on {} ...", id,
                                       interfaces_text(session.options().interface_name)));
    const discovery_result result =
        session.discover(session.discovery_time(),
                         [&id](const announcement &announced) { return announced.id == id; });
    if (const announcement *announced = result.find_id(id)) {
        return from_announcement(*announced);
    }
    throw not_found(result, id);
}

std::optional<gateway> recall(gateway_session &session, const std::string &id) {
    const std::optional<known_gateway> known = find_known_id(session.out(), id);
    if (!known || !parse_address(known->announced.address) ||
        !is_on_named_interface(session, known->announced)) {
        return std::nullopt;
    }
    if (known->link_address.empty() && known->age_s() > trusted_age_s) {
        return std::nullopt;
    }
    gateway recalled = from_announcement(known->announced);
    recalled.remembered = true;
    return recalled;
}

std::optional<announcement> recall_with_key(gateway_session &session, const std::string &address) {
    const std::optional<known_gateway> known = find_known_address(session.out(), address);
    if (known && known->age_s() <= trusted_age_s &&
        session.options().keys.contains(known->announced.id)) {
        return known->announced;
    }
    return std::nullopt;
}

gateway find_gateway(gateway_session &session, const std::string &named) {
    if (named.empty()) {
        return find_only(session);
    }
    if (const std::optional<gateway> placed = parse_address(named)) {
        return *placed;
    }
    const std::optional<gateway> recalled = recall(session, named);
    return recalled ? *recalled : listen_for(session, named);
}

bool has_other_hardware(gateway_session &session, const gateway &recalled) {
    const std::string now = link_address_of(recalled.address, recalled.port);
    const auto known = find_known_id(session.out(), recalled.announced->id);
    return known && !known->link_address.empty() && now != known->link_address;
}

void keep_hardware(gateway_session &session, const gateway &connected) {
    if (!connected.announced) {
        return;
    }
    const std::string now = link_address_of(connected.address, connected.port);
    if (!now.empty()) {
        keep_link_address(session.out(), connected.announced->id, now);
    }
}

} // namespace engr_app
