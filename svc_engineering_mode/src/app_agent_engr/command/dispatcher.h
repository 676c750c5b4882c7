/* Passes a frame to the handler of its type. */
#pragma once

#include "transport/request.h"

#include <cstdint>

/**
 * Handles one frame of an app, answer included. Server task.
 *
 * @param payload  len bytes as received, a 0 byte behind them
 */
void __lan_protocol_process(const request_source &source, const uint8_t *payload, uint32_t len);
