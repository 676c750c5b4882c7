// A web server for a few browsers: files, and a WebSocket with messages both ways. It knows nothing
// of what the messages say.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace console {

/** A file that is served. */
struct web_file {
    std::string_view path;  /**< as in "/page.css" */
    std::string_view type;  /**< media type */
    std::string_view bytes; /**< lives as long as the server */
};

/** The other end of one browser's WebSocket. All functions are called on the server's thread. */
class conversation {
  public:
    conversation() = default;
    conversation(const conversation &) = delete;
    conversation &operator=(const conversation &) = delete;
    virtual ~conversation() = default;

    /** Some time has passed since the last round, or the conversation begins: what has happened so
     * far may be sent. */
    virtual void begin_round() = 0;
    /** The next message to the browser, which is ready to take one; none: nothing is to be sent
     * for now. */
    virtual std::optional<std::string> next_message() = 0;
    /**
     * A message from the browser.
     *
     * @return false when it breaks the rules, which ends the conversation
     */
    virtual bool take_message(std::string_view text) = 0;
};

/** Sends what there is to be sent without waiting for the next round. Any thread, also after the
 * browser has gone. */
using nudge = std::function<void()>;

/** What a server serves, and where. */
struct web_settings {
    std::string address; /**< IPv4 or IPv6 */
    uint16_t port = 0;   /**< 0: a free one */
    std::string token;   /**< see access.h */
    std::span<const web_file> files;
    std::string_view socket_path; /**< of the WebSocket */
    /** Begins a conversation with a browser; on the server's thread. */
    std::function<std::unique_ptr<conversation>(nudge)> converse;
    /** Called on the server's thread before each round; returns how long to wait for the next one
     * unless wake is called. */
    std::function<std::chrono::milliseconds()> prepare_round;
};

/** A server with a thread of its own. */
class web_server {
  public:
    /**
     * Takes the address; nobody is served yet.
     *
     * @throws std::runtime_error that names the address
     */
    explicit web_server(web_settings settings);
    ~web_server();
    web_server(const web_server &) = delete;
    web_server &operator=(const web_server &) = delete;

    /** Begins to serve. */
    void begin();
    /** Ends all connections at once; then no function of the settings is called any more. */
    void end();
    /** Address of the page, with the token. */
    [[nodiscard]] std::string page_address() const;
    /** Whether there is a conversation. On the server's thread. */
    [[nodiscard]] bool has_conversations() const;
    /** Has a round begin soon, for all conversations. Any thread, also before begin; never waits.
     */
    void wake();

  private:
    class core;
    std::unique_ptr<core> core_;
};

} // namespace console
