// Reading reports.
#include "gateway/events.h"

#include "base/json_text.h"
#include "lan_client/frame_types.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

namespace frame_type = lan_client::frame_type;
using nlohmann::json;

bool has_member(const json &body, const char *name) {
    return body.is_object() && body.contains(name);
}

json text_or_null(const std::string &text) {
    return text.empty() ? json() : json(text);
}

json about_device(const char *event, const json &body) {
    const char *id = body.contains("cid") ? "cid" : "devId";
    return {{"event", event}, {"cid", text_or_null(member_text(body, id))}};
}

// An event of the firmware of the gateway or of a device.
json about_firmware(const char *event, const json &body) {
    json told = about_device(event, body);
    const bool own = member_text(body, "firmwareType") == "0" || told["cid"].is_null();
    told["target"] = own ? "gateway" : "device";
    return told;
}

json bound_devices(const json &products) {
    json devices = json::array();
    for (const json &product : products) {
        devices.push_back(
            {{"cid", member_text(product, "cid")}, {"pid", member_text(product, "pid")}});
    }
    return devices;
}

std::string percent_text(const json &event) {
    return event["percent"].is_string() ? event["percent"].get<std::string>()
                                        : one_line(event["percent"]);
}

} // namespace

json raw_report_json(const lan_client::report &report) {
    const auto *info = lan_client::find_frame_type(report.type);
    return {{"type", report.type},
            {"name", info == nullptr ? json() : json(info->name)},
            {"number", report.number},
            {"ret", report.ret},
            {"payload", report.readable ? payload_json(report.payload) : json()}};
}

json event_of(const lan_client::report &report) {
    const json body = report.readable ? parse_json(report.payload) : json();
    if (report.type == frame_type::dp_report && has_member(body, "dps") &&
        body["dps"].is_object()) {
        json event = about_device("data_points", body);
        event["dps"] = body["dps"];
        return event;
    }
    if (report.type == frame_type::sub_dev_bind_rpt && has_member(body, "products") &&
        body["products"].is_array()) {
        return {{"event", "bound"}, {"devices", bound_devices(body["products"])}};
    }
    if (report.type == frame_type::sub_dev_unbind_rpt && has_member(body, "cid")) {
        return about_device("unbound", body);
    }
    if (report.type == frame_type::gw_unactive_rpt && has_member(body, "cid")) {
        return about_device("deactivated", body);
    }
    if (report.type == frame_type::upgrade_percent_rpt && has_member(body, "progress")) {
        json event = about_firmware("upgrade_progress", body);
        event["percent"] = body["progress"];
        return event;
    }
    if (report.type == frame_type::subdevice_update_rpt && has_member(body, "softVer")) {
        json event = about_firmware("version", body);
        event["version"] = member_text(body, "softVer");
        return event;
    }
    json event = raw_report_json(report);
    event["event"] = "other";
    return event;
}

std::vector<std::string> devices_of_event(const json &event) {
    std::vector<std::string> ids;
    if (event.contains("devices")) {
        for (const json &one : event["devices"]) {
            ids.push_back(member_text(one, "cid"));
        }
    } else if (event.contains("cid") && event["cid"].is_string()) {
        ids.push_back(event["cid"].get<std::string>());
    }
    return ids;
}

std::string event_sentence(const json &event, const event_naming &names) {
    const std::string kind = member_text(event, "event");
    const bool own = !event.contains("cid") || event["cid"].is_null();
    const std::string id = own ? "" : member_text(event, "cid");
    const auto device_words = [&names](const std::string &of) {
        return names.device ? names.device(of) : "device " + of;
    };
    const std::string who =
        own || event.value("target", "") == "gateway" ? "the gateway" : device_words(id);
    if (kind == "data_points") {
        std::string text;
        for (const auto &[number, value] : event["dps"].items()) {
            text += fmt::format("{}{} = {}", text.empty() ? "" : ", ",
                                names.data_point ? names.data_point(id, number) : number,
                                one_line(value));
        }
        return fmt::format("{} reports {}", who, text);
    }
    if (kind == "bound") {
        std::string text;
        for (const json &one : event["devices"]) {
            text += fmt::format("{}{} was bound (product {})", text.empty() ? "" : "; ",
                                device_words(member_text(one, "cid")), member_text(one, "pid"));
        }
        return text;
    }
    if (kind == "unbound") {
        return who + " was unbound";
    }
    if (kind == "deactivated") {
        return fmt::format("gateway {} was deactivated", id);
    }
    if (kind == "upgrade_progress") {
        return fmt::format("upgrade of {}: {} %", who, percent_text(event));
    }
    return fmt::format("{} now has version {}", who, member_text(event, "version"));
}

std::string raw_report_text(const lan_client::report &report) {
    const std::string type = lan_client::frame_type_text(report.type);
    if (!report.readable) {
        return type + (report.damaged ? " that is damaged: its CRC is wrong"
                                      : " that can't be decrypted with the key at hand");
    }
    const std::string ret = report.ret == 0 ? "" : fmt::format(", ret {}", report.ret);
    return type + ret + (report.payload.empty() ? "" : ": " + report.payload);
}

} // namespace engr_app
