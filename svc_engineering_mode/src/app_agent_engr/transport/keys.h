/* The built-in keys of the LAN channels, and the key of the TCP channel. */
#pragma once

#include "platform/crypto.h"

#include <cstdint>

/** UDP configuration channel and its failure broadcast; zero until built. */
extern uint8_t app_key1[AES128_KEY_SIZE];
/** Discovery broadcast; zero until built. */
extern uint8_t app_key2[AES128_KEY_SIZE];
/** TCP channel while the gateway is not activated; zero until built. */
extern uint8_t app_key3[AES128_KEY_SIZE];

/* Each builds its key unless that is done. Any thread, before it uses the key. */
void make_key1_encode();
void make_key2_encode();
void make_key3_encode();

/** The TCP key at this moment: the gateway's own one while it is activated, else app_key3. */
struct tcp_key {
    uint8_t bytes[AES128_KEY_SIZE];
};

/** Reads the TCP key afresh. Any thread inside the agent; takes the gateway record's field_mutex.
 */
[[nodiscard]] tcp_key current_tcp_key();
