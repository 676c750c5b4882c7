// Frames in words and in a file.
#include "gateway/format.h"

#include "base/failure.h"
#include "base/json_text.h"
#include "lan_client/frame_types.h"
#include "support/numbers.h"
#include "support/utf8.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace engr_app {
namespace {

namespace frame_type = lan_client::frame_type;
using lan_client::payload_state;
using lan_client::traffic;

// The discovery broadcast shares its number with a command; the others are not of the TCP channel.
std::string type_text(const traffic &seen) {
    return seen.discovery                          ? "FRM_UDP_DISCOVERY (19)"
           : seen.type == frame_type::ap_nw_cfg    ? "FRM_AP_NW_CFG (1)"
           : seen.type == frame_type::udp_wifi_err ? "FRM_UDP_WIFI_ERR (20)"
                                                   : lan_client::frame_type_text(seen.type);
}

std::string payload_text(const traffic &seen) {
    if (seen.wire_payload.empty()) {
        return "no payload";
    }
    const std::string size = std::to_string(seen.wire_payload.size()) + " bytes";
    if (seen.state == payload_state::unreadable) {
        return size + " that no key at hand decrypts";
    }
    const std::string kind = seen.state == payload_state::decrypted ? " encrypted: " : " plain: ";
    return size + kind + without_secrets(seen.text);
}

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

std::string time_text() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    const auto seconds = static_cast<std::time_t>(ms / 1000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 40> text{};
    const std::size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text.data() + size, text.size() - size, ".%03dZ", static_cast<int>(ms % 1000));
    return text.data();
}

std::string milliseconds_text(double time_ms) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.3f ms", time_ms);
    return text.data();
}

std::string format_frame(const traffic &seen) {
    std::string words = time_text() + (seen.sent ? " to " : " from ") + std::string(seen.peer) +
                        ": " + type_text(seen) + " number " + std::to_string(seen.number);
    if (seen.ret) {
        words += ", ret " + std::to_string(*seen.ret);
    }
    if (seen.segment) {
        words += ", segment " + std::to_string(seen.segment->number) + " of " +
                 std::to_string(seen.segment->count);
    }
    if (!seen.crc_matches) {
        words += ", wrong CRC";
    }
    return words + ", " + payload_text(seen);
}

frame_recorder::frame_recorder(const std::string &path) : path_(path) {
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (descriptor >= 0) {
        file_.reset(::fdopen(descriptor, "w"));
    }
    if (!file_) {
        throw failure("record_file", "--record: can't write " + path + ": " + std::strerror(errno),
                      exit_wrong_usage);
    }
}

void frame_recorder::write(const traffic &seen) {
    nlohmann::ordered_json line{
        {"time", time_text()},     {"direction", seen.sent ? "sent" : "received"},
        {"peer", seen.peer},       {"type", seen.type},
        {"name", type_text(seen)}, {"number", seen.number}};
    if (seen.ret) {
        line["ret"] = *seen.ret;
    }
    if (seen.segment) {
        line["segment"] = {{"number", seen.segment->number}, {"count", seen.segment->count}};
    }
    if (!seen.crc_matches) {
        line["wrong_crc"] = true;
    }
    line["length"] = seen.wire_payload.size();
    line["encrypted"] = seen.state != payload_state::plain;
    const bool readable = seen.state != payload_state::unreadable;
    if (readable && support::is_utf8(seen.text)) {
        line["payload"] = without_secrets(seen.text);
    } else {
        line["payload_hex"] = support::to_hex(readable ? seen.text : seen.wire_payload);
    }
    const std::string text = line.dump() + "\n";
    const std::lock_guard lock(mutex_);
    if (std::fwrite(text.data(), 1, text.size(), file_.get()) != text.size() ||
        std::fflush(file_.get()) != 0) {
        throw failure("record_file",
                      "--record: can't write " + path_ + ": " + std::strerror(errno));
    }
}

std::string format_report(const lan_client::report &report) {
    const std::string type = lan_client::frame_type_text(report.type);
    if (!report.readable) {
        return type + " that can't be decrypted with the key at hand";
    }
    const json body = parse_json(report.payload);
    if (report.type == frame_type::dp_report && has(body, "dps") && body["dps"].is_object()) {
        return data_points(body);
    }
    if (report.type == frame_type::sub_dev_bind_rpt && has(body, "products") &&
        body["products"].is_array()) {
        return bound_devices(body);
    }
    if (report.type == frame_type::sub_dev_unbind_rpt && has(body, "cid")) {
        return "device " + member_text(body, "cid") + " was unbound";
    }
    if (report.type == frame_type::gw_unactive_rpt && has(body, "cid")) {
        return "gateway " + member_text(body, "cid") + " was deactivated";
    }
    if (report.type == frame_type::upgrade_percent_rpt && has(body, "progress")) {
        return "upgrade of " + upgraded_thing(body) + ": " + member_text(body, "progress") + " %";
    }
    if (report.type == frame_type::subdevice_update_rpt && has(body, "softVer")) {
        return upgraded_thing(body) + " now has version " + member_text(body, "softVer");
    }
    const std::string ret = report.ret == 0 ? "" : ", ret " + std::to_string(report.ret);
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
