// Frames that gateways broadcast, one a datagram.
#pragma once

#include "lan_client/traffic.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace lan_client {

struct broadcast_frame {
    bool of_type = false;            /**< whether it is a frame of the expected type */
    std::optional<std::string> text; /**< absent: damaged, or no key at hand decrypts it */
};

/**
 * Reads a datagram from `address` that should hold a frame of this type, telling the observer of it
 * if it does. `opened` decrypts a payload, or gives nothing.
 */
[[nodiscard]] broadcast_frame
read_broadcast(std::string_view bytes, std::string_view address, uint32_t type,
               const std::function<std::optional<std::string>(std::string_view)> &opened,
               const traffic_observer &observer);

} // namespace lan_client
