// The device service: commands, and questions about data points.
#include "gateway/device.h"

#include "calls/calls.h"
#include "calls/requests.h"
#include "platform/owners.h"
#include "store/changes.h"
#include "store/records.h"
#include "subjects/data_points.h"
#include "subjects/groups.h"

#include <nlohmann/json.hpp>

#include <cstring>

namespace gateway {
namespace {

using nlohmann::ordered_json;

constexpr int32_t all_data_points = -1;
/** Most numbers in a query: as many as there can be data points. */
constexpr std::size_t queried_max = 255;

/** The device that a request names, by "cid" or "devId"; the gateway's own without either. */
std::string named_device(const json_value &request) {
    for (const char *name : {"cid", "devId"}) {
        if (request.find(name) != nullptr) {
            return request.required(name).text();
        }
    }
    return own_device()->dev_id;
}

/** Carries out a command to a device or a group. */
void command_devices(const json_value &request) {
    const std::string dps = request.required("dps").data_points();
    const bool names_device = request.find("cid") != nullptr || request.find("devId") != nullptr;
    std::vector<data_point_change> changes;
    change_origin origin = change_origin::command;
    if (request.find("gid") != nullptr && !names_device) {
        origin = change_origin::many_commands;
        for (std::string &member : need_group_members(request.required("gid").id())) {
            changes.push_back({std::move(member), dps});
        }
    } else {
        changes.push_back({named_device(request), dps});
    }
    change_data_points(changes, origin);
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
        throw refused("the device has no data point " + name);
    }
    chosen[name] = *found;
}

/** Those of a device's data points that are asked for, by a number or a list of numbers. */
ordered_json chosen_data_points(const ordered_json &all, const json_value &dp_id) {
    auto chosen = ordered_json::object();
    if (!dp_id.json.is_array()) {
        choose_data_point(all, dp_id, chosen);
    } else if (dp_id.json.size() > queried_max) {
        dp_id.refuse("names more data points than there can be");
    } else {
        for (std::size_t i = 0; i < dp_id.json.size(); ++i) {
            choose_data_point(all, dp_id.element(i), chosen);
        }
    }
    return chosen;
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
        throw refused("device " + dev_id + " has no data points");
    }
    if (const int32_t result = report_to_apps(dev_id, dps.dump()); result != 0) {
        throw refused("no report can be sent: result " + std::to_string(result));
    }
}

/** The text that an app gets, in a block of Malloc; null when there is nothing to tell, or the
 * device is offline and tells nothing. */
char *pack_data_points(const device_record &device, int32_t dp_id) {
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

} // namespace
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

int32_t engr_sf_send_gw_dev_cmd(sf_cmd_t *command) {
    return service_taking_request(call("engr_sf_send_gw_dev_cmd"), command, [&] {
        const int32_t result = guarded([&] { read_request(command->root, command_devices); });
        if (result == 0) {
            cJSON_Delete(command->root);
        }
        return result;
    });
}

char *engr_sf_pack_local_obj_dp_data(dev_cntl_t *device, int32_t dp_id, int32_t type, int32_t mode,
                                     int32_t filter, int32_t full) {
    return service(
        call("engr_sf_pack_local_obj_dp_data"),
        [&](call_arguments &list) {
            list.device("dev_id", device)
                .number("dp_id", dp_id)
                .number("type", type)
                .number("mode", mode)
                .number("filter", filter)
                .number("full", full);
        },
        [&]() -> char * {
            char *text = nullptr;
            guarded([&] {
                if (device != nullptr) {
                    text = pack_data_points(*static_cast<device_record *>(device), dp_id);
                }
            });
            return text;
        });
}

int32_t engr_sf_respone_obj_dp_query(cJSON *cid, cJSON *dp_id) {
    return service(
        call("engr_sf_respone_obj_dp_query"),
        [&](call_arguments &list) { list.json("cid", cid).json("dp_id", dp_id); },
        [&] { return guarded([&] { answer_query(cid, dp_id); }); });
}
