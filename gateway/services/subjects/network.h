// The simulated network, Wi-Fi and AirKiss layers of a gateway that has none of its own: answers
// can be set, requests are remembered and shown. Any thread.
#pragma once

#include "platform/network.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <functional>
#include <string>

namespace gateway {

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

/** Whether Wi-Fi configuration is needed. */
bool is_wifi_config_needed();
/** Work mode of the Wi-Fi layer. */
uint32_t wifi_mode();
/** Leaves access-point mode, if the Wi-Fi layer is in it. */
void stop_access_point();
/** Connects the Wi-Fi station to a network. */
void connect_station(const std::string &ssid);
/** Puts the Wi-Fi layer into access-point mode: the station has no network, and needs one. */
void begin_wifi_configuration();
/**
 * Ends the configuration if the station has a network.
 *
 * @return whether it has one
 */
bool end_wifi_configuration();

/** Status of the station, as AirKiss asks for it. */
uint8_t station_status();
/** 1 when AirKiss is active. */
int32_t airkiss_active();
/** Counts a phone that was told of a finished configuration. */
void count_airkiss_information();
/** Prepares AirKiss discovery. */
void prepare_airkiss_discovery();
/**
 * Counts a discovery packet.
 *
 * @return 0; result_failed when discovery is not prepared
 */
int32_t send_airkiss_discovery();

/** Adds network, Wi-Fi and AirKiss state. */
void add_network_status(nlohmann::ordered_json &status);

} // namespace gateway
