// Event loop and timers over asio.
#include "lan_client/event_loop.h"

#include <cstdint>
#include <utility>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>

#include <csignal>

namespace lan_client {

struct event_loop::state {
    asio::io_context context{1};
    // Without it a loop with nothing under way would count as stopped.
    asio::executor_work_guard<asio::io_context::executor_type> work{context.get_executor()};
    asio::signal_set signals{context};
    std::function<void()> interrupted;

    void wait_for_signal() {
        signals.async_wait([this](const asio::error_code &failed, int) {
            if (!failed) {
                wait_for_signal(); // first, since the handler may throw
                interrupted();
            }
        });
    }
};

event_loop::event_loop() : state_(std::make_unique<state>()) {}
event_loop::~event_loop() = default;

bool event_loop::run_until(const std::function<bool()> &done, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (state_->context.run_one_until(deadline) == 0) {
            return done();
        }
    }
    return true;
}

void event_loop::post(std::function<void()> work) {
    asio::post(state_->context, std::move(work));
}

void event_loop::on_interrupt(std::function<void()> handler) {
    const bool first = !state_->interrupted;
    state_->interrupted = std::move(handler);
    if (first) {
        state_->signals.add(SIGINT);
        state_->signals.add(SIGTERM);
        state_->wait_for_signal();
    }
}

asio::io_context &event_loop::context() {
    return state_->context;
}

struct timer::state {
    explicit state(event_loop &loop) : waiting(loop.context()) {}

    asio::steady_timer waiting;
    uint64_t round = 0; // a callback of an earlier round is stale
};

timer::timer(event_loop &loop) : state_(std::make_shared<state>(loop)) {}
timer::~timer() {
    cancel();
}

void timer::start(std::chrono::milliseconds delay, std::function<void()> expired) {
    const uint64_t round = ++state_->round;
    state_->waiting.expires_after(delay);
    state_->waiting.async_wait([state = std::weak_ptr(state_), round,
                                expired = std::move(expired)](const asio::error_code &) {
        const auto alive = state.lock();
        if (alive && alive->round == round) {
            expired();
        }
    });
}

void timer::cancel() {
    ++state_->round;
    state_->waiting.cancel();
}

} // namespace lan_client
