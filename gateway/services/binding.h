// Devices that come.
#pragma once

#include "gateway_services/site.h"

#include <vector>

namespace gateway {

/**
 * Binds devices, all or nothing, and tells every app of those that were not bound before. A device
 * that is known keeps what is not given here, its data points in any case.
 *
 * @throws refused  there are too many, or the store failed
 */
void bind_devices(std::vector<site_device> devices);

} // namespace gateway
