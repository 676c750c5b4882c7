#include "subjects/data_points.h"

#include "calls/log.h"
#include "engr_lan_agent.h"
#include "gateway_services/error.h"
#include "gateway_services/operate.h"
#include "platform/clock.h"
#include "platform/owners.h"
#include "store/changes.h"
#include "store/products.h"
#include "store/records.h"
#include "store/store.h"
#include "support/data_points.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstring>
#include <map>
#include <new>

namespace gateway {
namespace {

using nlohmann::ordered_json;

/** Tries to post a report while the message bus is full, and the pause between them. */
constexpr int post_tries_max = 200;
constexpr uint32_t post_pause_ms = 10;

/**
 * The device of a change; null when it is one of many and offline or unknown.
 *
 * @throws refused  it is the only one
 */
device_record *reached_device(const std::string &dev_id, change_origin origin) {
    try {
        return &need_online_device(dev_id);
    } catch (const refused &error) {
        if (origin != change_origin::many_commands) {
            throw;
        }
        GATEWAY_LOG(LOG_LEVEL_WARNING, "left out: %s", error.what());
        return nullptr;
    }
}

/** @throws refused  the device's product does not take one of the values */
void check_values(const device_record &device, const std::string &dps, change_origin origin) {
    const setter by = origin == change_origin::device ? setter::device : setter::app;
    const auto values = ordered_json::parse(dps);
    if (const std::string fault = product_fault(the_products(), product_of(device), values, by);
        !fault.empty()) {
        throw refused(fault);
    }
}

/** Both are valid objects of data points. */
std::string merged_data_points(const std::string &dps, const std::string &changes) {
    ordered_json merged = ordered_json::parse(dps);
    merged.update(ordered_json::parse(changes));
    return merged.dump();
}

} // namespace

std::string report_text(std::string_view dev_id, std::string_view dps) {
    return fmt::format(R"({{"cid":{},"dps":{}}})", ordered_json(dev_id).dump(), dps);
}

int32_t report_to_apps(std::string_view dev_id, std::string_view dps) {
    const std::string text = report_text(dev_id, dps);
    const std::size_t size = sizeof(lan_dp_report_t) + text.size() + 1;
    const auto block = platform::heap_block<lan_dp_report_t>::allocate(size);
    if (!block) {
        return ENGR_ERR_NO_MEMORY;
    }
    new (block.get()) lan_dp_report_t{};
    std::memcpy(block.get()->data, text.c_str(), text.size() + 1);
    int32_t result = 0;
    for (int tries = 0; tries < post_tries_max; ++tries) {
        result = engr_lan_dp_sata_report(block.get(), static_cast<uint32_t>(size));
        if (result == 0 || result == ENGR_ERR_NO_CLIENT) {
            return result;
        }
        kelo_hal_system_sleep(post_pause_ms);
    }
    GATEWAY_LOG(LOG_LEVEL_FAILURE, "a report of device %s is lost: result %d",
                std::string(dev_id).c_str(), result);
    return result;
}

int32_t change_data_points(const std::vector<data_point_change> &changes, change_origin origin) {
    std::vector<const data_point_change *> done;
    {
        lasting_change change;
        std::map<device_record *, std::string> changed;
        for (const data_point_change &each : changes) {
            device_record *device = reached_device(each.dev_id, origin);
            if (device == nullptr) {
                continue;
            }
            check_values(*device, each.dps, origin);
            std::string &dps = changed.emplace(device, device->dps).first->second;
            dps = merged_data_points(dps, each.dps);
            done.push_back(&each);
        }
        if (done.empty() && !changes.empty()) {
            throw refused("none of the devices is online");
        }
        for (const auto &[device, dps] : changed) {
            if (device->is_listed) {
                the_store().set_device_dps(device->dev_id, dps);
            } else {
                the_store().set_setting(own_device_dps_setting, dps);
            }
        }
        change.commit();
        const platform::held_mutex guard(the_gateway().shared.dev_mutex);
        for (auto &[device, dps] : changed) {
            device->dps = std::move(dps);
        }
    }
    int32_t result = 0;
    for (const data_point_change *each : done) {
        result = report_to_apps(each->dev_id, each->dps);
        if (result != 0) {
            break; // no app, or no way to reach any
        }
    }
    return result;
}

int32_t report_data_points(std::string_view dev_id, std::string_view dps) {
    const auto object = ordered_json::parse(dps, nullptr, false);
    const std::string fault = object.is_discarded()
                                  ? "is not valid JSON"
                                  : support::data_points_fault(object, text_value_bytes_max);
    if (!fault.empty()) {
        throw usage_error(fault);
    }
    return change_data_points({{std::string(dev_id), std::string(dps)}}, change_origin::device);
}

} // namespace gateway
