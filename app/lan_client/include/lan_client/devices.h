// The devices of a gateway: which belong to it, and which are online.
#pragma once

#include "lan_client/client.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace lan_client {

/** Longest id of a device or a gateway; a gateway cuts longer ones in what concerns upgrades. */
inline constexpr std::size_t max_device_id_bytes = 25;

struct device {
    std::string id;
    std::string product_id;
};

/**
 * Devices that are neither online nor offline are the gateway itself and those that are not in
 * normal work.
 */
struct line_state {
    std::vector<std::string> online;
    std::vector<std::string> offline;
};

struct device_with_state {
    std::string id;
    std::string product_id;
    std::optional<bool> online; /**< nothing when the gateway keeps it in neither list */
};

[[nodiscard]] request device_list_request();
[[nodiscard]] request line_state_request();

/**
 * @return the devices of an answer or a report; nothing when the payload is no device list, or one
 *         of more than max_devices
 */
[[nodiscard]] std::optional<std::vector<device>> read_device_list(std::string_view payload);

/** @return the lists of an answer; nothing when the payload has none */
[[nodiscard]] std::optional<line_state> read_line_state(std::string_view payload);

/** @return whether a gateway says in its own way that both lists are empty: it refuses */
[[nodiscard]] bool says_no_devices(const answer &answered);

/** @return the devices in their order, each with its state */
[[nodiscard]] std::vector<device_with_state> with_states(std::vector<device> devices,
                                                         const line_state &states);

/** @return [{"cid", "pid", "online"}], with "online" null where it is not known */
[[nodiscard]] nlohmann::json as_json(std::vector<device_with_state> devices);

} // namespace lan_client
