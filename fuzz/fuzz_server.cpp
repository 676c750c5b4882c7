// Hostile bytes for the gateway's server. The first byte says in which pieces they arrive.
//
// A sound app is served afterwards, the hostile one is gone from the table, and nothing is held
// that was not before. What the gateway sends are whole frames with a right CRC, whatever it was
// sent.
#include "lan_client/stream_cutter.h"
#include "support/gateway_world.h"
#include "support/require.h"

namespace {

using fuzz::require;

void check_sent(const std::string &bytes) {
    lan_client::stream_cutter cutter;
    cutter.feed(bytes);
    size_t framed = 0;
    while (const auto frame = cutter.next()) {
        require(frame->crc_matches, "frames with a right CRC");
        ++framed;
    }
    require(cutter.skipped_bytes() == 0 && (framed > 0 || bytes.empty()),
            "nothing but whole frames to be sent");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) {
        return 0;
    }
    std::string_view bytes(reinterpret_cast<const char *>(data) + 1, size - 1);
    const size_t piece = data[0] == 0 ? bytes.size() : data[0];
    fuzz::gateway_world &gateway = fuzz::gateway_world::fresh();
    sim::peer hostile = gateway.connect();
    while (!bytes.empty()) {
        hostile.send(bytes.substr(0, piece));
        bytes.remove_prefix(std::min(piece, bytes.size()));
        gateway.world().run_until_idle();
    }
    check_sent(hostile.receive_available());
    hostile.close();
    gateway.settle();
    return 0;
}
