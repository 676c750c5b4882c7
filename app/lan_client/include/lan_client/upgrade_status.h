// Announcing an upgrade, starting it, and asking how it stands.
#pragma once

#include "lan_client/client.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace lan_client {

/** Gateways cut longer versions. */
inline constexpr std::size_t max_version_bytes = 11;

/** Gateways keep size and offsets of an image in signed 32-bit numbers. */
inline constexpr uint64_t max_image_bytes = INT32_MAX;

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

    /** @return whether an upgrade of the announced device is under way */
    [[nodiscard]] bool is_running_here() const { return running && running_id == target_id; }
};

/** @return a request that announces the image and starts nothing */
[[nodiscard]] request announce_request(const upgrade_order &order);

/** @return a request that announces an image of 0 bytes, which only asks for the status */
[[nodiscard]] request upgrade_status_request(const upgrade_order &order);

/** @return a request that starts the upgrade with the image that any app has announced last */
[[nodiscard]] request start_request(const upgrade_order &order, const std::string &target_id);

/** @return the answer to an announcement; nothing when the payload is none */
[[nodiscard]] std::optional<upgrade_status> read_upgrade_status(const upgrade_order &order,
                                                                std::string_view payload);

/** @return whether a gateway takes two versions for the same: it ignores the case of letters */
[[nodiscard]] bool same_version(const std::string &left, const std::string &right);

} // namespace lan_client
