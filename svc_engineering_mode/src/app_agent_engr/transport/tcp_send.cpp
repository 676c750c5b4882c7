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
#include <cstring>

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

bool is_whole(int32_t written, uint32_t size) {
    return written > 0 && static_cast<uint32_t>(written) == size;
}

} // namespace

tcp_frame::tcp_frame(uint32_t fr_num, uint32_t fr_type, uint32_t ret, heap_block<char> text)
    : tcp_frame(fr_num, fr_type, ret, text.get(), static_cast<uint32_t>(std::strlen(text.get())),
                true) {
    text_ = std::move(text);
}

/** Encrypts if wanted and builds the frame. Returns 0, -1 without memory, or the cipher's code. */
int32_t tcp_frame::build() {
    if (!encrypt_ || len_ == 0) {
        frame_.reset(__mlp_gw_send_da(fr_num_, fr_type_, ret_, data_, len_, &size_));
    } else {
        heap_block<uint8_t> cipher;
        const tcp_key key = current_tcp_key();
        const int32_t op_ret = encrpt_lan_msg(data_, len_, cipher.out(), &cipher_len_, key.bytes);
        if (op_ret != 0) {
            LAN_LOG(LOG_LEVEL_FAILURE, "aes128_ecb_encode error:%d", op_ret);
            return op_ret;
        }
        log_cipher();
        text_.reset();
        frame_.reset(__mlp_gw_send_da(fr_num_, fr_type_, ret_, cipher.get(), cipher_len_, &size_));
    }
    if (!frame_) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Create Send Buf Fails");
        return ENGR_ERR_FAILED;
    }
    return ENGR_OK;
}

void tcp_frame::log_cipher() const {
    if (cipher_len_ != 0) {
        LAN_LOG(LOG_LEVEL_TRACE, "send length:%d", static_cast<int>(cipher_len_));
    }
}

int32_t tcp_frame::send_to(int32_t socket) {
    const lpc_send send(socket);
    if (is_refused(socket, send)) {
        return ENGR_ERR_SOCKET_FAULTY;
    }
    log_send(socket, fr_num_, fr_type_, ret_, len_);
    if (frame_) {
        log_cipher();
    } else if (const int32_t op_ret = build(); op_ret != ENGR_OK) {
        return op_ret;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "kelo_hal_net_send start...");
    const int32_t written = kelo_hal_net_send(socket, frame_.get(), size_);
    LAN_LOG(LOG_LEVEL_TRACE, "kelo_hal_net_send end...");
    if (is_whole(written, size_)) {
        LAN_LOG(LOG_LEVEL_DETAIL, "TCP Send buf Success");
        return ENGR_OK;
    }
    const int32_t error = kelo_hal_net_get_errno();
    __lpc_set_socket_fault(socket);
    LAN_LOG(LOG_LEVEL_FAILURE, "ret:%d send_len:%d errno:%d", written, static_cast<int>(size_),
            error);
    return ENGR_ERR_SEND_FAILED;
}

int32_t __mlp_gw_tcp_send(int32_t socket, uint32_t fr_num, uint32_t fr_type, uint32_t ret,
                          const void *data, uint32_t len, bool encrypt) {
    return tcp_frame(fr_num, fr_type, ret, data, len, encrypt).send_to(socket);
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
