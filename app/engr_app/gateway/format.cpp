// Frames as text and as JSON.
#include "gateway/format.h"

#include "base/json_text.h"
#include "lan_client/frame_types.h"

#include <chrono>
#include <ctime>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

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

} // namespace

std::string time_text() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z",
                       fmt::gmtime(static_cast<std::time_t>(ms / 1000)), ms % 1000);
}

std::string local_time_text() {
    return fmt::format("{:%H:%M:%S}", fmt::localtime(std::time(nullptr)));
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

} // namespace engr_app
