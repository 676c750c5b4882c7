#include "session/event.h"

#include "lan_client/frame_types.h"

namespace session {

namespace frame_type = lan_client::frame_type;

uint32_t client_of(const event &what) {
    return std::visit(
        [](const auto &of) -> uint32_t {
            if constexpr (requires { of.client; }) {
                return of.client;
            } else {
                return 0;
            }
        },
        what.what);
}

coding usual_coding(side from, const frame_content &content) {
    const bool is_plain_request = from == side::app && lan_client::request_coding(content.type) ==
                                                           lan_client::payload_coding::plain;
    return content.payload.empty() || content.segment || is_plain_request ? coding::plain
                                                                          : coding::local;
}

coding usual_datagram_coding(const frame_content &content) {
    return content.type == frame_type::ap_nw_cfg || content.payload.empty() ? coding::plain
                                                                            : coding::built_in;
}

std::string type_name(uint32_t type) {
    const lan_client::frame_type_info *info = lan_client::find_frame_type(type);
    return info == nullptr ? "type " + std::to_string(type) : std::string(info->name);
}

std::string datagram_type_name(uint32_t type) {
    switch (type) {
    case frame_type::ap_nw_cfg:
        return "FRM_AP_NW_CFG";
    case frame_type::udp_discovery:
        return "FRM_UDP_DISCOVERY";
    case frame_type::udp_wifi_err:
        return "FRM_UDP_WIFI_ERR";
    default:
        return "type " + std::to_string(type);
    }
}

const char *side_name(side of) {
    return of == side::app ? "app" : "gateway";
}

} // namespace session
