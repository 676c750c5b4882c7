/* Building the keys from their seeds, and choosing the TCP key. */
#include "keys.h"

#include "engr_lan_agent.h"
#include "gateway/gateway.h"
#include "key_seeds.h"
#include "platform/owners.h"

#include <cstring>

uint8_t app_key1[AES128_KEY_SIZE];
uint8_t app_key2[AES128_KEY_SIZE];
uint8_t app_key3[AES128_KEY_SIZE];

namespace {

/** A key's seed while it is written, character by character: the stores are volatile, so that the
 * compiler can't merge them and no part of the seed is readable in the program. */
using seed_buffer = volatile uint8_t *;

/** Stores the key of a seed, unless it is stored already: other threads may read it meanwhile. */
void store_key(const uint8_t (&seed)[AES128_KEY_SIZE], uint8_t (&key)[AES128_KEY_SIZE]) {
    uint8_t digest[MD5_DIGEST_SIZE] = {};
    uni_md5_context_t context;
    uni_md5_init(&context);
    uni_md5_update(&context, seed, sizeof seed);
    uni_md5_final(&context, digest);
    const platform::held_critical_section hold;
    if (std::memcmp(key, digest, sizeof key) != 0) {
        std::memcpy(key, digest, sizeof key);
    }
}

} // namespace

void make_key1_encode() {
    uint8_t bytes[AES128_KEY_SIZE];
    const seed_buffer seed = bytes;
    ENGR_KEY1_SEED_STORES(seed)
    store_key(bytes, app_key1);
}

void make_key2_encode() {
    uint8_t bytes[AES128_KEY_SIZE];
    const seed_buffer seed = bytes;
    ENGR_KEY2_SEED_STORES(seed)
    store_key(bytes, app_key2);
}

void make_key3_encode() {
    uint8_t bytes[AES128_KEY_SIZE];
    const seed_buffer seed = bytes;
    ENGR_KEY3_SEED_STORES(seed)
    store_key(bytes, app_key3);
}

tcp_key current_tcp_key() {
    const gw_cntl_t &gateway = *engr_get_gw_cntl();
    tcp_key key{};
    const platform::held_mutex hold(gateway.field_mutex);
    const bool activated = gateway.active_stat == GW_ACTIVATED;
    std::memcpy(key.bytes, activated ? gateway.local_key : app_key3, sizeof key.bytes);
    return key;
}

int32_t engr_lan_get_tcp_key(uint8_t *key) {
    if (key == nullptr) {
        return ENGR_ERR_ARGUMENT;
    }
    make_key3_encode(); // the agent may not have been started yet
    const tcp_key current = current_tcp_key();
    std::memcpy(key, current.bytes, sizeof current.bytes);
    return ENGR_OK;
}
