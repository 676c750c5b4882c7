/* The discovery broadcast: one encrypted datagram that describes the gateway. */
#include "discovery.h"

#include "base/agent_log.h"
#include "base/bounded_text.h"
#include "clients/client_table.h"
#include "gateway/gateway.h"
#include "platform/network.h"
#include "platform/owners.h"
#include "platform/socket.h"
#include "transport/frame.h"
#include "transport/frame_types.h"
#include "transport/keys.h"
#include "transport/payload_crypto.h"

#include <cstring>

namespace {

using platform::heap_block;

constexpr uint16_t discovery_port = 6667;
/** Size of the buffer for the text and then its ciphertext. */
constexpr uint32_t discovery_buffer_size = 256;

/** Address of the last broadcast; empty before the first, and kept across a stop. */
gw_addr_t local_ip;

struct discovery_buffer {
    heap_block<uint8_t> bytes = heap_block<uint8_t>::allocate(discovery_buffer_size);
    uint32_t length = 0;
};

bool read_own_address(gw_addr_t &address) {
    if (wf_get_ip(WF_STATION, &address) != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Get IP Fails");
        return false;
    }
    return true;
}

void close_socket(lan_pro_cntl_t &cntl) {
    if (cntl.udp_fd >= 0) {
        kelo_hal_net_close(cntl.udp_fd);
    }
    cntl.udp_fd = -1;
}

/** Closes the socket when the address has changed since the last broadcast. */
void follow_address(lan_pro_cntl_t &cntl, const gw_addr_t &address) {
    if (std::strncmp(address.ip, local_ip.ip, sizeof address.ip) == 0) {
        return;
    }
    local_ip = address;
    LAN_LOG(LOG_LEVEL_TRACE, "change net env");
    close_socket(cntl);
}

bool ensure_socket(lan_pro_cntl_t &cntl) {
    if (cntl.udp_fd >= 0) {
        return true;
    }
    const int32_t created = kelo_hal_net_socket_create(KELO_SOCKET_UDP);
    if (created < 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "create socket err");
        return false;
    }
    cntl.udp_fd = created;
    kelo_hal_net_socket_bind(cntl.udp_fd, local_ip.ip);
    kelo_hal_net_set_boardcast(cntl.udp_fd);
    LAN_LOG(LOG_LEVEL_TRACE, "Create UDP Socket To Broadcast");
    return true;
}

/** Writes the text that describes the gateway. Returns false when it does not fit; it is not sent
 * then. */
bool write_text(discovery_buffer &buffer) {
    const bool needs_wifi = (bnw_need_wifi_cfg() & 1U) != 0;
    const gw_cntl_t &gateway = *engr_get_gw_cntl();
    bounded_text text(reinterpret_cast<char *>(buffer.bytes.get()), discovery_buffer_size);
    {
        const platform::held_mutex hold(gateway.field_mutex);
        const char *id = gateway.gw_id[0] != '\0' ? gateway.gw_id : gateway.alt_gw_id;
        text.add(R"({"ip":"%s","gwId":"%s")", local_ip.ip, id);
        const int active = gateway.active_stat > GW_DEACTIVATED ? GW_ACTIVATED : GW_NOT_ACTIVE;
        text.add(R"(,"active":%d,"ablilty":%d)", active, gateway.ability);
        text.add(R"(,"encrypt":true)");
        text.add(R"(,"productKey":"%s")", gateway.product_key);
        text.add(R"(,"version":"%s")", gateway.disc_version);
        text.add(R"(,"token":true)");
    }
    if (needs_wifi) {
        text.add(R"(,"wf_cfg":true)");
    }
    const uint32_t length_before_brace = text.length();
    text.add("}");
    if (text.is_cut()) {
        LAN_LOG(LOG_LEVEL_FAILURE, "discovery text does not fit into %u bytes, nothing sent",
                static_cast<unsigned>(discovery_buffer_size));
        return false;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "BufToSend %d:%s", static_cast<int>(length_before_brace), text.text());
    buffer.length = text.length();
    return true;
}

/** Replaces the text in the buffer by its ciphertext. */
bool encrypt_in_place(discovery_buffer &buffer) {
    heap_block<uint8_t> cipher;
    uint32_t cipher_len = 0;
    const int32_t op_ret =
        encrpt_lan_msg(buffer.bytes.get(), buffer.length, cipher.out(), &cipher_len, app_key2);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "aes128_ecb_encode error:%d", op_ret);
        return false;
    }
    if (cipher_len > discovery_buffer_size) {
        LAN_LOG(LOG_LEVEL_FAILURE, "discovery ciphertext of %u bytes does not fit, nothing sent",
                static_cast<unsigned>(cipher_len));
        return false;
    }
    std::memset(buffer.bytes.get(), 0, discovery_buffer_size);
    std::memcpy(buffer.bytes.get(), cipher.get(), cipher_len);
    buffer.length = cipher_len;
    return true;
}

void broadcast(lan_pro_cntl_t &cntl, const uint8_t *frame, uint32_t size) {
    const int32_t sent =
        kelo_hal_net_send_to(cntl.udp_fd, frame, size, KELO_ADDRESS_BROADCAST, discovery_port);
    if (sent >= 0) {
        LAN_LOG(LOG_LEVEL_TRACE, "send len:%d", static_cast<int>(size));
        return;
    }
    LAN_LOG(LOG_LEVEL_FAILURE, "sendto Failed,len:%d ret:%d,errno:%d port:%d",
            static_cast<int>(size), sent, kelo_hal_net_get_errno(), discovery_port);
    close_socket(cntl);
}

} // namespace

void __udp_dev_discovery() {
    lan_pro_cntl_t &cntl = *lan_pro_cntl.load();
    if ((engr_get_gw_nw_status() & 0xFFU) == 0) {
        return;
    }
    if (__get_lpc_valid_socket_num() >= lan_client_max) {
        LAN_LOG(LOG_LEVEL_TRACE, "socket Num Too Many,Cannot Send Udp Broadcast");
        return;
    }
    gw_addr_t address{};
    if (!read_own_address(address)) {
        return;
    }
    follow_address(cntl, address);
    if (!ensure_socket(cntl)) {
        return;
    }
    discovery_buffer buffer;
    if (!buffer.bytes) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Malloc Fails");
        return;
    }
    if (!write_text(buffer) || !encrypt_in_place(buffer)) {
        return;
    }
    uint32_t frame_size = 0;
    const heap_block<uint8_t> frame(
        __mlp_gw_send_da(0, FRM_UDP_DISCOVERY, 0, buffer.bytes.get(), buffer.length, &frame_size));
    buffer.bytes.reset();
    if (!frame) {
        LAN_LOG(LOG_LEVEL_FAILURE, "mlp_gw_send_da error");
        return;
    }
    broadcast(cntl, frame.get(), frame_size);
}
