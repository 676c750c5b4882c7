// Life and show of the gateway's network state.
#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace gateway {

/**
 * Begins with everything at its default.
 *
 * @param address  tells the platform's address, or an empty text
 */
void open_network(std::function<std::string()> address);
void close_network();

/** Connects the Wi-Fi station to a network. */
void connect_station(const std::string &ssid);
/** Puts the Wi-Fi layer into access-point mode: the station has no network, and needs one. */
void begin_wifi_configuration();
/** @return whether the station has a network; then none is needed any more */
bool end_wifi_configuration();

/** Adds network, Wi-Fi and AirKiss state. */
void add_network_status(nlohmann::ordered_json &status);

} // namespace gateway
