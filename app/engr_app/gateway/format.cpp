// Frames and reports as text and as JSON.
#include "gateway/format.h"

#include "base/failure.h"
#include "base/json_text.h"
#include "lan_client/frame_types.h"
#include "support/numbers.h"
#include "support/utf8.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace engr_app {
namespace {

namespace frame_type = lan_client::frame_type;
using lan_client::payload_state;
using lan_client::traffic;
using nlohmann::json;

// The discovery broadcast shares its number with a command; the others are not of the TCP channel.
std::string type_text(const traffic &frame) {
    return frame.discovery                          ? "FRM_UDP_DISCOVERY (19)"
           : frame.type == frame_type::ap_nw_cfg    ? "FRM_AP_NW_CFG (1)"
           : frame.type == frame_type::udp_wifi_err ? "FRM_UDP_WIFI_ERR (20)"
                                                    : lan_client::frame_type_text(frame.type);
}

std::string payload_text(const traffic &frame) {
    const std::size_t bytes = frame.wire_payload.size();
    if (bytes == 0) {
        return "no payload";
    }
    if (frame.state == payload_state::unreadable) {
        return fmt::format("{} bytes that no key at hand decrypts", bytes);
    }
    return fmt::format("{} bytes {}: {}", bytes,
                       frame.state == payload_state::decrypted ? "encrypted" : "plain",
                       without_secrets(frame.text));
}

std::string data_points_sentence(const json &body) {
    const std::string id = member_text(body, body.contains("cid") ? "cid" : "devId");
    return fmt::format("{} reports {}", id.empty() ? "the gateway" : "device " + id,
                       data_points_text(body["dps"]));
}

std::string bound_devices_sentence(const json &body) {
    std::string text;
    for (const json &product : body["products"]) {
        text += fmt::format("{}device {} was bound (product {})", text.empty() ? "" : "; ",
                            member_text(product, "cid"), member_text(product, "pid"));
    }
    return text;
}

std::string upgraded_device(const json &body) {
    const std::string id = member_text(body, "cid");
    return member_text(body, "firmwareType") == "0" || id.empty() ? "the gateway" : "device " + id;
}

bool has(const json &body, const char *name) {
    return body.is_object() && body.contains(name);
}

} // namespace

std::string time_text() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z",
                       fmt::gmtime(static_cast<std::time_t>(ms / 1000)), ms % 1000);
}

std::string milliseconds_text(double time_ms) {
    return fmt::format("{:.3f} ms", time_ms);
}

std::string seconds_text(std::chrono::milliseconds time) {
    return fmt::format("{} s", static_cast<double>(time.count()) / 1000);
}

std::string data_points_text(const json &data_points) {
    std::string text;
    for (const auto &[name, value] : data_points.items()) {
        text += fmt::format("{}{} = {}", text.empty() ? "" : ", ", name, one_line(value));
    }
    return text;
}

const char *yes_or_no(bool value) {
    return value ? "yes" : "no";
}

std::string format_frame(const traffic &frame) {
    std::string text =
        fmt::format("{} {} {}: {} number {}", time_text(), frame.sent ? "to" : "from", frame.peer,
                    type_text(frame), frame.number);
    if (frame.ret) {
        text += fmt::format(", ret {}", *frame.ret);
    }
    if (frame.segment) {
        text += fmt::format(", segment {} of {}", frame.segment->number, frame.segment->count);
    }
    if (!frame.crc_matches) {
        text += ", wrong CRC";
    }
    return text + ", " + payload_text(frame);
}

frame_recorder::frame_recorder(const std::string &path) : path_(path) {
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (descriptor >= 0) {
        file_.reset(::fdopen(descriptor, "w"));
    }
    if (!file_) {
        throw failure("record_file",
                      fmt::format("--record: can't write {}: {}", path, std::strerror(errno)));
    }
}

void frame_recorder::write(const traffic &frame) {
    nlohmann::ordered_json line{
        {"time", time_text()},      {"direction", frame.sent ? "sent" : "received"},
        {"peer", frame.peer},       {"type", frame.type},
        {"name", type_text(frame)}, {"number", frame.number}};
    if (frame.ret) {
        line["ret"] = *frame.ret;
    }
    if (frame.segment) {
        line["segment"] = {{"number", frame.segment->number}, {"count", frame.segment->count}};
    }
    if (!frame.crc_matches) {
        line["wrong_crc"] = true;
    }
    line["length"] = frame.wire_payload.size();
    line["encrypted"] = frame.state != payload_state::plain;
    const bool readable = frame.state != payload_state::unreadable;
    if (readable && support::is_utf8(frame.text)) {
        line["payload"] = without_secrets(frame.text);
    } else {
        line["payload_hex"] = support::to_hex(readable ? frame.text : frame.wire_payload);
    }
    const std::string text = line.dump() + "\n";
    const std::lock_guard lock(mutex_);
    if (std::fwrite(text.data(), 1, text.size(), file_.get()) != text.size() ||
        std::fflush(file_.get()) != 0) {
        throw failure("output",
                      fmt::format("--record: can't write {}: {}", path_, std::strerror(errno)));
    }
}

std::string format_report(const lan_client::report &report) {
    const std::string type = lan_client::frame_type_text(report.type);
    if (!report.readable) {
        return type + " that can't be decrypted with the key at hand";
    }
    const json body = parse_json(report.payload);
    if (report.type == frame_type::dp_report && has(body, "dps") && body["dps"].is_object()) {
        return data_points_sentence(body);
    }
    if (report.type == frame_type::sub_dev_bind_rpt && has(body, "products") &&
        body["products"].is_array()) {
        return bound_devices_sentence(body);
    }
    if (report.type == frame_type::sub_dev_unbind_rpt && has(body, "cid")) {
        return fmt::format("device {} was unbound", member_text(body, "cid"));
    }
    if (report.type == frame_type::gw_unactive_rpt && has(body, "cid")) {
        return fmt::format("gateway {} was deactivated", member_text(body, "cid"));
    }
    if (report.type == frame_type::upgrade_percent_rpt && has(body, "progress")) {
        return fmt::format("upgrade of {}: {} %", upgraded_device(body),
                           member_text(body, "progress"));
    }
    if (report.type == frame_type::subdevice_update_rpt && has(body, "softVer")) {
        return fmt::format("{} now has version {}", upgraded_device(body),
                           member_text(body, "softVer"));
    }
    const std::string ret = report.ret == 0 ? "" : fmt::format(", ret {}", report.ret);
    return type + ret + (report.payload.empty() ? "" : ": " + report.payload);
}

json report_json(const lan_client::report &report) {
    const auto *info = lan_client::find_frame_type(report.type);
    return {{"time", time_text()},
            {"type", report.type},
            {"name", info == nullptr ? json() : json(info->name)},
            {"number", report.number},
            {"ret", report.ret},
            {"payload", report.readable ? payload_json(report.payload) : json()}};
}

} // namespace engr_app
