// Life and show of the gateway's network state.
#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace gateway {

/** Begins with everything at its default. @param address  tells the platform's address, or an empty
 * text */
void open_network(std::function<std::string()> address);
void close_network();

/** Adds network, Wi-Fi and AirKiss state. */
void add_network_status(nlohmann::ordered_json &status);

} // namespace gateway
