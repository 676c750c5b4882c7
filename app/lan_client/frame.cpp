// Encoding and decoding of requests and of what a gateway sends.
#include "lan_client/frame.h"

#include "byte_cursor.h"
#include "lan_client/frame_types.h"
#include "lan_client/limits.h"

#include <zlib.h>

namespace lan_client {
namespace {

constexpr uint32_t head_word = 0x000055AA;
constexpr uint32_t tail_word = 0x0000AA55;
constexpr std::size_t head_number_type_length_bytes = 16;
constexpr std::size_t crc_and_tail_bytes = 8;
constexpr std::size_t tail_bytes = 4;
constexpr std::size_t reply_words_bytes = 4;    // ret
constexpr std::size_t segment_words_bytes = 12; // ret, count, number

// The format counts the bytes under the CRC in 16 bits, so a long frame is covered only in part.
uint32_t frame_crc(std::string_view covered) {
    const auto *data = reinterpret_cast<const Bytef *>(covered.data());
    return static_cast<uint32_t>(crc32(0, data, static_cast<uInt>(covered.size() % 65536)));
}

// Only the log travels in segments, and only when it was read: its failures are ordinary replies,
// and a handler that replaces the built-in one answers with an empty ordinary reply.
bool has_segment_words(uint32_t type, uint32_t ret, std::size_t length) {
    return type == frame_type::get_log && ret == 0 &&
           length >= segment_words_bytes + crc_and_tail_bytes;
}

// Looked at before anything is copied: in a hostile stream most heads have no tail.
bool has_tail(std::string_view bytes, std::size_t frame_bytes) {
    byte_reader reader(bytes.substr(frame_bytes - tail_bytes, tail_bytes));
    uint32_t tail = 0;
    return reader.read(tail) && tail == tail_word;
}

bool read_body(byte_reader &reader, std::size_t length, frame &decoded) {
    if (!reader.read(decoded.ret)) {
        return false;
    }
    std::size_t words_bytes = reply_words_bytes;
    if (has_segment_words(decoded.type, decoded.ret, length)) {
        uint32_t count = 0;
        uint32_t number = 0;
        if (!reader.read(count) || !reader.read(number)) {
            return false;
        }
        decoded.segment =
            segment_position{static_cast<int32_t>(count), static_cast<int32_t>(number)};
        words_bytes = segment_words_bytes;
    }
    std::string_view payload;
    if (!reader.take(length - words_bytes - crc_and_tail_bytes, payload)) {
        return false;
    }
    decoded.payload = payload;
    return true;
}

bool read_request_body(byte_reader &reader, std::size_t length, frame &decoded) {
    std::string_view payload;
    if (!reader.take(length - crc_and_tail_bytes, payload)) {
        return false;
    }
    decoded.payload = payload;
    return true;
}

using body_reader = bool (*)(byte_reader &, std::size_t, frame &);

decode_result decode(std::string_view bytes, std::size_t least_words_bytes,
                     std::size_t longest_frame_bytes, body_reader read) {
    decode_result result;
    byte_reader reader(bytes);
    uint32_t head = 0;
    uint32_t length = 0;
    if (reader.read(head) && head != head_word) {
        return result;
    }
    if (!reader.read(result.decoded.number) || !reader.read(result.decoded.type) ||
        !reader.read(length)) {
        result.status = decode_status::incomplete;
        return result;
    }
    if (length < least_words_bytes + crc_and_tail_bytes ||
        length > longest_frame_bytes - head_number_type_length_bytes) {
        return result;
    }
    if (reader.remaining() < length) {
        result.status = decode_status::incomplete;
        return result;
    }
    const std::size_t frame_bytes = head_number_type_length_bytes + length;
    uint32_t crc = 0;
    if (!has_tail(bytes, frame_bytes) || !read(reader, length, result.decoded) ||
        !reader.read(crc)) {
        return result;
    }
    result.status = decode_status::whole;
    result.consumed_bytes = frame_bytes;
    result.decoded.crc_matches =
        crc == frame_crc(bytes.substr(0, result.consumed_bytes - crc_and_tail_bytes));
    return result;
}

std::string encode(uint32_t number, uint32_t type, std::string_view words,
                   std::string_view payload) {
    std::string bytes;
    bytes.reserve(words.size() + payload.size() + request_overhead_bytes);
    byte_writer writer(bytes);
    writer.write(head_word);
    writer.write(number);
    writer.write(type);
    writer.write(static_cast<uint32_t>(words.size() + payload.size() + crc_and_tail_bytes));
    writer.append(words);
    writer.append(payload);
    writer.write(frame_crc(bytes));
    writer.write(tail_word);
    return bytes;
}

} // namespace

std::string encode_request(uint32_t number, uint32_t type, std::string_view payload) {
    return encode(number, type, "", payload);
}

std::string encode_reply(const frame &sent) {
    std::string words;
    byte_writer writer(words);
    writer.write(sent.ret);
    if (sent.segment) {
        writer.write(static_cast<uint32_t>(sent.segment->count));
        writer.write(static_cast<uint32_t>(sent.segment->number));
    }
    return encode(sent.number, sent.type, words, sent.payload);
}

decode_result decode_frame(std::string_view bytes) {
    return decode(bytes, reply_words_bytes, max_received_frame_bytes, read_body);
}

decode_result decode_request(std::string_view bytes) {
    return decode(bytes, 0, request_frame_limit_bytes - 1, read_request_body);
}

} // namespace lan_client
