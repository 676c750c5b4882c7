// The stream that a gateway sends, fed in pieces as the first byte says.
//
// The pieces make no difference. Every frame that is cut out of the stream, written again, is read
// as the same frame. What is decrypted, encrypted again, is what was there. No byte is counted
// twice.
#include "lan_client/crypto.h"
#include "lan_client/stream_cutter.h"
#include "support/gateway_frame.h"
#include "support/require.h"

#include <vector>

namespace {

using fuzz::require;
using lan_client::frame;

bool same(const frame &one, const frame &other) {
    return one.number == other.number && one.type == other.type && one.ret == other.ret &&
           one.segment.has_value() == other.segment.has_value() &&
           (!one.segment || (one.segment->count == other.segment->count &&
                             one.segment->number == other.segment->number)) &&
           one.payload == other.payload;
}

std::string written(const frame &read) {
    if (!read.segment) {
        return fuzz::gateway_frame(read.number, read.type, {read.ret}, read.payload);
    }
    return fuzz::gateway_frame(read.number, read.type,
                               {read.ret, static_cast<uint32_t>(read.segment->count),
                                static_cast<uint32_t>(read.segment->number)},
                               read.payload);
}

void check(const frame &read) {
    const std::string bytes = written(read);
    const lan_client::decode_result again = lan_client::decode_frame(bytes);
    require(again.status == lan_client::decode_status::whole &&
                again.consumed_bytes == bytes.size() && again.decoded.crc_matches &&
                same(again.decoded, read),
            "a frame that was written again to be read as the same");
    const lan_client::aes_key key = lan_client::unactivated_key();
    if (const auto plain = lan_client::decrypt(key, read.payload)) {
        require(lan_client::encrypt(key, *plain) == read.payload,
                "what was decrypted to be encrypted to the same bytes");
    }
    require(lan_client::decrypt(key, lan_client::encrypt(key, read.payload)) == read.payload,
            "what was encrypted to be decrypted");
}

std::vector<frame> cut(std::string_view bytes, size_t piece, size_t &skipped) {
    lan_client::stream_cutter cutter;
    std::vector<frame> frames;
    size_t framed = 0;
    const size_t size = bytes.size();
    while (!bytes.empty()) {
        const std::string_view next = bytes.substr(0, piece);
        cutter.feed(next);
        bytes.remove_prefix(next.size());
        while (auto got = cutter.next()) {
            framed += written(*got).size();
            frames.push_back(std::move(*got));
        }
    }
    skipped = cutter.skipped_bytes();
    require(framed + skipped <= size, "each byte to belong to one frame or to none");
    return frames;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) {
        return 0;
    }
    const std::string_view bytes(reinterpret_cast<const char *>(data) + 1, size - 1);
    size_t skipped_whole = 0;
    size_t skipped_in_pieces = 0;
    const std::vector<frame> whole = cut(bytes, bytes.size(), skipped_whole);
    const std::vector<frame> in_pieces = cut(bytes, 1U + data[0], skipped_in_pieces);
    // The first bytes of a head may wait for the rest of it.
    constexpr size_t head_bytes = 4;
    require(whole.size() == in_pieces.size() && skipped_in_pieces <= skipped_whole &&
                skipped_whole - skipped_in_pieces < head_bytes,
            "pieces to make no difference");
    for (size_t at = 0; at < whole.size(); ++at) {
        require(same(whole[at], in_pieces[at]), "the same frames from pieces");
        check(whole[at]);
    }
    return 0;
}
