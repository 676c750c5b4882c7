// What an installer does to the gateway itself: token, Wi-Fi, end of engineering, deactivation.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>

namespace gateway {

/**
 * Remembers the Wi-Fi network that the gateway is to join, and the installer's token if there is a
 * new one.
 *
 * @throws usage_error, refused
 */
void store_wifi(const std::string &ssid, const std::string &password,
                const std::optional<std::string> &token);

/** Adds whether a token is bound and whether engineering has ended; change_mutex is held. */
void add_installation_status(nlohmann::ordered_json &status);

} // namespace gateway
