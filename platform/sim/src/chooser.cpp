/* The three ways to decide, and the random numbers. */
#include "chooser.h"

#include <algorithm>

namespace sim {

uint64_t random_source::next() {
    state_ += 0x9E3779B97F4A7C15U;
    uint64_t mixed = state_;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9U;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBU;
    return mixed ^ (mixed >> 31);
}

bool random_source::chance(double odds) {
    if (odds <= 0.0) {
        return false;
    }
    if (odds >= 1.0) {
        return true;
    }
    return static_cast<double>(next() >> 11) * 0x1.0p-53 < odds;
}

seeded_chooser::seeded_chooser(uint64_t seed) : random_(seed) {
    constexpr uint64_t stay_choices[] = {0, 32, 56, 63};
    stay_of_64_ = stay_choices[random_.below(std::size(stay_choices))];
}

size_t seeded_chooser::choose(size_t count, bool preempted) {
    if (preempted && random_.below(64) < stay_of_64_) {
        return 0;
    }
    return static_cast<size_t>(random_.below(count));
}

size_t recorded_chooser::choose(size_t count, bool) {
    if (next_ >= decisions_.size()) {
        return 0;
    }
    const char digit = decisions_[next_++];
    const int value = digit >= 'a' ? digit - 'a' + 10 : digit - '0';
    return std::clamp<size_t>(static_cast<size_t>(std::max(value, 0)), 0, count - 1);
}

void schedule_search::begin_run() {
    depth_ = 0;
    preemptions_ = 0;
    searches_ = whole_story_;
}

size_t schedule_search::choose(size_t count, bool preempted) {
    if (!searches_) {
        return 0;
    }
    const size_t open = preempted && preemptions_ >= preemptions_max_ ? 1 : count;
    if (depth_ == path_.size()) {
        path_.push_back({0, static_cast<uint8_t>(open)});
    }
    const size_t chosen = path_[depth_++].chosen;
    if (preempted && chosen != 0) {
        ++preemptions_;
    }
    return chosen;
}

bool schedule_search::next_schedule() {
    path_.resize(std::min(depth_, path_.size()));
    while (!path_.empty() && path_.back().chosen + 1 >= path_.back().count) {
        path_.pop_back();
    }
    if (path_.empty()) {
        return false;
    }
    ++path_.back().chosen;
    return true;
}

char decision_digit(size_t index) {
    return "0123456789abcdefghijklmnopqrstuvwxyz"[index];
}

} // namespace sim
