/* The LAN frame on the wire. */
#include "frame.h"

#include "base/agent_log.h"
#include "base/byte_cursor.h"
#include "platform/crypto.h"
#include "platform/memory.h"

const uint32_t frame_request_limit = ENGR_FRAME_LIMIT;

namespace {

/** Words between the length word and the payload. */
struct extra_words {
    uint32_t words[3];
    uint32_t count;
};

uint8_t *build(uint32_t fr_num, uint32_t fr_type, const extra_words &extra, const uint8_t *data,
               uint32_t len, uint32_t *out_len) {
    const uint32_t counted = extra.count * 4 + frame_trailer_size;
    const uint64_t wanted = uint64_t{frame_uncounted} + counted + len;
    const auto total = static_cast<uint32_t>(wanted);
    auto *frame = wanted == total ? static_cast<uint8_t *>(Malloc(total)) : nullptr;
    if (frame == nullptr) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Malloc Fails %d", static_cast<int>(total));
        return nullptr;
    }
    byte_writer writer(frame, total);
    writer.u32(frame_head);
    writer.u32(fr_num);
    writer.u32(fr_type);
    writer.u32(counted + len);
    for (uint32_t i = 0; i < extra.count; ++i) {
        writer.u32(extra.words[i]);
    }
    writer.bytes(data, len);
    // The CRC function has a 16-bit length, so that beyond 64 KiB it covers the length modulo 2^16.
    writer.u32(hash_crc32i_total(frame, static_cast<uint16_t>(writer.written())));
    writer.u32(frame_tail);
    *out_len = total;
    return frame;
}

} // namespace

frame_start read_frame_start(const uint8_t *bytes, uint32_t size) {
    byte_reader reader(bytes, size);
    frame_start start{};
    start.head = reader.u32();
    start.fr_num = reader.u32();
    start.fr_type = reader.u32();
    start.length = reader.u32();
    return start;
}

uint32_t read_frame_tail(const uint8_t *frame, uint32_t total) {
    byte_reader reader(frame, total);
    reader.skip(total - 4);
    return reader.u32();
}

uint8_t *__mlp_gw_send_da(uint32_t fr_num, uint32_t fr_type, uint32_t ret, const uint8_t *data,
                          uint32_t len, uint32_t *out_len) {
    return build(fr_num, fr_type, {{ret}, 1}, data, len, out_len);
}

uint8_t *__mlp_gw_send_large_da(uint32_t fr_num, uint32_t fr_type, uint32_t ret,
                                const uint8_t *data, uint32_t len, int32_t count, int32_t seq,
                                uint32_t *out_len) {
    const extra_words extra{{ret, static_cast<uint32_t>(count), static_cast<uint32_t>(seq)}, 3};
    return build(fr_num, fr_type, extra, data, len, out_len);
}
