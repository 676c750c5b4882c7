// The simulated network, Wi-Fi and AirKiss layers of a gateway that has none of its own: answers
// can be set, requests are remembered and shown. Any thread.
#pragma once

#include "platform/airkiss.h"
#include "platform/network.h"
#include "platform/owners.h"
#include "platform/wifi.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace gateway {

/** Work mode after the access point was shut down or a connection asked for. */
constexpr uint32_t wifi_mode_station = 1;

/** What the layers answer, and what they were asked for. */
struct network_state {
    bool is_up = true;
    std::optional<std::string> address_override; /**< instead of the platform's */
    bool wifi_config_needed = false;
    uint32_t wifi_mode = wifi_mode_station;
    std::string wifi_ssid; /**< last network that the station was told to connect to */
    uint8_t station_status = WF_STATION_CONNECTED_DHCP; /**< as AirKiss asks for it */
    int32_t airkiss_active = 1;
    bool airkiss_prepared = false; /**< discovery may send */
    uint64_t airkiss_informed = 0; /**< phones that were told of a finished configuration */
    uint64_t airkiss_sent = 0;     /**< discovery packets */
};

/** Access to the state, under its mutex: locked_network()->member, once in a statement. */
class locked_network {
  public:
    locked_network();
    network_state *operator->() const;

  private:
    platform::held_mutex guard_;
};

/**
 * Sets everything to its default.
 *
 * @param address  returns the platform's address, or an empty text
 */
void network_init(std::function<std::string()> address);
void network_shutdown();

/** Whether the network is up and the gateway has an address. */
bool is_network_up();
/**
 * Writes the gateway's address.
 *
 * @return 0; result_failed when it has none, or one that does not fit
 */
int32_t write_address(gw_addr_t &address);

/** Adds network, Wi-Fi and AirKiss state. */
void add_network_status(nlohmann::ordered_json &status);

} // namespace gateway
