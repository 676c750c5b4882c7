// What app and gateway say to each other around an upgrade.
#pragma once

#include "lan_client/client.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace engr_app {

/// Gateways cut longer versions off.
inline constexpr std::size_t max_version_bytes = 11;

/// Which image is to be brought where.
struct upgrade_order {
    std::string cid; ///< of the sub-device; empty: the gateway itself
    std::string version;
    std::uint64_t image_bytes = 0;
    std::string md5;
};

/// What a gateway answers to an announcement.
struct upgrade_standing {
    bool running = false;   ///< an upgrade is under way, of whatever device
    std::string running_id; ///< of the device last upgraded, even long ago
    std::string target_id;  ///< of the device that the announcement is for
    std::string version;    ///< installed on that; empty: not known

    /// An upgrade of the announced device is under way.
    [[nodiscard]] bool running_here() const { return running && running_id == target_id; }
};

/// One piece of the image that a gateway asks for; 0 bytes: it has all.
struct wanted_piece {
    std::uint64_t offset = 0;
    std::uint64_t bytes = 0;
};

/// Announces the image; starts nothing.
[[nodiscard]] lan_client::request announce_request(const upgrade_order &order);

/// Announces no image: asks only for the standing.
[[nodiscard]] lan_client::request standing_request(const upgrade_order &order);

/// Starts the upgrade with the image last announced by anybody.
[[nodiscard]] lan_client::request start_request(const upgrade_order &order,
                                                const std::string &target_id);

/// Throws a failure when the payload is not the answer to an announcement.
[[nodiscard]] upgrade_standing parse_standing(const upgrade_order &order, std::string_view payload);

/// Nothing when the payload asks for no piece that there is in an image of so many bytes.
[[nodiscard]] std::optional<wanted_piece> parse_wanted_piece(std::string_view payload,
                                                             std::uint64_t image_bytes);

/// Gateways don't tell versions of devices apart that differ in the case of letters only.
[[nodiscard]] bool same_version(const std::string &left, const std::string &right);

} // namespace engr_app
