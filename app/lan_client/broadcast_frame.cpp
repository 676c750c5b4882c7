// Reading of broadcast frames.
#include "broadcast_frame.h"

#include "lan_client/frame.h"
#include "lan_client/frame_types.h"

namespace lan_client {

broadcast_frame
read_broadcast(std::string_view bytes, std::string_view address, uint32_t type,
               const std::function<std::optional<std::string>(std::string_view)> &opened,
               const traffic_observer &observer) {
    const decode_result decoded = decode_frame(bytes);
    const frame &got = decoded.decoded;
    if (decoded.status != decode_status::whole || decoded.consumed_bytes != bytes.size() ||
        got.type != type) {
        return {};
    }
    broadcast_frame read{true, opened(got.payload)};
    if (observer) {
        observer({.peer = address,
                  .discovery = type == frame_type::udp_discovery,
                  .number = got.number,
                  .type = got.type,
                  .ret = got.ret,
                  .crc_matches = got.crc_matches,
                  .state = read.text ? payload_state::decrypted : payload_state::unreadable,
                  .wire_payload = got.payload,
                  .text = read.text ? std::string_view(*read.text) : std::string_view()});
    }
    if (!got.crc_matches) {
        read.text.reset();
    }
    return read;
}

} // namespace lan_client
