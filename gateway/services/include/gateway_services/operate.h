// What an operator does to an open gateway: each verb of the daemon's control socket calls one of
// these functions, which is implemented with its subject.
//
// All functions may be called on any thread between open and close. They throw usage_error and
// refused.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace gateway {

/** Changes a field of the gateway record, and stores it. */
void set_gateway_field(std::string_view name, const std::string &value);
/** Changes a field of a device, and stores it. */
void set_device_field(std::string_view dev_id, std::string_view name, const std::string &value);

/**
 * A device's data points change: they are stored, then reported to every app.
 *
 * @param dps  JSON object, data-point number to value
 * @return the result of engr_lan_dp_sata_report
 */
int32_t report_data_points(std::string_view dev_id, std::string_view dps);

/**
 * A device joins at once, as one of the site that waits to join or as a new one.
 *
 * @param pid  its product id; none: that of the site
 * @throws refused  joining is closed, or the device is in the list already
 */
void join_device(const std::string &dev_id, const std::optional<std::string> &pid);

/** A transfer that the upgrade service starts by itself. Members that are left out are those of the
 * last offer, or the service's defaults. */
struct upgrade_start {
    std::optional<std::string> cid = {}; /**< device, or the gateway's own id */
    std::optional<uint32_t> file_size = {};
    std::optional<uint32_t> chunk_size = {};
    std::optional<bool> percent = {};
    std::optional<uint32_t> remain = {};
};

/**
 * Makes the agent ask the app for an image, again when it is being received already. The received
 * bytes are kept until the agent has accepted the start.
 *
 * @return the result of lan_gw_start_upgrade
 * @throws refused  an image is being installed, or there is no room
 */
int32_t start_upgrade(const upgrade_start &wanted);

/**
 * Puts the Wi-Fi layer into access-point mode and listens for the credentials of a network.
 *
 * @return the result of engr_lan_ap_nw_cfg_start
 */
int32_t open_access_point();
/**
 * Listens for credentials without any other change.
 *
 * @return the same
 */
int32_t listen_for_credentials();

/** Puts the gateway's network down, or leaves it to follow the address. */
void set_network_up(bool up);
/** Overrides the gateway's address (empty: it has none); none follows the platform again. */
void set_address(std::optional<std::string> address);
/** Whether Wi-Fi configuration is needed. */
void set_wifi_config_needed(bool needed);
/** Work mode of the Wi-Fi layer. */
void set_wifi_mode(uint32_t mode);
/** Answers of the AirKiss layer: station status, and 1 when active. */
void set_airkiss(uint8_t station_status, int32_t active);

/**
 * Registers a frame handler with the agent that returns a fixed result.
 *
 * @return the result of engr_lan_protocol_register_cb
 */
int32_t register_frame_handler(int32_t frame_type, int32_t result);

} // namespace gateway
