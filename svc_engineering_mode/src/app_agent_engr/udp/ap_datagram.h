/* One datagram of the access-point configuration: checked, decrypted and parsed. */
#pragma once

#include "engr_lan_agent.h"

#include <cstdint>

/** Most bytes of a configuration datagram. */
inline constexpr uint32_t ap_datagram_size = 256;

/**
 * Handles one datagram; a bad one is logged and dropped. Listener's thread.
 *
 * @param bytes      what arrived; changed
 * @param size       how much of it arrived
 * @param finish_cb  gets the credentials
 * @return whether finish_cb has accepted them
 */
[[nodiscard]] bool handle_ap_datagram(uint8_t (&bytes)[ap_datagram_size], uint32_t size,
                                      lan_ap_cfg_finish_cb_t finish_cb);
