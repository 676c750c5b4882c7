// Announcing and starting an upgrade, and reading the status.
#include "gateway/upgrade_status.h"

#include "base/json_text.h"
#include "gateway/request.h"
#include "lan_client/frame_types.h"

#include <nlohmann/json.hpp>
#include <strings.h>

namespace engr_app {
namespace {

namespace frame_type = lan_client::frame_type;
using nlohmann::json;

uint64_t firmware_type(const upgrade_order &order) {
    return order.cid.empty() ? gateway_firmware : device_firmware;
}

} // namespace

lan_client::request announce_request(const upgrade_order &order) {
    json body{{"swVer", order.version}, {"fileSize", order.image_bytes}, {"fileMd5", order.md5}};
    if (order.cid.empty()) {
        return json_request(frame_type::chk_soft_ver, body);
    }
    body["firmwareType"] = device_firmware;
    body["cid"] = order.cid;
    return json_request(frame_type::dev_upgrade_info, body);
}

lan_client::request upgrade_status_request(const upgrade_order &order) {
    upgrade_order none = order;
    none.image_bytes = 0;
    return announce_request(none);
}

lan_client::request start_request(const upgrade_order &order, const std::string &target_id) {
    return json_request(frame_type::dev_upgrade,
                        {{"cid", target_id}, {"firmwareType", firmware_type(order)}});
}

upgrade_status parse_upgrade_status(const upgrade_order &order, std::string_view payload) {
    const json body = parse_json(payload);
    if (!body.is_object() || !body.contains("updateStatus") || !body.contains("softVer")) {
        throw malformed_answer("answer to an announcement", payload);
    }
    return {.running = member_text(body, "updateStatus") != "0",
            .running_id = member_text(body, "updateCid"),
            .target_id = order.cid.empty() ? member_text(body, "cid") : order.cid,
            .version = member_text(body, "softVer")};
}

bool same_version(const std::string &left, const std::string &right) {
    return left.size() == right.size() && strncasecmp(left.data(), right.data(), left.size()) == 0;
}

} // namespace engr_app
