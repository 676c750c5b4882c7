/* The gateway's requests for pieces of a firmware image. */
#include "chunk_request.h"

#include "transport/frame_types.h"
#include "transport/tcp_send.h"
#include "upgrade_state.h"

chunk_request::chunk_request(const char *cid, uint32_t offset, uint32_t size) {
    text_->add(R"({"firmwareType":%d,"cid":"%s","offset":%d,"downloadSize":%u})",
               up_info.firmware_type.load(), cid, static_cast<int32_t>(offset), size);
}

int32_t chunk_request::send() {
    return __mlp_gw_tcp_send(update_socket, 0, FRM_DOWNLOAD_FIRMWARE, 0, text_->text(),
                             text_->length(), true);
}
