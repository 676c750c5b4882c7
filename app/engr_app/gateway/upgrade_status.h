// Announcing an upgrade, starting it, and asking how it stands.
#pragma once

#include "lan_client/client.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace engr_app {

/** Gateways cut longer versions off. */
inline constexpr std::size_t max_version_bytes = 11;

/** "firmwareType" of an upgrade. */
inline constexpr uint64_t gateway_firmware = 0;
inline constexpr uint64_t device_firmware = 10;

/** "progress" of an upgrade that is over. */
inline constexpr uint64_t all_percent = 100;

/** Which image is to be brought where. */
struct upgrade_order {
    std::string cid; /**< of the sub-device; empty: the gateway itself */
    std::string version;
    uint64_t image_bytes = 0;
    std::string md5;
};

/** What a gateway answers to an announcement. */
struct upgrade_status {
    bool running = false;   /**< an upgrade is under way, of whatever device */
    std::string running_id; /**< of the device last upgraded, even long ago */
    std::string target_id;  /**< of the device that the announcement is for */
    std::string version;    /**< installed on that; empty: not known */

    /** An upgrade of the announced device is under way. */
    [[nodiscard]] bool running_here() const { return running && running_id == target_id; }
};

/** Announces the image; starts nothing. */
[[nodiscard]] lan_client::request announce_request(const upgrade_order &order);

/** Announces no image: asks only for the standing. */
[[nodiscard]] lan_client::request upgrade_status_request(const upgrade_order &order);

/** Starts the upgrade with the image last announced by anybody. */
[[nodiscard]] lan_client::request start_request(const upgrade_order &order,
                                                const std::string &target_id);

/** Throws a failure when the payload is not the answer to an announcement. */
[[nodiscard]] upgrade_status parse_upgrade_status(const upgrade_order &order,
                                                  std::string_view payload);

/** Gateways don't tell versions of devices apart that differ in the case of letters only. */
[[nodiscard]] bool same_version(const std::string &left, const std::string &right);

} // namespace engr_app
