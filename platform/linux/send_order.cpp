/* Taking turns on a socket: a flag under a mutex, and an event for those who have to wait. */
#include "send_order.h"

#include <sys/eventfd.h>
#include <unistd.h>

namespace linux_port {

send_order::~send_order() {
    if (turn_event_ >= 0) {
        close(turn_event_);
    }
}

void send_order::signal() {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(turn_event_, &one, sizeof one);
}

send_turn send_order::take_turn(int fd) {
    std::unique_lock lock(mutex_);
    if (ended_) {
        return send_turn::ended;
    }
    if (!taken_ && waiting_ == 0) {
        taken_ = true;
        return send_turn::taken;
    }
    if (turn_event_ < 0) {
        turn_event_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (turn_event_ < 0) {
            return send_turn::failed;
        }
    }
    ++waiting_;
    for (;;) {
        lock.unlock();
        pollfd watched[] = {{fd, 0, 0}, {turn_event_, POLLIN, 0}, {}};
        const wait_end end = wait_for(watched, no_deadline);
        lock.lock();
        send_turn turn{};
        if (ended_) {
            turn = send_turn::ended;
        } else if (end == wait_end::stopped) {
            turn = send_turn::stopped;
        } else if (end == wait_end::failed) {
            turn = send_turn::failed;
        } else if (watched[0].revents != 0) {
            turn = send_turn::hung_up;
        } else {
            // Whoever has the turn signals again when giving it back, so the event may be emptied.
            uint64_t ignored = 0;
            [[maybe_unused]] const ssize_t count = read(turn_event_, &ignored, sizeof ignored);
            if (!taken_) {
                taken_ = true;
                turn = send_turn::taken;
            } else {
                continue;
            }
        }
        --waiting_;
        return turn;
    }
}

void send_order::end_turn(bool broken) {
    const std::lock_guard lock(mutex_);
    taken_ = false;
    ended_ = ended_ || broken;
    if (waiting_ > 0) {
        signal();
    }
}

void send_order::end_sending() {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    if (waiting_ > 0) {
        signal();
    }
}

} // namespace linux_port
