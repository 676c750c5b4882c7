/* Select over poll(2): any descriptor number fits, and no unknown one is ever waited for. */
#include "descriptor_table.h"
#include "wait.h"

#include <algorithm>
#include <array>
#include <span>

using namespace linux_port;

namespace {

constexpr size_t set_count = 3;
constexpr size_t most_watched = set_count * KELO_FD_SET_CAPACITY;

/** Events that count as ready. The system always reports errors and hang-ups; they count for every
 * set that the socket is in. */
constexpr short read_ready = POLLIN | POLLHUP | POLLERR;
constexpr short write_ready = POLLOUT | POLLHUP | POLLERR;
constexpr short exception_ready = POLLPRI;
constexpr short hung_up = POLLHUP | POLLERR;

/**
 * The sockets of one select. Each is polled once, whatever the sets it is in, and once more for its
 * broadcasts: the system refuses to poll more entries than the process may have descriptors.
 */
class watch_list {
  public:
    [[nodiscard]] bool add(const socket_finder &sockets, const kelo_fd_set_t *set,
                           int32_t descriptor_count, short events);
    /** @param now  the time at the call */
    [[nodiscard]] wait_end wait(monotonic_clock::time_point now,
                                monotonic_clock::time_point deadline);
    [[nodiscard]] bool any_closed() const;
    /** Whether one of the events has occurred on any socket. */
    [[nodiscard]] bool any_ready(short events) const { return (all_ready_ & events) != 0; }
    [[nodiscard]] short events_of(int32_t descriptor);

  private:
    struct watched_socket {
        int32_t descriptor;
        socket_ref socket;
        short events; /**< events to wait for */
        short ready;  /**< events that have occurred */
    };

    /** Place of a descriptor; count_ when it is not in the list. */
    [[nodiscard]] size_t index_of(int32_t descriptor);
    [[nodiscard]] monotonic_clock::time_point
    poll(monotonic_clock::time_point now, monotonic_clock::time_point deadline, wait_end &end);

    size_t count_ = 0;
    size_t next_ = 0; /**< place behind the one found last: all sets have the same order */
    short all_ready_ = 0;
    std::array<watched_socket, most_watched> sockets_;
};

size_t watch_list::index_of(int32_t descriptor) {
    for (size_t looked_at = 0; looked_at < count_; ++looked_at) {
        const size_t index = next_ < count_ ? next_ : 0;
        next_ = index + 1;
        if (sockets_[index].descriptor == descriptor) {
            return index;
        }
    }
    return count_;
}

bool watch_list::add(const socket_finder &sockets, const kelo_fd_set_t *set,
                     int32_t descriptor_count, short events) {
    const bool is_first_set = count_ == 0; // the members of one set differ
    for (uint32_t i = 0; set != nullptr && i < set->count && i < KELO_FD_SET_CAPACITY; ++i) {
        const int32_t descriptor = set->descriptors[i];
        if (descriptor >= descriptor_count) {
            continue;
        }
        if (const size_t known = is_first_set ? count_ : index_of(descriptor); known < count_) {
            sockets_[known].events = static_cast<short>(sockets_[known].events | events);
            continue;
        }
        socket_ref socket = sockets.find(descriptor);
        if (socket == nullptr) {
            return false;
        }
        sockets_[count_++] = {descriptor, std::move(socket), events, 0};
    }
    return true;
}

/**
 * Polls once, without the sockets that must not accept just now.
 *
 * @param[out] end  how it ended
 * @return when the first of these may accept again; no_deadline when there are none
 */
monotonic_clock::time_point watch_list::poll(monotonic_clock::time_point now,
                                             monotonic_clock::time_point deadline, wait_end &end) {
    std::array<pollfd, 2 * most_watched + 1> polled;
    std::array<watched_socket *, 2 * most_watched> owners;
    size_t polled_count = 0;
    auto first_pause_end = no_deadline;
    for (watched_socket &watched : std::span(sockets_).first(count_)) {
        const auto pause_end = watched.socket->accept_pause_end.load();
        const bool paused = pause_end > now;
        const int events = paused ? watched.events & ~POLLIN : watched.events;
        first_pause_end = paused ? std::min(first_pause_end, pause_end) : first_pause_end;
        watched.ready = 0;
        owners[polled_count] = &watched;
        polled[polled_count++] = {watched.socket->fd, static_cast<short>(events), 0};
        const int broadcast_fd = watched.socket->broadcast_fd;
        if ((events & POLLIN) != 0 && broadcast_fd >= 0) {
            owners[polled_count] = &watched;
            polled[polled_count++] = {broadcast_fd, POLLIN, 0};
        }
    }
    end = wait_for(std::span(polled).first(polled_count + 1), std::min(deadline, first_pause_end),
                   now);
    all_ready_ = 0;
    for (size_t i = 0; i < polled_count; ++i) {
        owners[i]->ready = static_cast<short>(owners[i]->ready | polled[i].revents);
        all_ready_ = static_cast<short>(all_ready_ | polled[i].revents);
    }
    return first_pause_end;
}

wait_end watch_list::wait(monotonic_clock::time_point now, monotonic_clock::time_point deadline) {
    for (;;) {
        wait_end end{};
        const auto pause_end = poll(now, deadline, end);
        if (end != wait_end::timed_out || deadline <= pause_end) {
            return end;
        }
        now = monotonic_clock::now();
    }
}

bool watch_list::any_closed() const {
    return std::ranges::any_of(std::span(sockets_).first(count_),
                               [](const watched_socket &one) { return one.socket->closed.load(); });
}

short watch_list::events_of(int32_t descriptor) {
    const size_t index = index_of(descriptor);
    return index < count_ ? sockets_[index].ready : short{0};
}

/** Reduces a set to its ready members; returns their number. */
int32_t keep_ready(watch_list &watched, kelo_fd_set_t *set, short ready_events) {
    if (set == nullptr) {
        return 0;
    }
    kelo_fd_set_t ready;
    kelo_hal_net_fd_zero(&ready);
    const uint32_t count = watched.any_ready(ready_events) ? set->count : 0;
    for (uint32_t i = 0; i < count && i < KELO_FD_SET_CAPACITY; ++i) {
        if ((watched.events_of(set->descriptors[i]) & ready_events) != 0) {
            kelo_hal_net_fd_set(set->descriptors[i], &ready);
        }
    }
    *set = ready;
    return static_cast<int32_t>(ready.count);
}

} // namespace

int32_t kelo_hal_net_select(int32_t descriptor_count, kelo_fd_set_t *read_set,
                            kelo_fd_set_t *write_set, kelo_fd_set_t *exception_set,
                            uint32_t milliseconds) {
    watch_list watched;
    {
        const socket_finder sockets;
        if (!watched.add(sockets, read_set, descriptor_count, POLLIN) ||
            !watched.add(sockets, write_set, descriptor_count, POLLOUT) ||
            !watched.add(sockets, exception_set, descriptor_count, POLLPRI)) {
            return -1;
        }
    }
    const auto now = monotonic_clock::now();
    const wait_end end = watched.wait(now, now + std::chrono::milliseconds(milliseconds));
    if (end == wait_end::stopped) {
        return fail(KELO_ERR_STOPPED);
    }
    if (end == wait_end::failed) {
        return fail_with_errno();
    }
    if (watched.any_closed()) {
        return fail(KELO_ERR_BAD_SOCKET);
    }
    const int32_t ready =
        keep_ready(watched, read_set, read_ready) + keep_ready(watched, write_set, write_ready);
    // A hang-up of a socket that is in the exception set only can't be reported elsewhere.
    return ready + keep_ready(watched, exception_set,
                              ready > 0 ? exception_ready : exception_ready | hung_up);
}
