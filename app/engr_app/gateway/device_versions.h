// The firmware versions that a gateway tells of itself and of its devices.
#pragma once

#include "gateway/upgrade_status.h"

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

class session;

/// What to say about it in --help: a gateway tells versions only to an announcement.
inline constexpr const char *versions_note =
    "A gateway tells versions only to an app that announces an image, so --versions announces an\n"
    "empty one. That withdraws what another app has announced and not started: its start fails\n"
    "with \"file_size is zero\", and it has to announce again. An upgrade under way goes on.\n\n";

/// Asks for the gateway's own version and whether an upgrade is under way.
[[nodiscard]] lan_client::request gateway_version_request();

/// Says that versions are asked for and what that does to others.
void tell_of_withdrawal(session &present);

/// Adds "sw_ver" to each entry of a device list, null where the gateway tells none. Throws a
/// failure while an upgrade is under way, since asking would disturb it. Returns the gateway's own.
std::string add_versions(session &present, nlohmann::json &devices);

} // namespace engr_app
