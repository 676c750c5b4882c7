/* Reading an exact number of bytes from a non-blocking socket; exported, and used by the frame
 * reader. */
#include "base/agent_log.h"
#include "engr_lan_agent.h"
#include "platform/clock.h"
#include "platform/socket.h"

namespace {

constexpr uint32_t pause_ms = 10;
/** Pauses without a byte after which the read fails. */
constexpr uint32_t pause_budget = 3000;

bool is_transient(int32_t error) {
    return error == KELO_ERR_INTERRUPTED || error == KELO_ERR_WOULD_BLOCK ||
           error == KELO_ERR_TRY_AGAIN;
}

} // namespace

int32_t kelo_net_recv_nd_size(int32_t socket, uint8_t *buffer, uint32_t buffer_size,
                              uint32_t needed) {
    if (buffer == nullptr || buffer_size < needed || needed > INT32_MAX) {
        return -1;
    }
    uint32_t got = 0;
    uint32_t budget = pause_budget;
    while (got < needed) {
        const int32_t received = kelo_hal_net_recv(socket, buffer + got, needed - got);
        if (received > 0) {
            got += static_cast<uint32_t>(received);
            budget = pause_budget;
            continue;
        }
        const int32_t error = kelo_hal_net_get_errno();
        if (!is_transient(error)) {
            break;
        }
        kelo_hal_system_sleep(pause_ms);
        if (budget == 0) {
            LAN_LOG(LOG_LEVEL_FAILURE, "%s, %i, ret:%i\r\n", __func__, error, received);
            break;
        }
        --budget;
    }
    return got >= needed ? static_cast<int32_t>(got) : -2;
}
