/* Building the keys from their seeds, and choosing the TCP key. */
#include "keys.h"

#include "gateway/gateway.h"
#include "key_seeds.h"
#include "platform/owners.h"

#include <cstring>

uint8_t app_key1[AES128_KEY_SIZE];
uint8_t app_key2[AES128_KEY_SIZE];
uint8_t app_key3[AES128_KEY_SIZE];

namespace {

/** A key's buffer while the seed is written, character by character: the stores are volatile, so
 * that the compiler can't merge them and no part of the seed is readable in the program. */
using seed_buffer = volatile uint8_t *;

/** Replaces the seed in a buffer by its key. */
void seed_to_key(uint8_t (&buffer)[AES128_KEY_SIZE]) {
    uint8_t digest[MD5_DIGEST_SIZE] = {};
    uni_md5_context_t context;
    uni_md5_init(&context);
    uni_md5_update(&context, buffer, sizeof buffer);
    uni_md5_final(&context, digest);
    std::memcpy(buffer, digest, sizeof buffer);
}

} // namespace

// Two threads may build app_key1 at once, and again while others read it: the finished key is
// stored only when it is not there yet.
void make_key1_encode() {
    uint8_t key[AES128_KEY_SIZE];
    const seed_buffer seed = key;
    ENGR_KEY1_SEED_STORES(seed)
    seed_to_key(key);
    const platform::held_critical_section hold;
    if (std::memcmp(app_key1, key, sizeof key) != 0) {
        std::memcpy(app_key1, key, sizeof key);
    }
}

void make_key2_encode() {
    const seed_buffer seed = app_key2;
    ENGR_KEY2_SEED_STORES(seed)
    seed_to_key(app_key2);
}

void make_key3_encode() {
    const seed_buffer seed = app_key3;
    ENGR_KEY3_SEED_STORES(seed)
    seed_to_key(app_key3);
}

tcp_key current_tcp_key() {
    const gw_cntl_t &gateway = *engr_get_gw_cntl();
    tcp_key key{};
    const platform::held_mutex hold(gateway.field_mutex);
    const bool activated = gateway.active_stat == GW_ACTIVATED;
    std::memcpy(key.bytes, activated ? gateway.local_key : app_key3, sizeof key.bytes);
    return key;
}
