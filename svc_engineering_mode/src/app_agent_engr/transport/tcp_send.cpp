/* The TCP send path: fault check, encryption, frame, one write, fault mark. */
#include "tcp_send.h"

#include "base/agent_log.h"
#include "clients/client_table.h"
#include "engr_lan_agent.h"
#include "frame.h"
#include "keys.h"
#include "payload_crypto.h"
#include "platform/clock.h"
#include "platform/owners.h"
#include "platform/socket.h"

#include <cerrno>

namespace {

using platform::heap_block;

constexpr uint32_t segment_size = 1024;
constexpr uint32_t segment_pause_ms = 300;

/** Whether a socket must not be written to. */
bool is_refused(int32_t socket, const lpc_send &send) {
    if (__get_lpc_sockets_fault(socket) == 1) {
        LAN_LOG(LOG_LEVEL_FAILURE, "the socket %d is fault", socket);
        return true;
    }
    return !send.may_begin();
}

void log_send(int32_t socket, uint32_t fr_num, uint32_t fr_type, uint32_t ret, uint32_t len) {
    LAN_LOG(LOG_LEVEL_TRACE, "tcp sendbuf socket:%d fr_num:%d fr_type:%d ret:%d len:%d", socket,
            static_cast<int>(fr_num), static_cast<int>(fr_type), static_cast<int>(ret),
            static_cast<int>(len));
}

struct built_frame {
    heap_block<uint8_t> bytes;
    uint32_t size = 0;
};

/** Encrypts if wanted and builds the frame. Returns 0, or the cipher's code; without memory the
 * frame is empty. */
int32_t build_frame(uint32_t fr_num, uint32_t fr_type, uint32_t ret, const uint8_t *data,
                    uint32_t len, bool encrypt, built_frame &frame) {
    if (!encrypt || len == 0) {
        frame.bytes.reset(__mlp_gw_send_da(fr_num, fr_type, ret, data, len, &frame.size));
        return 0;
    }
    heap_block<uint8_t> cipher;
    uint32_t cipher_len = 0;
    const tcp_key key = current_tcp_key();
    const int32_t op_ret = encrpt_lan_msg(data, len, cipher.out(), &cipher_len, key.bytes);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "aes128_ecb_encode error:%d", op_ret);
        return op_ret;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "send length:%d", static_cast<int>(cipher_len));
    frame.bytes.reset(
        __mlp_gw_send_da(fr_num, fr_type, ret, cipher.get(), cipher_len, &frame.size));
    return 0;
}

bool is_whole(int32_t written, uint32_t size) {
    return written > 0 && static_cast<uint32_t>(written) == size;
}

} // namespace

int32_t __mlp_gw_tcp_send(int32_t socket, uint32_t fr_num, uint32_t fr_type, uint32_t ret,
                          const void *data, uint32_t len, bool encrypt) {
    const lpc_send send(socket);
    if (is_refused(socket, send)) {
        return ENGR_ERR_SOCKET_FAULTY;
    }
    log_send(socket, fr_num, fr_type, ret, len);
    built_frame frame;
    const int32_t op_ret =
        build_frame(fr_num, fr_type, ret, static_cast<const uint8_t *>(data), len, encrypt, frame);
    if (op_ret != 0) {
        return op_ret;
    }
    if (!frame.bytes) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Create Send Buf Fails");
        return ENGR_ERR_FAILED;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "kelo_hal_net_send start...");
    const int32_t written = kelo_hal_net_send(socket, frame.bytes.get(), frame.size);
    LAN_LOG(LOG_LEVEL_TRACE, "kelo_hal_net_send end...");
    frame.bytes.reset();
    if (is_whole(written, frame.size)) {
        LAN_LOG(LOG_LEVEL_DETAIL, "TCP Send buf Success");
        return ENGR_OK;
    }
    const int32_t error = kelo_hal_net_get_errno();
    __lpc_set_socket_fault(socket);
    LAN_LOG(LOG_LEVEL_FAILURE, "ret:%d send_len:%d errno:%d", written, static_cast<int>(frame.size),
            error);
    return ENGR_ERR_SEND_FAILED;
}

int32_t __mlp_gw_tcp_large_send(int32_t socket, uint32_t fr_num, uint32_t fr_type, uint32_t ret,
                                const void *data, uint32_t len) {
    LAN_LOG(LOG_LEVEL_DETAIL, "enter [%s]", __func__);
    const lpc_send send(socket);
    if (is_refused(socket, send)) {
        return ENGR_ERR_SOCKET_FAULTY;
    }
    log_send(socket, fr_num, fr_type, ret, len);
    const auto *bytes = static_cast<const uint8_t *>(data);
    const uint32_t count = len / segment_size + 1;
    for (uint32_t seq = 1; seq <= count; ++seq) {
        const uint32_t offset = (seq - 1) * segment_size;
        const uint32_t size = seq < count ? segment_size : len % segment_size;
        uint32_t frame_size = 0;
        const heap_block<uint8_t> frame(__mlp_gw_send_large_da(
            fr_num, fr_type, ret, size > 0 ? bytes + offset : nullptr, size,
            static_cast<int32_t>(count), static_cast<int32_t>(seq), &frame_size));
        if (!frame) {
            LAN_LOG(LOG_LEVEL_FAILURE, "Create Send Buf Fails");
            return ENGR_ERR_FAILED;
        }
        const int32_t written = kelo_hal_net_send(socket, frame.get(), frame_size);
        const int error = errno;
        kelo_hal_system_sleep(segment_pause_ms);
        if (!is_whole(written, frame_size)) {
            LAN_LOG(LOG_LEVEL_FAILURE, "ret:%d count:%d seq:%d send_len:%d errno:%d", written,
                    static_cast<int>(count), static_cast<int>(seq), static_cast<int>(frame_size),
                    error);
            __lpc_set_socket_fault(socket);
            return ENGR_ERR_SEND_FAILED;
        }
    }
    LAN_LOG(LOG_LEVEL_TRACE, "TCP Send buf Success");
    LAN_LOG(LOG_LEVEL_DETAIL, "leave [%s]", __func__);
    return ENGR_OK;
}
