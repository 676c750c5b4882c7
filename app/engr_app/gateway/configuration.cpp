#include "gateway/configuration.h"

#include "base/failure.h"
#include "lan_client/crypto.h"
#include "lan_client/frame_types.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace engr_app {
namespace {

using namespace std::chrono_literals;

// Encryption makes a text up to one block longer.
constexpr std::size_t max_config_bytes =
    lan_client::max_request_payload_bytes - lan_client::key_bytes;

// A gateway reads a long frame in small pieces, decrypts it and writes a file.
constexpr std::chrono::milliseconds least_push_time = 30s;

} // namespace

std::string checked_configuration(std::string text, const std::string &name) {
    if (text.size() > max_config_bytes) {
        throw wrong_usage(fmt::format(
            "{} has {} bytes, but a configuration travels in one frame, which takes at most {}",
            name, text.size(), max_config_bytes));
    }
    // The gateway reads the configuration as a C string, which would end there.
    if (const std::size_t zero = text.find('\0'); zero != std::string::npos) {
        throw wrong_usage(fmt::format("{} is not a text: byte {} is zero", name, zero + 1));
    }
    // It also cuts off whatever follows the last brace. Blanks at the end are dropped without a
    // message.
    text.erase(text.find_last_not_of(" \t\r\n") + 1);
    if (!text.empty() && text.back() != '}') {
        throw wrong_usage(fmt::format("{} does not end with }}, and a gateway keeps nothing that "
                                      "follows the last one",
                                      name));
    }
    return text;
}

lan_client::request configuration_request(configuration_kind kind, std::string text,
                                          std::chrono::milliseconds answer_time) {
    return {.type = kind == configuration_kind::cloud ? lan_client::frame_type::download_cloud_cfg
                                                      : lan_client::frame_type::download_app_cfg,
            .payload = std::move(text),
            .coding = lan_client::payload_coding::encrypted,
            .timeout = std::max(least_push_time, answer_time)};
}

} // namespace engr_app
