// Answers control requests on the Unix socket in the data directory.
#pragma once

#include "platform/thread.h"

#include <functional>
#include <string>
#include <string_view>

namespace gatewayd {

/** A thread that serves the control socket. */
class control_server {
  public:
    /** Answers one request line with one reply line. Called on the server's thread. */
    using handler = std::function<std::string(std::string_view line)>;

    /**
     * Takes over the socket in the working directory, which the caller has locked, and begins to
     * serve.
     *
     * @throws std::runtime_error
     */
    explicit control_server(handler answer);
    /** Stops serving; a request under way is finished, its waits cut short. */
    ~control_server();
    control_server(const control_server &) = delete;
    control_server &operator=(const control_server &) = delete;

  private:
    struct client;
    void serve();

    handler answer_;
    int listen_fd_ = -1;
    int stop_fd_ = -1;
    thrd_handle_t thread_ = nullptr;
};

} // namespace gatewayd
