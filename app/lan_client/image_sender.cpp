// Pieces of an image, one after the other.
#include "lan_client/image_sender.h"

#include "byte_cursor.h"
#include "lan_client/frame.h"
#include "lan_client/frame_types.h"

#include <algorithm>
#include <utility>

namespace lan_client {
namespace {

// A gateway requests one piece at a time; a service that restarts may repeat a request.
constexpr std::size_t most_open_requests = 8;

constexpr std::size_t offset_bytes = 4;
// The client leaves room for the padding of an encrypted payload.
constexpr uint64_t most_piece_bytes = max_request_payload_bytes - key_bytes - offset_bytes;

} // namespace

image_sender::image_sender(client &to, uint64_t image_bytes, std::vector<std::string> ids,
                           std::chrono::milliseconds piece_timeout, source read,
                           std::function<void()> on_change)
    : to_(to), pieces_(image_bytes, std::move(ids)), piece_timeout_(piece_timeout),
      read_(std::move(read)), on_change_(std::move(on_change)) {}

bool image_sender::take(const report &told) {
    if (told.type != frame_type::download_firmware || !told.readable) {
        return false;
    }
    if (complete_ || !fault_.empty()) {
        return true;
    }
    if (requests_.size() == most_open_requests) {
        fault_ = "asks for many pieces without taking them";
        on_change_();
        return true;
    }
    requests_.push_back(told.payload);
    answer_next();
    return true;
}

void image_sender::answer_next() {
    if (sending_ || requests_.empty() || complete_ || !fault_.empty()) {
        return;
    }
    piece_request wanted;
    fault_ = pieces_.next(requests_.front(), wanted);
    requests_.pop_front();
    if (fault_.empty()) {
        complete_ = wanted.bytes == 0;
        taken_bytes_ = wanted.offset;
        if (!complete_) {
            send(wanted);
        }
    }
    on_change_();
}

void image_sender::send(const piece_request &wanted) {
    const auto count = static_cast<std::size_t>(std::min(wanted.bytes, most_piece_bytes));
    std::string payload;
    payload.reserve(offset_bytes + count);
    byte_writer(payload).write(static_cast<uint32_t>(wanted.offset));
    if (!read_(payload, wanted.offset, count)) {
        fault_ = "can't have a piece of the image: it can't be read any more";
        return;
    }
    pieces_.sent(wanted, count);
    sending_ = true;
    to_.tell({.type = frame_type::download_firmware,
              .payload = std::move(payload),
              .timeout = piece_timeout_,
              .on_sent = [self = std::weak_ptr(self_)](std::size_t sent, std::size_t whole) {
                  if (const auto alive = self.lock()) {
                      (**alive).note_sent(sent == whole);
                  }
              }});
}

void image_sender::note_sent(bool whole) {
    last_progress_ = std::chrono::steady_clock::now();
    if (whole) {
        sending_ = false;
        answer_next();
    }
}

} // namespace lan_client
