/* Frame types that other modules of the gateway have taken over; registering is in the public
 * header. */
#pragma once

#include "request.h"

#include <cstdint>

/**
 * Offers a frame to the registered handlers. Server task.
 *
 * @param payload  len bytes as received, a 0 byte behind them
 * @return -4 no handler for this frame type, nothing was done; 0 handled, the app has its success;
 *     -1 failed, the app has its refusal
 */
[[nodiscard]] int32_t __lan_protocol_handler_ex(const request_source &source,
                                                const uint8_t *payload, uint32_t len);
