// Stands in for event_loop.cpp of lan_client, which the linker then leaves out. One loop exists at
// a time; std::chrono::steady_clock shows its time.
#include "support/virtual_loop.h"

#include "lan_client/event_loop.h"
#include "support/require.h"

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <utility>

namespace {

using clock_type = std::chrono::steady_clock;

struct timeline {
    clock_type::time_point now{std::chrono::hours(1)};
    // In order; what is due at the same time stays in the order in which it was added.
    std::multimap<clock_type::time_point, std::function<void()>> due;
    bool exists = false;
};

timeline &the_timeline() {
    static timeline only;
    return only;
}

} // namespace

// In the place of the library's.
std::chrono::steady_clock::time_point std::chrono::_V2::steady_clock::now() noexcept {
    return the_timeline().now;
}

// In the place of the system's chance, so that an input does the same each time.
void std::random_device::_M_init(const std::string &) {}
void std::random_device::_M_fini() {}
std::random_device::result_type std::random_device::_M_getval() {
    return 1;
}

namespace fuzz {

void call_later(std::chrono::milliseconds delay, std::function<void()> work) {
    the_timeline().due.emplace(the_timeline().now + delay, std::move(work));
}

} // namespace fuzz

namespace lan_client {

struct event_loop::state {};

event_loop::event_loop() {
    fuzz::require(!the_timeline().exists, "one loop at a time");
    the_timeline() = {};
    the_timeline().exists = true;
}

event_loop::~event_loop() {
    the_timeline() = {};
}

bool event_loop::run_until(const std::function<bool()> &done, std::chrono::milliseconds limit) {
    timeline &time = the_timeline();
    const auto deadline = time.now + limit;
    while (!done()) {
        if (time.due.empty() || time.due.begin()->first > deadline) {
            time.now = std::max(time.now, deadline);
            return done();
        }
        const auto next = time.due.extract(time.due.begin());
        time.now = std::max(time.now, next.key());
        next.mapped()();
    }
    return true;
}

void event_loop::post(std::function<void()> work) {
    fuzz::call_later(std::chrono::milliseconds(0), std::move(work));
}

void event_loop::on_interrupt(std::function<void()>) {}

struct timer::state {
    uint64_t round = 0; // a callback of an earlier round is stale
};

timer::timer(event_loop &) : state_(std::make_shared<state>()) {}

timer::~timer() {
    cancel();
}

void timer::start(std::chrono::milliseconds delay, std::function<void()> expired) {
    const uint64_t round = ++state_->round;
    fuzz::call_later(delay, [state = std::weak_ptr(state_), round, expired = std::move(expired)] {
        const auto alive = state.lock();
        if (alive && alive->round == round) {
            expired();
        }
    });
}

void timer::cancel() {
    ++state_->round;
}

} // namespace lan_client
