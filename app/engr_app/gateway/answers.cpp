// Failures for answers that can't be read.
#include "gateway/answers.h"

#include "gateway/request.h"

namespace engr_app {

std::vector<device> parse_device_list(std::string_view payload) {
    auto devices = lan_client::read_device_list(payload);
    if (!devices) {
        throw malformed_answer("list of devices", payload);
    }
    return *std::move(devices);
}

line_state parse_line_state(std::string_view payload) {
    auto states = lan_client::read_line_state(payload);
    if (!states) {
        throw malformed_answer("list of online and offline devices", payload);
    }
    return *std::move(states);
}

upgrade_status parse_upgrade_status(const upgrade_order &order, std::string_view payload) {
    auto status = lan_client::read_upgrade_status(order, payload);
    if (!status) {
        throw malformed_answer("answer to an announcement", payload);
    }
    return *std::move(status);
}

} // namespace engr_app
