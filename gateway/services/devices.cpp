// Devices and their data points.
#include "calls.h"
#include "data_points.h"
#include "engr_lan_agent.h"
#include "gateway/device.h"
#include "platform/owners.h"
#include "store.h"

#include <cstring>
#include <new>

namespace gateway {
namespace {

/** Queues a report for every app. */
int32_t post_report(const std::string &text) {
    const std::size_t size = sizeof(lan_dp_report_t) + text.size() + 1;
    const auto block = platform::heap_block<lan_dp_report_t>::allocate(size);
    if (!block)
        return ENGR_ERR_NO_MEMORY;
    new (block.get()) lan_dp_report_t{};
    std::memcpy(block.get()->data, text.c_str(), text.size() + 1);
    return engr_lan_dp_sata_report(block.get(), static_cast<uint32_t>(size));
}

} // namespace

int32_t change_data_points(device_record &device, std::string_view changes) {
    {
        const platform::held_mutex change(change_mutex());
        std::string merged = merged_data_points(device.dps, changes);
        if (is_listed(device))
            the_store().set_device_dps(device.dev_id, merged);
        else
            the_store().set_setting(own_device_dps_setting, merged);
        const platform::held_mutex guard(the_gateway().shared.dev_mutex);
        device.dps = std::move(merged);
    }
    return post_report(report_text(device.dev_id, changes));
}

} // namespace gateway

using namespace gateway;

dev_cntl_t *engr_get_dev_cntl(const char *dev_id) {
    return service(
        call("engr_get_dev_cntl"), [&](call_arguments &list) { list.text("dev_id", dev_id); },
        [&]() -> dev_cntl_t * { return find_device(dev_id); });
}

dev_cntl_t *engr_get_gw_dev_cntl(void) {
    return service(call("engr_get_gw_dev_cntl"), no_arguments,
                   []() -> dev_cntl_t * { return own_device(); });
}
