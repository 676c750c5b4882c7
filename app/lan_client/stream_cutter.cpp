// Incremental cutting of a byte stream into frames.
#include "lan_client/stream_cutter.h"

#include <algorithm>
#include <utility>

namespace lan_client {

void stream_cutter::feed(std::string_view bytes) {
    if (start_ == buffer_.size()) {
        buffer_.clear();
        start_ = 0;
    } else if (start_ > buffer_.size() / 2) {
        // Only once most of the buffer is used up, so that the moves stay cheap on the whole.
        buffer_.erase(0, start_);
        start_ = 0;
    }
    buffer_.append(bytes);
}

std::optional<frame> stream_cutter::next() {
    while (start_ < buffer_.size()) {
        decode_result result = decode_frame(std::string_view(buffer_).substr(start_));
        if (result.status == decode_status::incomplete) {
            return std::nullopt;
        }
        if (result.status == decode_status::whole) {
            start_ += result.consumed_bytes;
            return std::move(result.decoded);
        }
        // A head starts with a zero byte, so everything up to the next one is noise.
        const std::size_t candidate = std::min(buffer_.find('\0', start_ + 1), buffer_.size());
        skipped_bytes_ += candidate - start_;
        start_ = candidate;
    }
    return std::nullopt;
}

} // namespace lan_client
