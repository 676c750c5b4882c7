// The reference gateway's services as their host sees them: opened, operated, closed.
//
// Configuration files, log snapshots and firmware images are files of the working directory, so
// that no directory's name is part of a path that the agent cuts.
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
    std::string store_path = ":memory:"; /**< SQLite file, or ":memory:", then images too are kept
                                            in memory, else in files of the working directory */
    site initial_site;                   /**< used when the store is new */
    scenario faults;                     /**< how the services misbehave from the start */
    /** Takes each trace line, without line feed; it has kept the line when it returns. May be
     * called on several threads at once. Empty: no trace. */
    std::function<void(std::string_view)> trace;
    /** Takes the lines of calls that must not wait: it keeps them before any line that trace takes
     * later, but must not wait for a file. Empty: trace takes these lines, too. */
    std::function<void(std::string_view)> trace_soon = {};
    /**
     * Tells the newest bytes of the log, at most so many, cut anywhere. Empty: there is no log to
     * upload.
     *
     * @throws refused  it cannot be read
     */
    std::function<std::string(std::size_t bytes_max)> newest_log = {};
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

/**
 * A device joins at once, as one of the site that waits to join or as a new one.
 *
 * @param pid  its product id; none: that of the site
 * @throws refused  joining is closed, or the device is in the list already
 */
void join_device(const std::string &dev_id, const std::optional<std::string> &pid);

/** A transfer of an image that the upgrade service starts by itself. What is left out is that of
 * the last offer, or the service's own choice. */
struct upgrade_start {
    std::optional<std::string> cid = {}; /**< device, or the gateway's own id */
    std::optional<uint32_t> file_size = {};
    std::optional<uint32_t> chunk_size = {};
    std::optional<bool> percent = {};
    std::optional<uint32_t> remain = {};
};

/**
 * Has the app that drives the upgrade asked for an image, anew when it is being received. What was
 * received before is kept until the agent has accepted the start.
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
