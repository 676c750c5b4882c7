// The firmware versions that a gateway tells of itself and of its devices.
#pragma once

#include "upgrade_words.h"

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

class session;

/// What to say about it in --help: a gateway tells versions only to an announcement.
inline constexpr const char *versions_note =
    "Asking for versions announces an empty image, which withdraws what another app has announced\n"
    "but not started; an upgrade under way is not disturbed.\n\n";

/// Asks for the gateway's own version and whether an upgrade is under way.
[[nodiscard]] lan_client::request gateway_version_request();

/// Adds "sw_ver" to each entry of a device list, null where the gateway tells none. Throws a
/// failure while an upgrade is under way, since asking would disturb it.
void add_versions(session &present, nlohmann::json &devices);

} // namespace engr_app
