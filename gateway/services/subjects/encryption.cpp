// The device service's encoding: the JSON text encrypted with the key of the TCP channel.
#include "calls/calls.h"
#include "calls/results.h"
#include "gateway/device.h"
#include "platform/crypto.h"
#include "platform/memory.h"
#include "platform/owners.h"
#include "store/records.h"

#include <array>
#include <cstring>

namespace gateway {
namespace {

using key = std::array<uint8_t, AES128_KEY_SIZE>;

key tcp_key() {
    const gw_cntl_t &gateway = the_gateway().shared;
    const platform::held_mutex guard(gateway.field_mutex);
    if (gateway.active_stat != GW_ACTIVATED) {
        return built_in_key();
    }
    key own;
    std::memcpy(own.data(), gateway.local_key, own.size());
    return own;
}

int32_t parse_payload(const uint8_t *payload, uint32_t length, char **text) {
    if (payload == nullptr || text == nullptr) {
        return result_argument;
    }
    platform::heap_block<uint8_t> plain;
    uint32_t plain_length = 0;
    const int32_t result =
        aes128_ecb_decode(payload, length, plain.out(), &plain_length, tcp_key().data());
    if (result != 0) {
        return result;
    }
    // A NUL inside would hide what stands behind it from everybody who reads the text.
    if (std::memchr(plain.get(), 0, plain_length) != nullptr) {
        return result_not_text;
    }
    *text = reinterpret_cast<char *>(plain.release());
    return 0;
}

} // namespace
} // namespace gateway

using namespace gateway;

int32_t engr_pack_data_with_cmd(uint8_t mode, const char *text, uint32_t flags, uint32_t pack_arg,
                                uint8_t **output, uint32_t *output_length) {
    return service(
        call("engr_pack_data_with_cmd"),
        [&](call_arguments &list) {
            list.number("mode", mode)
                .text("text", text)
                .number("flags", flags)
                .number("pack_arg", pack_arg);
        },
        [&] {
            if (text == nullptr) {
                return result_argument;
            }
            return aes128_ecb_encode(reinterpret_cast<const uint8_t *>(text),
                                     static_cast<uint32_t>(std::strlen(text)), output,
                                     output_length, tcp_key().data());
        });
}

int32_t engr_parse_data_with_cmd(uint8_t mode, const uint8_t *payload, uint32_t length,
                                 char **text) {
    return service(
        call("engr_parse_data_with_cmd"),
        [&](call_arguments &list) { list.number("mode", mode).bytes("payload", payload, length); },
        [&] { return parse_payload(payload, length, text); });
}
