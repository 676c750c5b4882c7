// Whose turn it is to send on a socket.
#pragma once

#include "wait.h"

#include <cstdint>
#include <mutex>

namespace linux_port {

/** Longest that a send waits while the peer takes nothing. */
constexpr std::chrono::milliseconds send_patience{2000};

/** How asking for one's turn ended. */
enum class send_turn { taken, ended, hung_up, timed_out, stopped, failed };

/** Lets the sends to one socket follow each other, whole buffer by whole buffer. */
class send_order {
  public:
    send_order() = default;
    ~send_order();
    send_order(const send_order &) = delete;
    send_order &operator=(const send_order &) = delete;

    /**
     * Waits for the turn: until send_patience after `start` or after the last progress of whoever
     * has it, or until sending has ended, the connection hangs up or the thread is told to stop.
     */
    send_turn take_turn(int fd, monotonic_clock::time_point start);
    /** Tells the waiting that the one whose turn it is gets on. */
    void note_progress(monotonic_clock::time_point now);
    /**
     * Gives the turn back.
     *
     * @param broken  a buffer went out in part: nobody may send any more
     */
    void end_turn(bool broken);
    /** Ends sending for good; the waiting fail. */
    void end_sending();

  private:
    void signal();

    std::mutex mutex_;
    bool taken_ = false;
    bool ended_ = false;
    uint32_t waiting_ = 0;
    monotonic_clock::time_point last_progress_{};
    int turn_event_ =
        -1; /**< eventfd, made for the first that has to wait; readable when the turn may be free */
};

} // namespace linux_port
