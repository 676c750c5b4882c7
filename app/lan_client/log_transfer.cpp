// The pace of a log.
#include "lan_client/log_transfer.h"

#include "lan_client/frame_types.h"

#include <utility>

namespace lan_client {
namespace {

constexpr uint64_t segment_bytes = 1024;
// A gateway sends a segment every 0.3 s.
constexpr std::chrono::seconds segment_time{2};

} // namespace

log_transfer::log_transfer(client &from, std::chrono::milliseconds answer_time,
                           progress on_progress)
    : from_(from), answer_time_(answer_time), on_progress_(std::move(on_progress)) {}

request log_transfer::wanted() {
    began_ = std::chrono::steady_clock::now();
    return {.type = frame_type::get_log, .on_segment = [this](segment_position at) { take(at); }};
}

// Each segment renews the time-out, so that a gateway could keep an app waiting for days.
void log_transfer::take(segment_position at) {
    last_ = at;
    endless_ = std::chrono::steady_clock::now() - began_ > at.number * segment_time + answer_time_;
    if (endless_) {
        return from_.close();
    }
    if (on_progress_) {
        on_progress_(static_cast<uint64_t>(at.number) * segment_bytes,
                     static_cast<uint64_t>(at.count) * segment_bytes);
    }
}

} // namespace lan_client
