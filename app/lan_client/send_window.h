// Which frames may follow one another on the wire without the gateway losing one.
#pragma once

#include <cstddef>
#include <cstdint>

namespace lan_client {

/**
 * A gateway reads 512 bytes at a time and loses a frame of which such a read holds less than 24
 * bytes. A read starts where an earlier frame starts that the gateway has not taken yet, so a frame
 * must not start in the last 23 bytes of the 512 that follow any such frame's start.
 */
inline constexpr std::size_t gateway_read_bytes = 512;
inline constexpr std::size_t gateway_frame_start_bytes = 24;

/**
 * Whether a frame may start at stream position `start` while the one at `earlier` may be unread.
 */
[[nodiscard]] constexpr bool may_follow(uint64_t earlier, uint64_t start) {
    const uint64_t distance = start - earlier;
    return distance <= gateway_read_bytes - gateway_frame_start_bytes ||
           distance >= gateway_read_bytes;
}

} // namespace lan_client
