/*
 * Reading from a client: one receive, the scan for frames in it, and reading the rest of a frame
 * that is longer.
 */
#include "frame_reader.h"

#include "base/agent_log.h"
#include "base/agent_use.h"
#include "clients/client_table.h"
#include "command/dispatcher.h"
#include "engr_lan_agent.h"
#include "platform/owners.h"
#include "platform/socket.h"
#include "transport/frame.h"
#include "transport/frame_types.h"
#include "transport/tcp_send.h"
#include "upgrade/upgrade_state.h"
#include "upgrade/upgrade_worker.h"

#include <cerrno>
#include <cstring>

namespace {

using platform::heap_block;

/** The bytes of one receive, and a frame that is longer than these. */
struct scan {
    int32_t socket;
    uint32_t now;
    uint8_t *bytes;      /**< the bytes that were read, or the frame buffer */
    uint32_t size;       /**< their number */
    uint32_t offset = 0; /**< position of the scan */
    heap_block<uint8_t>
        frame_buffer; /**< set once a frame had to be completed; it is the last one of the read */
};

/** Reads the rest of a frame of total bytes that begins at the offset. Returns false when the scan
 * ends here. */
bool complete_frame(scan &read, uint64_t total) {
    if (total >= frame_request_limit) {
        LAN_LOG(LOG_LEVEL_FAILURE, "lan data len is out of limit");
        return false;
    }
    const auto frame_size = static_cast<uint32_t>(total);
    // One byte more than the frame, for the NUL behind a payload.
    read.frame_buffer = heap_block<uint8_t>::allocate(frame_size + 1);
    if (!read.frame_buffer) {
        LAN_LOG(LOG_LEVEL_FAILURE, "malloc error");
        return false;
    }
    const uint32_t present = read.size - read.offset;
    std::memcpy(read.frame_buffer.get(), read.bytes + read.offset, present);
    read.bytes = read.frame_buffer.get();
    read.size = frame_size;
    read.offset = 0;
    const int32_t op_ret = kelo_net_recv_nd_size(read.socket, read.bytes + present,
                                                 frame_size + 1 - present, frame_size - present);
    if (op_ret < 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "unw_recv_nd_size error ret:%d", op_ret);
        return false;
    }
    return true;
}

void answer_keepalive(int32_t socket) {
    const int32_t op_ret =
        __mlp_gw_tcp_send(socket, 0, FRM_KEEPALIVE, reply_success, nullptr, 0, false);
    if (op_ret != ENGR_OK) {
        LAN_LOG(LOG_LEVEL_FAILURE, "mlp_gw_tcp_send op_ret:%d", op_ret);
    }
}

void handle_frame(const scan &read, const frame_start &start, uint8_t *frame) {
    __up_socket_time(read.socket, read.now);
    if (start.fr_type == FRM_KEEPALIVE) {
        answer_keepalive(read.socket);
        return;
    }
    uint8_t *payload = frame + frame_request_payload_offset;
    const uint32_t len = start.length - frame_trailer_size;
    payload[len] = 0; // over the CRC, so that a textual payload is a terminated string
    __lan_protocol_process({read.socket, start.fr_num, start.fr_type}, payload, len);
}

/** Handles what begins at the offset and advances it. Returns false when the scan ends here. */
bool step(scan &read) {
    const frame_start start = read_frame_start(read.bytes + read.offset, read.size - read.offset);
    if (start.head != frame_head) {
        ++read.offset;
        return true;
    }
    if (start.length < frame_trailer_size) {
        LAN_LOG(LOG_LEVEL_FAILURE, "lan data len is too short:%u",
                static_cast<unsigned>(start.length));
        ++read.offset;
        return true;
    }
    if (start.total() > read.size - read.offset && !complete_frame(read, start.total())) {
        return false;
    }
    if (agent_is_stopping()) {
        return false;
    }
    const auto total = static_cast<uint32_t>(start.total());
    uint8_t *frame = read.bytes + read.offset;
    const uint32_t crc_offset = total - frame_trailer_size;
    const uint32_t tail = read_frame_tail(frame, total);
    if (tail != frame_tail) {
        LAN_LOG(LOG_LEVEL_FAILURE, "recv tail:0x%x", static_cast<unsigned>(tail));
        read.offset += crc_offset + 1;
        return true;
    }
    read.offset += total;
    handle_frame(read, start, frame);
    return true;
}

void scan_frames(scan &read) {
    while (!read.frame_buffer && read.size - read.offset >= frame_request_min && step(read)) {
    }
}

/** A receive has failed or found the end of the stream. */
void give_up_client(int32_t socket, int system_error) {
    LAN_LOG(LOG_LEVEL_FAILURE, "close socket,errno:%d errno:%d", kelo_hal_net_get_errno(),
            system_error);
    __lpc_set_socket_fault(socket);
    if (update_stat == 1) {
        LAN_LOG(LOG_LEVEL_FAILURE, "in upgrading, notify the status of upgrade");
        upgrade_lost_connection();
    }
}

} // namespace

read_outcome read_from_client(int32_t socket, uint32_t now) {
    uint8_t *recv_buf = lan_pro_cntl.load()->recv_buf;
    errno = 0; // the end of a stream sets none
    const int32_t received = kelo_hal_net_recv(socket, recv_buf, lan_recv_buf_size);
    if (received <= 0) {
        give_up_client(socket, errno);
        return read_outcome::end_cycle;
    }
    const auto size = static_cast<uint32_t>(received);
    if (size < frame_request_min) {
        LAN_LOG(LOG_LEVEL_FAILURE, "not enough data");
        return read_outcome::end_cycle;
    }
    scan read{socket, now, recv_buf, size, 0, {}};
    scan_frames(read);
    return agent_is_stopping() ? read_outcome::end_cycle : read_outcome::go_on;
}
