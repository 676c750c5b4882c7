#include "subjects/data_points.h"

#include "calls/activity.h"
#include "calls/calls.h"
#include "calls/requests.h"
#include "engr_lan_agent.h"
#include "gateway_services/error.h"
#include "gateway_services/operate.h"
#include "platform/clock.h"
#include "platform/crypto.h"
#include "platform/memory.h"
#include "platform/owners.h"
#include "store/products.h"
#include "store/records.h"
#include "store/store.h"
#include "subjects/groups.h"
#include "support/data_points.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cstring>
#include <map>
#include <new>

namespace gateway {
namespace {

using nlohmann::ordered_json;
using support::json_value;

constexpr int32_t all_data_points = -1;
/** Most numbers in a query: as many as there can be data points. */
constexpr std::size_t queried_max = 255;
/** Tries to post a report while the message bus is full, and the pause between them. */
constexpr int post_tries_max = 200;
constexpr uint32_t post_pause_ms = 10;

/** The device that a request names, by "cid" or "devId"; the gateway's own without either. */
std::string named_device(const json_value &request) {
    for (const char *name : {"cid", "devId"}) {
        if (request.has(name)) {
            return request.required(name).text();
        }
    }
    return own_device()->dev_id;
}

ordered_json data_points_of(const device_record &device) {
    const platform::held_mutex guard(the_gateway().shared.dev_mutex);
    return ordered_json::parse(device.dps);
}

/**
 * Copies one of a device's data points.
 *
 * @throws refused  there is none of that number
 */
void choose_data_point(const ordered_json &all, const json_value &dp_id, ordered_json &chosen) {
    const std::string name = std::to_string(dp_id.whole_number(1, 255));
    const auto found = all.find(name);
    if (found == all.end()) {
        throw refused(fmt::format("the device has no data point {}", name));
    }
    chosen[name] = *found;
}

/** Those of a device's data points that are asked for, by a number or a list of numbers. */
ordered_json chosen_data_points(const ordered_json &all, const json_value &dp_id) {
    auto chosen = ordered_json::object();
    if (!dp_id.json.is_array()) {
        choose_data_point(all, dp_id, chosen);
        return chosen;
    }
    for (const json_value &each : dp_id.elements(0, queried_max)) {
        choose_data_point(all, each, chosen);
    }
    return chosen;
}

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

/** Data points as apps get them: {"cid": ID, "dps": {...}}. */
std::string report_text(std::string_view dev_id, std::string_view dps) {
    return fmt::format(R"({{"cid":{},"dps":{}}})", ordered_json(dev_id).dump(), dps);
}

/**
 * Queues a report of data points for every app.
 *
 * @param dps  an object of data points
 * @return the result of engr_lan_dp_sata_report
 */
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

std::array<uint8_t, AES128_KEY_SIZE> tcp_key() {
    std::array<uint8_t, AES128_KEY_SIZE> bytes{};
    static_cast<void>(engr_lan_get_tcp_key(bytes.data())); // fails only without room for the key
    return bytes;
}

} // namespace

int32_t change_data_points(const std::vector<data_point_change> &changes, change_origin origin) {
    const setter by = origin == change_origin::device ? setter::device : setter::app;
    std::vector<const data_point_change *> done;
    {
        lasting_change change;
        std::map<device_record *, std::string> changed;
        for (const data_point_change &each : changes) {
            device_record *device = reached_device(each.dev_id, origin);
            if (device == nullptr) {
                continue;
            }
            const auto values = ordered_json::parse(each.dps);
            check_product_values(the_products(), product_of(*device), values, by);
            std::string &dps = changed.emplace(device, device->dps).first->second;
            auto merged = ordered_json::parse(dps);
            merged.update(values);
            dps = merged.dump();
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
    tell_event(fmt::format("device {} reports {}", dev_id, dps));
    return change_data_points({{std::string(dev_id), std::string(dps)}}, change_origin::device);
}

void command_devices(const json_value &request) {
    const json_value dps_member = request.required("dps");
    support::check_data_points(dps_member, text_value_bytes_max);
    const std::string dps = dps_member.json.dump();
    std::vector<data_point_change> changes;
    change_origin origin = change_origin::command;
    if (request.has("gid") && !request.has("cid") && !request.has("devId")) {
        origin = change_origin::many_commands;
        for (std::string &member :
             need_group_members(request.required("gid").plain_text(name_bytes_max))) {
            changes.push_back({std::move(member), dps});
        }
    } else {
        changes.push_back({named_device(request), dps});
    }
    change_data_points(changes, origin);
    tell_deed(fmt::format("set {} of {}", dps,
                          origin == change_origin::many_commands
                              ? "group " + request.required("gid").text()
                              : "device " + changes.front().dev_id));
}

void answer_query(const cJSON *cid, const cJSON *dp_id) {
    std::string dev_id = own_device()->dev_id;
    if (cid != nullptr) {
        read_request(cid, [&](const json_value &named) { dev_id = named.text(); });
    }
    ordered_json dps = data_points_of(need_online_device(dev_id));
    if (dp_id != nullptr) {
        read_request(dp_id,
                     [&](const json_value &chosen) { dps = chosen_data_points(dps, chosen); });
    }
    if (dps.empty()) {
        throw refused(fmt::format("device {} has no data points", dev_id));
    }
    if (const int32_t result = report_to_apps(dev_id, dps.dump()); result != 0) {
        throw refused(fmt::format("no report can be sent: result {}", result));
    }
}

char *data_points_text(const device_record &device, int32_t dp_id) {
    if (!is_online(device)) {
        return nullptr;
    }
    ordered_json dps = data_points_of(device);
    if (dp_id != all_data_points) {
        const auto found = dps.find(std::to_string(dp_id));
        dps = found == dps.end() ? ordered_json::object() : ordered_json{{found.key(), *found}};
    }
    if (dps.empty()) {
        return nullptr;
    }
    const std::string text = report_text(device.dev_id, dps.dump());
    auto block = platform::heap_block<char>::allocate(text.size() + 1);
    if (block) {
        std::memcpy(block.get(), text.c_str(), text.size() + 1);
    }
    return block.release();
}

int32_t encrypt_text(const char *text, uint8_t **output, uint32_t *output_length) {
    if (text == nullptr) {
        return result_argument;
    }
    return aes128_ecb_encode(reinterpret_cast<const uint8_t *>(text),
                             static_cast<uint32_t>(std::strlen(text)), output, output_length,
                             tcp_key().data());
}

int32_t decrypt_text(const uint8_t *payload, uint32_t length, char **text) {
    if (payload == nullptr || text == nullptr) {
        return result_argument;
    }
    platform::heap_block<uint8_t> plain;
    uint32_t plain_length = 0;
    const int32_t result =
        aes128_ecb_decode(payload, length, plain.out(), &plain_length, tcp_key().data());
    if (result != 0) {
        return result;
    }
    // A NUL inside would cut the text for every reader.
    if (std::memchr(plain.get(), 0, plain_length) != nullptr) {
        return result_not_text;
    }
    *text = reinterpret_cast<char *>(plain.release());
    return 0;
}

} // namespace gateway
