// Reports in words and for scripts.
#include "gateway/report_format.h"

#include "base/json_text.h"
#include "gateway/frame_format.h"
#include "lan_client/frame_types.h"

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

namespace frame_type = lan_client::frame_type;
using nlohmann::json;

std::string data_points(const json &body) {
    std::string id = member_text(body, "cid");
    if (id.empty()) {
        id = member_text(body, "devId");
    }
    std::string words = id.empty() ? "the gateway reports" : "device " + id + " reports";
    std::string separator = " ";
    for (const auto &[point, value] : body["dps"].items()) {
        words += separator + point + " = " + one_line(value);
        separator = ", ";
    }
    return words;
}

std::string bound_devices(const json &body) {
    std::string words;
    for (const json &product : body["products"]) {
        words += (words.empty() ? "" : "; ") + ("device " + member_text(product, "cid")) +
                 " was bound (product " + member_text(product, "pid") + ")";
    }
    return words;
}

std::string upgraded_thing(const json &body) {
    const std::string id = member_text(body, "cid");
    return member_text(body, "firmwareType") == "0" || id.empty() ? "the gateway" : "device " + id;
}

bool has(const json &body, const char *name) {
    return body.is_object() && body.contains(name);
}

} // namespace

std::string report_words(const lan_client::report &told) {
    const std::string type = lan_client::frame_type_text(told.type);
    if (!told.readable) {
        return type + " that can't be decrypted with the key at hand";
    }
    const json body = parse_json(told.payload);
    if (told.type == frame_type::dp_report && has(body, "dps") && body["dps"].is_object()) {
        return data_points(body);
    }
    if (told.type == frame_type::sub_dev_bind_rpt && has(body, "products") &&
        body["products"].is_array()) {
        return bound_devices(body);
    }
    if (told.type == frame_type::sub_dev_unbind_rpt && has(body, "cid")) {
        return "device " + member_text(body, "cid") + " was unbound";
    }
    if (told.type == frame_type::gw_unactive_rpt && has(body, "cid")) {
        return "gateway " + member_text(body, "cid") + " was deactivated";
    }
    if (told.type == frame_type::upgrade_percent_rpt && has(body, "progress")) {
        return "upgrade of " + upgraded_thing(body) + ": " + member_text(body, "progress") + " %";
    }
    if (told.type == frame_type::subdevice_update_rpt && has(body, "softVer")) {
        return upgraded_thing(body) + " now has version " + member_text(body, "softVer");
    }
    const std::string ret = told.ret == 0 ? "" : ", ret " + std::to_string(told.ret);
    return type + ret + (told.payload.empty() ? "" : ": " + told.payload);
}

json report_json(const lan_client::report &told) {
    const auto *info = lan_client::find_frame_type(told.type);
    return {{"time", time_text()},
            {"type", told.type},
            {"name", info == nullptr ? json() : json(info->name)},
            {"number", told.number},
            {"ret", told.ret},
            {"payload", told.readable ? payload_json(told.payload) : json()}};
}

} // namespace engr_app
