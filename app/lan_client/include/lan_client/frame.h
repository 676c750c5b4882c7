// The LAN frame: an app encodes requests and decodes what a gateway sends; a recorder needs both
// the other way round, too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace lan_client {

/** A gateway refuses a request whose whole frame has this many bytes or more. */
inline constexpr std::size_t request_frame_limit_bytes = 0x200400;

/** Head, number, type and length before the payload of a request, CRC and tail behind it. */
inline constexpr std::size_t request_overhead_bytes = 24;

/** Longest payload of a request that a gateway accepts, in bytes as sent. */
inline constexpr std::size_t max_request_payload_bytes =
    request_frame_limit_bytes - 1 - request_overhead_bytes;

/** Place of a frame in a transfer that the gateway cut into segments. */
struct segment_position {
    int32_t count;  /**< segments of the whole transfer */
    int32_t number; /**< this segment, 1 for the first */
};

/** A frame that a gateway sent: a reply, a report or one segment of a transfer. */
struct frame {
    uint32_t number = 0; /**< of the request that it answers, 0 when it answers none */
    uint32_t type = 0;
    uint32_t ret = 0; /**< 0 success, 1 failure */
    std::optional<segment_position> segment;
    std::string payload;     /**< as received, usually encrypted */
    bool crc_matches = true; /**< false: the bytes or the sender's idea of the CRC are wrong */
};

enum class decode_status {
    whole,      /**< one frame was decoded */
    incomplete, /**< it may become a frame with more bytes */
    no_frame,   /**< no frame starts here */
};

struct decode_result {
    decode_status status = decode_status::no_frame;
    std::size_t consumed_bytes = 0; /**< size of the frame when it is whole */
    frame decoded;
};

/** Encodes one request frame. The payload must not be longer than max_request_payload_bytes. */
[[nodiscard]] std::string encode_request(uint32_t number, uint32_t type, std::string_view payload);

/** Decodes the frame that starts at the first byte of `bytes`, if one does. */
[[nodiscard]] decode_result decode_frame(std::string_view bytes);

// The gateway's half, for those who look at both directions of a connection.

/** Encodes a frame as a gateway sends it; its CRC is right whatever `crc_matches` says. */
[[nodiscard]] std::string encode_reply(const frame &sent);

/** Decodes the request that starts at the first byte of `bytes`, if one does; it has no `ret`. */
[[nodiscard]] decode_result decode_request(std::string_view bytes);

} // namespace lan_client
