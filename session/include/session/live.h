// What happens, as it happens: taken on any thread, told as events of a session file on one of its
// own.
#pragma once

#include "session/event.h"
#include "session/words.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <variant>
#include <vector>

namespace session {

/** Most bytes of happenings that wait for their turn; what comes beyond is lost, and counted. */
inline constexpr std::size_t waiting_bytes_max = 32 * 1024 * 1024;

/**
 * Turns what is told here into events and hands these to whoever listens. Telling never waits for a
 * listener: it copies and queues. Functions that tell may be called on any thread between begin and
 * end; the order is that of the calls.
 */
class live_events {
  public:
    /** Gets each event, secrets included, on the thread of this object; must not tell anything. */
    using listener = std::function<void(const event &)>;
    /** The local keys of the gateway that are known now, the one in use first. Called on the
     * thread of this object. */
    using key_source = std::function<std::vector<lan_client::aes_key>()>;

    explicit live_events(key_source local_keys);
    live_events(const live_events &) = delete;
    live_events &operator=(const live_events &) = delete;
    /** As end. */
    ~live_events();

    /** Adds a listener; before begin. */
    void listen(listener added);
    /** Called now and then when nothing happens, after it has, for what listeners keep back. */
    void on_pause(std::function<void()> called);

    /** Starts the clock and the thread. */
    void begin();
    /** Hands out what is left, then the end of the session; the thread is gone when it returns. */
    void end();

    /**
     * What happens to a connection, which is named by any number that no other open one has.
     *
     * @param local_keys  of its gateway; empty: those of the key source
     */
    void tell_connected(uint64_t connection, std::string_view peer,
                        std::vector<lan_client::aes_key> local_keys = {});
    void tell_bytes(uint64_t connection, side from, std::string_view bytes);
    void tell_closed(uint64_t connection, std::optional<side> by);
    /** A datagram to a port; see datagram. */
    void tell_datagram(side from, uint16_t port, std::string_view peer, std::string_view bytes);
    /** Anything that is in words already. `bytes` is about what it takes in memory. */
    void tell(happening what, std::size_t bytes);

    /** Microseconds since begin. Any thread. */
    [[nodiscard]] uint64_t now_us() const;

    /** The keys that the words were found with; on the thread of this object. */
    [[nodiscard]] const known_keys &keys() const { return keys_; }

  private:
    using clock = std::chrono::steady_clock;

    struct told_connection {
        uint64_t connection;
        std::string peer;
        std::vector<lan_client::aes_key> local_keys;
    };
    struct told_bytes {
        uint64_t connection;
        side from;
        std::string bytes;
    };
    struct told_end {
        uint64_t connection;
        std::optional<side> by;
    };
    struct told_datagram {
        side from;
        uint16_t port;
        std::string peer;
        std::string bytes;
    };
    using told = std::variant<told_connection, told_bytes, told_end, told_datagram, happening>;
    struct waiting {
        uint64_t at_us;
        told what;
        std::size_t bytes;
    };
    /** A connection as the thread knows it. */
    struct open_client {
        uint32_t number;
        std::optional<known_keys> keys; /**< of its own */
        stream_words from_app{side::app};
        stream_words from_gateway{side::gateway};
    };

    void put(told what, std::size_t bytes);
    void count_loss();
    void run();
    void take_keys();
    void work_on(waiting one);
    void work_on(uint64_t at_us, told_connection one);
    void work_on(uint64_t at_us, const told_bytes &one);
    void work_on(uint64_t at_us, const told_end &one);
    void work_on(uint64_t at_us, const told_datagram &one);
    void work_on(uint64_t at_us, happening one);
    void hand_out_piece(uint64_t at_us, const open_client &client, side from, stream_piece piece);
    void finish_streams(uint64_t at_us, open_client &client);
    void hand_out(uint64_t at_us, happening what);

    key_source local_keys_;
    std::vector<listener> listeners_;
    std::function<void()> on_pause_;

    clock::time_point began_;
    std::mutex mutex_; // guards what follows; held for an instant only
    std::condition_variable changed_;
    std::vector<waiting> queue_;
    std::size_t queued_bytes_ = 0;
    bool ends_ = false;
    std::thread thread_;

    // Of the thread alone:
    known_keys keys_;
    std::map<uint64_t, open_client> clients_;
    uint32_t last_client_ = 0;
};

} // namespace session
