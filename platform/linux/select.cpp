// Select over poll(2): any descriptor number fits, and no unknown one is ever waited for.
#include "descriptor_table.h"
#include "wait.h"

#include <array>

using namespace linux_port;

namespace {

constexpr size_t set_count = 3;
constexpr size_t most_watched = set_count * KELO_FD_SET_CAPACITY;

/** What counts as ready. Errors and hang-ups, which the system always reports, belong to whichever
 * set the socket is in. */
constexpr short read_ready = POLLIN | POLLHUP | POLLERR;
constexpr short write_ready = POLLOUT | POLLHUP | POLLERR;
constexpr short exception_ready = POLLPRI;
constexpr short hung_up = POLLHUP | POLLERR;

/** The sockets of one select. Each stands once a set, and with it a second time for its broadcasts.
 */
struct watch_list {
    size_t count = 0;
    std::array<int32_t, most_watched> descriptors;
    std::array<socket_ref, most_watched> sockets;
    std::array<pollfd, 2 * most_watched + 1> polled;

    [[nodiscard]] bool add(const kelo_fd_set_t *set, int32_t descriptor_count, short events);
    [[nodiscard]] bool any_closed() const;
    [[nodiscard]] short events_of(int32_t descriptor) const;
    std::span<pollfd> all_polled() { return std::span(polled).first(2 * count + 1); }
};

bool watch_list::add(const kelo_fd_set_t *set, int32_t descriptor_count, short events) {
    for (uint32_t i = 0; set != nullptr && i < set->count && i < KELO_FD_SET_CAPACITY; i++) {
        if (set->descriptors[i] >= descriptor_count) {
            continue;
        }
        socket_ref socket = find_socket(set->descriptors[i]);
        if (socket == nullptr) {
            return false;
        }
        const int broadcast_fd = (events & POLLIN) != 0 ? socket->broadcast_fd.load() : -1;
        polled[2 * count] = {socket->fd, events, 0};
        polled[2 * count + 1] = {broadcast_fd, events, 0};
        descriptors[count] = set->descriptors[i];
        sockets[count++] = std::move(socket);
    }
    return true;
}

bool watch_list::any_closed() const {
    for (size_t i = 0; i < count; i++) {
        if (sockets[i]->closed) {
            return true;
        }
    }
    return false;
}

short watch_list::events_of(int32_t descriptor) const {
    int events = 0;
    for (size_t i = 0; i < count; i++) {
        if (descriptors[i] == descriptor) {
            events |= polled[2 * i].revents | polled[2 * i + 1].revents;
        }
    }
    return static_cast<short>(events);
}

/** Leaves the ready members in a set; how many they are. */
int32_t keep_ready(const watch_list &watched, kelo_fd_set_t *set, short ready_events) {
    if (set == nullptr) {
        return 0;
    }
    kelo_fd_set_t ready;
    kelo_hal_net_fd_zero(&ready);
    for (uint32_t i = 0; i < set->count && i < KELO_FD_SET_CAPACITY; i++) {
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
    if (!watched.add(read_set, descriptor_count, POLLIN) ||
        !watched.add(write_set, descriptor_count, POLLOUT) ||
        !watched.add(exception_set, descriptor_count, POLLPRI)) {
        return -1;
    }
    const auto deadline = monotonic_clock::now() + std::chrono::milliseconds(milliseconds);
    const wait_end end = wait_for(watched.all_polled(), deadline);
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
    // A hang-up of a socket that stands in the exception set alone has no other place to be
    // reported.
    return ready + keep_ready(watched, exception_set,
                              ready > 0 ? exception_ready : exception_ready | hung_up);
}
