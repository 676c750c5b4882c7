/*
 * The LAN frame: building outgoing frames and cutting incoming ones. All words are big-endian.
 *
 * request (app to gateway)  head fr_num fr_type length = n + 8  payload[n] CRC tail
 * reply (gateway to app)    head fr_num fr_type length = n + 12 ret payload[n] CRC tail
 * segmented (the log)       head fr_num fr_type length = n + 20 ret count seq payload[n] CRC tail
 *
 * length counts every byte behind it; the CRC covers everything before it. Receivers ignore the
 * CRC.
 */
#pragma once

#include <cstdint>

constexpr uint32_t frame_head = 0x000055AA;
constexpr uint32_t frame_tail = 0x0000AA55;
/** Bytes of the smallest request, the one without payload. */
constexpr uint32_t frame_request_min = 24;
/** A request of so many bytes or more is refused; an option of the build, for boards with less
 * memory than the full limit needs. */
extern const uint32_t frame_request_limit;
constexpr uint32_t frame_request_full_limit = 0x200400;
/** Bytes before the payload of a request. */
constexpr uint32_t frame_request_payload_offset = 16;
/** Bytes of CRC and tail; the smallest value of a length word. */
constexpr uint32_t frame_trailer_size = 8;
/** Bytes of a frame that its length word does not count. */
constexpr uint32_t frame_uncounted = 16;

/** First words of a request. */
struct frame_start {
    uint32_t head;    /**< frame_head when a frame starts here */
    uint32_t fr_num;  /**< frame number, the app's choice */
    uint32_t fr_type; /**< frame type */
    uint32_t length;  /**< bytes behind this word, as stated by the app */

    /** Size of the whole frame in bytes; 64 bits, so that it cannot overflow. */
    [[nodiscard]] uint64_t total() const { return uint64_t{length} + frame_uncounted; }
};

/**
 * Reads the first words.
 *
 * @param size  bytes available, at least frame_request_min
 */
[[nodiscard]] frame_start read_frame_start(const uint8_t *bytes, uint32_t size);

/**
 * Reads the last word of a frame.
 *
 * @param total  its size, at least frame_request_min, all of it available
 */
[[nodiscard]] uint32_t read_frame_tail(const uint8_t *frame, uint32_t total);

/**
 * Builds a reply-form frame.
 *
 * @param data          len payload bytes; may be null when len is 0
 * @param[out] out_len  size of the frame
 * @return the frame, a block of Malloc for the caller to Free; null when there is no memory
 *     (logged)
 */
[[nodiscard]] uint8_t *__mlp_gw_send_da(uint32_t fr_num, uint32_t fr_type, uint32_t ret,
                                        const uint8_t *data, uint32_t len, uint32_t *out_len);

/**
 * The same in segmented form.
 *
 * @param count  segments of the transfer
 * @param seq    this segment, from 1
 */
[[nodiscard]] uint8_t *__mlp_gw_send_large_da(uint32_t fr_num, uint32_t fr_type, uint32_t ret,
                                              const uint8_t *data, uint32_t len, int32_t count,
                                              int32_t seq, uint32_t *out_len);
