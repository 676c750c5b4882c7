// The loop on which everything of this library happens, and its timers.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace asio {
class io_context;
}

namespace lan_client {

/**
 * One thread runs the loop; all callbacks of the library are made from inside run_until. The
 * objects that use a loop must go before it.
 */
class event_loop {
  public:
    event_loop();
    ~event_loop();
    event_loop(const event_loop &) = delete;
    event_loop &operator=(const event_loop &) = delete;

    /**
     * Runs until `done` holds, which is asked after every event, or until the limit has passed.
     * Returns whether `done` holds.
     */
    bool run_until(const std::function<bool()> &done, std::chrono::milliseconds limit);

    /** Calls `work` from the loop, soon. May be called on any thread while the loop exists. */
    void post(std::function<void()> work);

    /**
     * Calls `handler` for each SIGINT and SIGTERM from now on instead of ending the program. What
     * the handler throws leaves run_until.
     */
    void on_interrupt(std::function<void()> handler);

    /** For the parts that own sockets. */
    [[nodiscard]] asio::io_context &context();

  private:
    struct state;
    std::unique_ptr<state> state_;
};

/**
 * A one-shot timer. After cancel, a new start or its destruction the earlier callback is not made
 * any more, even when its time has come already.
 */
class timer {
  public:
    explicit timer(event_loop &loop);
    ~timer();
    timer(const timer &) = delete;
    timer &operator=(const timer &) = delete;

    void start(std::chrono::milliseconds delay, std::function<void()> expired);
    void cancel();

  private:
    struct state;
    std::shared_ptr<state> state_;
};

} // namespace lan_client
