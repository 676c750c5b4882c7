#include "subjects/devices.h"

#include "calls/requests.h"
#include "gateway_services/error.h"
#include "gateway_services/operate.h"
#include "platform/owners.h"
#include "store/products.h"
#include "store/store.h"
#include "subjects/data_points.h"
#include "subjects/groups.h"
#include "support/data_points.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstring>

namespace gateway {
namespace {

using nlohmann::ordered_json;
using support::json_value;

constexpr int32_t all_data_points = -1;
/** Most numbers in a query: as many as there can be data points. */
constexpr std::size_t queried_max = 255;

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

} // namespace

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

void set_device_field(std::string_view dev_id, std::string_view name, const std::string &value) {
    const field &of = need_field(device_fields().subspan(1), name);
    const field_value checked = value_from_text(of, value);
    const platform::held_mutex change(change_mutex());
    dev_cntl_t &device = need_listed_device(dev_id);
    the_store().set_device_field(dev_id, of, checked);
    const platform::held_mutex guard(the_gateway().shared.dev_mutex);
    write_field(&device, of, checked);
}

} // namespace gateway
