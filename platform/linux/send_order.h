/* Whose turn it is to send on a socket. */
#pragma once

#include "wait.h"

#include <cstdint>
#include <mutex>

namespace linux_port {

/** How asking for one's turn ended. */
enum class send_turn { taken, ended, hung_up, stopped, failed };

/** Lets the sends to one socket follow each other, whole buffer by whole buffer. */
class send_order {
  public:
    send_order() = default;
    ~send_order();
    send_order(const send_order &) = delete;
    send_order &operator=(const send_order &) = delete;

    /**
     * Waits for the turn, or until sending has ended, the connection hangs up or the thread is told
     * to stop. It needs no deadline: each turn is given back in bounded time.
     */
    send_turn take_turn(int fd);
    /**
     * Gives the turn back.
     *
     * @param broken  a buffer went out in part: later sends fail
     */
    void end_turn(bool broken);
    /** Ends sending for good; waiting threads fail. */
    void end_sending();

  private:
    void signal();

    std::mutex mutex_;
    bool taken_ = false;
    bool ended_ = false;
    uint32_t waiting_ = 0;
    int turn_event_ = -1; /**< eventfd, created for the first thread that has to wait; readable when
                             the turn may be free */
};

} // namespace linux_port
