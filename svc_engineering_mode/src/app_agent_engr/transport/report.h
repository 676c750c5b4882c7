/* The queued data-point report; the exported report functions are in the public header. */
#pragma once

#include "platform/message_bus.h"

#include <atomic>
#include <cstdint>

/** Message id of the data-point report; CMMOD_NO_MESSAGE_ID while its callback is not registered.
 * Written by start and stop. */
extern std::atomic<uint16_t> mid_lan_dp_report;

/** Callback of the message bus: packs and sends one queued data-point report. Bus thread. */
void __lan_dp_report_cb(cmmod_msg_t *message);
