// The device list: binding adds sub-devices to it and to the store and tells apps, unbinding
// removes them; and set_device_field of operate.h.
#pragma once

#include "gateway_services/site.h"
#include "store/records.h"
#include "support/json_value.h"

#include <cstdint>
#include <vector>

namespace gateway {

/** How devices get into the list. */
enum class arrival : uint8_t {
    bound, /**< an installer binds them; apps are told of those that were not bound before */
    joined /**< they join the radio network; apps are told of all of them */
};

/**
 * Puts devices into the list, all or nothing. A device that is known keeps what is not given here.
 *
 * @throws refused  one of them is the gateway itself, there are too many, or the store failed
 */
void bind_devices(std::vector<site_device> devices, arrival how);

/**
 * Binds the products of an installer's request.
 *
 * @throws usage_error; refused as bind_devices
 */
void bind_products(const support::json_value &request);

/**
 * Takes a device out of the list, its groups and its panel, and tells apps.
 *
 * @throws usage_error  it is null
 * @throws refused      it is not in the list, or the store failed
 */
void unbind_device(device_record *device);

} // namespace gateway
