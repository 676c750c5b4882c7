// Splits the byte stream of a connection into frames.
#pragma once

#include "lan_client/frame.h"
#include "lan_client/limits.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace lan_client {

/**
 * Holds at most one unfinished frame of max_received_frame_bytes plus what was fed since. Its work
 * is in proportion to the bytes fed, whatever they are.
 */
class stream_cutter {
  public:
    /** Adds bytes to the end of the stream. */
    void feed(std::string_view bytes);

    /**
     * The next whole frame, or nothing until more bytes have been fed. Bytes that belong to no
     * frame are skipped up to the next head.
     */
    [[nodiscard]] std::optional<frame> next();

    /** Bytes skipped so far because they belonged to no frame. */
    [[nodiscard]] std::size_t skipped_bytes() const { return skipped_bytes_; }

  private:
    std::string buffer_;
    std::size_t start_ = 0; // first byte of the buffer that is not cut yet
    std::size_t skipped_bytes_ = 0;
};

} // namespace lan_client
