/* CRC-32 over libdeflate, which computes it with carry-less multiplication where the processor can.
 */
#include "platform/crypto.h"

#include <libdeflate.h>

uint32_t hash_crc32i_total(const void *buffer, uint16_t length) {
    // libdeflate takes a null buffer as a question for the initial value, which is the CRC of no
    // bytes.
    return libdeflate_crc32(0, buffer, length);
}
