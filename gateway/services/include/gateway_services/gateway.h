// The reference gateway's services as their host sees them: opened, operated, closed.
//
// There is one gateway in a process, like the contracts in gateway/ and platform/ that it fulfils.
// All functions may be called on any thread between open and close. They throw usage_error and
// refused.
#pragma once

#include "gateway_services/scenario.h"
#include "gateway_services/site.h"

#include <cstdint>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace gateway {

/** What open needs. */
struct open_options {
    std::string store_path = ":memory:"; /**< SQLite file, or ":memory:" */
    site initial_site;                   /**< used when the store is new */
    scenario faults;                     /**< how the services misbehave from the start */
    /** Takes each trace line, without line feed; it has kept the line when it returns. One call at
     * a time. Empty: no trace. */
    std::function<void(std::string_view)> trace;
    /** Tells the gateway's address in dotted decimal, empty when it has none. */
    std::function<std::string()> address;
};

/**
 * Brings the gateway to life. The agent may be started when it returns.
 *
 * @throws refused  the store cannot be opened, read or written
 */
void open(open_options options);

/** Ends it; the agent has been stopped and no timer or thread of it runs. */
void close();

/** @return whether the store was new, so that the site was used */
bool used_initial_site();

/** Changes a field of the gateway record, lastingly. */
void set_gateway_field(std::string_view name, const std::string &value);
/** Changes a field of a device, lastingly. */
void set_device_field(std::string_view dev_id, std::string_view name, const std::string &value);

/**
 * A device's data points change: they are stored, then reported to every app.
 *
 * @param dps  JSON object, data-point number to value
 * @return the result of engr_lan_dp_sata_report
 */
int32_t report_data_points(std::string_view dev_id, std::string_view dps);

/** Puts the gateway's network down, or leaves it to follow the address. */
void set_network_up(bool up);
/** Overrides the gateway's address (empty: it has none); none follows the platform again. */
void set_address(std::optional<std::string> address);
/** Whether Wi-Fi configuration is needed. */
void set_wifi_config_needed(bool needed);
/** Work mode of the Wi-Fi layer. */
void set_wifi_mode(uint32_t mode);
/** What the AirKiss layer tells: station status, and 1 when active. */
void set_airkiss(uint8_t station_status, int32_t active);

/**
 * Registers a frame handler with the agent that returns a fixed result.
 *
 * @return the result of engr_lan_protocol_register_cb
 */
int32_t register_frame_handler(int32_t frame_type, int32_t result);

/** State for people: the record without its keys, extended state, devices, network, faults and
 * callbacks with how often they were reached. */
nlohmann::ordered_json status();

} // namespace gateway
