// Devices that come.
#pragma once

#include "gateway_services/site.h"

#include <cstdint>
#include <vector>

namespace gateway {

/** How devices come. */
enum class arrival : uint8_t {
    bound, /**< an installer enters them; apps are told of those that were not bound before */
    joined /**< they join the radio network; apps are told of all of them */
};

/**
 * Puts devices into the list, all or nothing. A device that is known keeps what is not given here.
 *
 * @throws refused  one of them is the gateway itself, there are too many, or the store failed
 */
void bind_devices(std::vector<site_device> devices, arrival how);

} // namespace gateway
