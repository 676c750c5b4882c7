// What an installer does to the gateway itself: token, Wi-Fi, end of engineering, deactivation. All
// functions throw refused when the store fails.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace gateway {

/**
 * Stores the installer's token in the place of an old one.
 *
 * @throws usage_error  it is no token
 */
void bind_token(std::string_view token);

/**
 * Stores a Wi-Fi network, and a new token if there is one.
 *
 * @throws usage_error  a text does not fit
 */
void store_wifi(const std::string &ssid, const std::string &password,
                const std::optional<std::string> &token);
/** Stores a Wi-Fi network and connects to it. */
void change_wifi(const std::string &ssid, const std::string &password);

/** Remembers that engineering has ended. */
void end_engineering();
/** Forgets the installer. The caller sets active_stat in the record. */
void deactivate();

/** Adds whether a token is bound and whether engineering has ended; change_mutex is held. */
void add_installer_status(nlohmann::ordered_json &status);

} // namespace gateway
