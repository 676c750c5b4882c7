// Announcing and starting an upgrade, and reading the status.
#include "lan_client/upgrade_status.h"

#include "lan_client/frame_types.h"
#include "lan_client/json.h"

#include <nlohmann/json.hpp>
#include <strings.h>

namespace lan_client {
namespace {

using nlohmann::json;

uint64_t firmware_type(const upgrade_order &order) {
    return order.cid.empty() ? gateway_firmware : device_firmware;
}

request json_request(uint32_t type, const json &payload) {
    return {.type = type,
            .payload = payload.dump(-1, ' ', false, json::error_handler_t::replace),
            .coding = request_coding(type)};
}

} // namespace

request announce_request(const upgrade_order &order) {
    json body{{"swVer", order.version}, {"fileSize", order.image_bytes}, {"fileMd5", order.md5}};
    if (order.cid.empty()) {
        return json_request(frame_type::chk_soft_ver, body);
    }
    body["firmwareType"] = device_firmware;
    body["cid"] = order.cid;
    return json_request(frame_type::dev_upgrade_info, body);
}

request upgrade_status_request(const upgrade_order &order) {
    upgrade_order none = order;
    none.image_bytes = 0;
    return announce_request(none);
}

request start_request(const upgrade_order &order, const std::string &target_id) {
    return json_request(frame_type::dev_upgrade,
                        {{"cid", target_id}, {"firmwareType", firmware_type(order)}});
}

std::optional<upgrade_status> read_upgrade_status(const upgrade_order &order,
                                                  std::string_view payload) {
    const json body = parse_json(payload);
    if (!body.is_object() || !body.contains("updateStatus") || !body.contains("softVer")) {
        return std::nullopt;
    }
    return upgrade_status{.running = member_text(body, "updateStatus") != "0",
                          .running_id = member_text(body, "updateCid"),
                          .target_id = order.cid.empty() ? member_text(body, "cid") : order.cid,
                          .version = member_text(body, "softVer")};
}

bool same_version(const std::string &left, const std::string &right) {
    return left.size() == right.size() && strncasecmp(left.data(), right.data(), left.size()) == 0;
}

} // namespace lan_client
