#include "console/event_history.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace console {
namespace {

constexpr std::size_t events_max = 10'000;
constexpr std::size_t history_bytes_max = 8 << 20;
/** What waits is written within 50 ms as a rule. */
constexpr std::size_t intake_bytes_max = 8 << 20;
/** Of one message. */
constexpr std::size_t batch_events_max = 500;
constexpr std::size_t batch_bytes_max = 256 << 10;

} // namespace

bool event_intake::add(std::string text) {
    const std::lock_guard guard(mutex_);
    const uint64_t id = next_id_++;
    if (waiting_.size() == events_max || bytes_ + text.size() > intake_bytes_max) {
        return false;
    }
    bytes_ += text.size();
    waiting_.push_back({id, std::move(text)});
    return waiting_.size() == 1;
}

taken_events event_intake::take() {
    const std::lock_guard guard(mutex_);
    bytes_ = 0;
    return {std::exchange(waiting_, {}), next_id_};
}

void event_history::add(taken_events taken) {
    next_id_ = taken.next_id;
    for (numbered_event &each : taken.events) {
        add(std::move(each));
    }
}

void event_history::add(numbered_event event) {
    event.text.replace(0, 1, fmt::format(R"({{"id":{},)", event.id));
    bytes_ += event.text.size();
    entries_.push_back(std::move(event));
    while (entries_.size() > events_max || (bytes_ > history_bytes_max && entries_.size() > 1)) {
        bytes_ -= entries_.front().text.size();
        entries_.pop_front();
    }
}

event_cursor event_history::newest(std::size_t count) const {
    if (entries_.empty()) {
        return {};
    }
    return {.next_id = entries_[entries_.size() - std::min(count, entries_.size())].id};
}

std::string event_history::next(event_cursor &cursor) const {
    auto each = std::lower_bound(entries_.begin(), entries_.end(), cursor.next_id,
                                 [](const numbered_event &of, uint64_t id) { return of.id < id; });
    std::string batch;
    std::size_t count = 0;
    for (; each != entries_.end() && count < batch_events_max; ++each, ++count) {
        if (count != 0 && batch.size() + each->text.size() > batch_bytes_max) {
            break;
        }
        cursor.dropped += each->id - cursor.next_id;
        cursor.next_id = each->id + 1;
        batch += (batch.empty() ? "" : ",") + each->text;
    }
    if (each == entries_.end()) { // the last ones may have been counted only
        cursor.dropped += next_id_ - cursor.next_id;
        cursor.next_id = next_id_;
    }
    return batch;
}

} // namespace console
