/* CRC-32 over zlib. */
#include "platform/crypto.h"

#include <zlib.h>

uint32_t hash_crc32i_total(const void *buffer, uint16_t length) {
    // zlib takes a null buffer as a question for the initial value, which is the CRC of no bytes.
    return static_cast<uint32_t>(crc32(0, static_cast<const Bytef *>(buffer), length));
}
