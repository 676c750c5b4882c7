/* Hostile bytes for the app's side: what a gateway sends is cut into frames and decrypted, in
 * pieces as the first byte says. */
#include "lan_client/crypto.h"
#include "lan_client/stream_cutter.h"

#include <algorithm>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const size_t piece = 1U + data[0];
    std::string_view bytes(reinterpret_cast<const char *>(data) + 1, size - 1);
    lan_client::stream_cutter cutter;
    while (!bytes.empty()) {
        const std::string_view next = bytes.substr(0, piece);
        cutter.feed(next);
        bytes.remove_prefix(next.size());
        while (const auto frame = cutter.next()) {
            static_cast<void>(
                lan_client::decrypt_text(lan_client::unactivated_key(), frame->payload));
        }
    }
    return 0;
}
