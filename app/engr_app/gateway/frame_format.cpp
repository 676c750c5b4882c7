// Frames in words and in a file.
#include "gateway/frame_format.h"

#include "base/failure.h"
#include "base/json_text.h"
#include "lan_client/frame_types.h"
#include "lan_client/utf8.h"

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

using lan_client::payload_state;
using lan_client::traffic;

// The discovery broadcast shares its number with a command; the others are not of the TCP channel.
std::string type_text(const traffic &seen) {
    namespace frame_type = lan_client::frame_type;
    return seen.discovery                          ? "FRM_UDP_DISCOVERY (19)"
           : seen.type == frame_type::ap_nw_cfg    ? "FRM_AP_NW_CFG (1)"
           : seen.type == frame_type::udp_wifi_err ? "FRM_UDP_WIFI_ERR (20)"
                                                   : lan_client::frame_type_text(seen.type);
}

std::string payload_words(const traffic &seen) {
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

std::string frame_words(const traffic &seen) {
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
    return words + ", " + payload_words(seen);
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
    if (readable && lan_client::is_utf8(seen.text)) {
        line["payload"] = without_secrets(seen.text);
    } else {
        line["payload_hex"] = to_hex(readable ? seen.text : seen.wire_payload);
    }
    const std::string text = line.dump() + "\n";
    const std::lock_guard lock(mutex_);
    if (std::fwrite(text.data(), 1, text.size(), file_.get()) != text.size() ||
        std::fflush(file_.get()) != 0) {
        throw failure("record_file",
                      "--record: can't write " + path_ + ": " + std::strerror(errno));
    }
}

} // namespace engr_app
