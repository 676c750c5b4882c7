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
bool has_segment_words(uint32_t type, uint32_t ret, std::size_t body_bytes) {
    return type == frame_type::get_log && ret == 0 && body_bytes >= segment_words_bytes;
}

// Looked at before anything is copied: in a hostile stream most heads have no tail.
bool has_tail(std::string_view frame_bytes) {
    return byte_reader(frame_bytes.substr(frame_bytes.size() - tail_bytes)).word() == tail_word;
}

// Reads what stands between the length and the CRC, which is there in full.
using body_reader = void (*)(byte_reader &, std::size_t body_bytes, frame &);

void read_body(byte_reader &reader, std::size_t body_bytes, frame &decoded) {
    decoded.ret = reader.word();
    std::size_t words_bytes = reply_words_bytes;
    if (has_segment_words(decoded.type, decoded.ret, body_bytes)) {
        const auto count = static_cast<int32_t>(reader.word());
        const auto number = static_cast<int32_t>(reader.word());
        decoded.segment = segment_position{count, number};
        words_bytes = segment_words_bytes;
    }
    decoded.payload = reader.take(body_bytes - words_bytes);
}

void read_request_body(byte_reader &reader, std::size_t body_bytes, frame &decoded) {
    decoded.payload = reader.take(body_bytes);
}

decode_result decode(std::string_view bytes, std::size_t least_words_bytes,
                     std::size_t longest_frame_bytes, body_reader read) {
    decode_result result;
    byte_reader reader(bytes);
    const uint32_t head = reader.word();
    if (head != head_word && !reader.has_failed()) {
        return result;
    }
    result.decoded.number = reader.word();
    result.decoded.type = reader.word();
    const uint32_t length = reader.word();
    if (reader.has_failed()) {
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
    const std::string_view whole = bytes.substr(0, head_number_type_length_bytes + length);
    if (!has_tail(whole)) {
        return result;
    }
    read(reader, length - crc_and_tail_bytes, result.decoded);
    result.status = decode_status::whole;
    result.consumed_bytes = whole.size();
    result.decoded.crc_matches =
        reader.word() == frame_crc(whole.substr(0, whole.size() - crc_and_tail_bytes));
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
