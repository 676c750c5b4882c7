// The console: what the gateway is and does, live on a page of a browser, which can operate it.
//
// It knows the messages of docs/console.md, but nothing of the gateway: that is handed in.
#pragma once

#include "console/place.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace console {

/** How a line was carried out. */
struct line_answer {
    bool ok = false;
    bool is_usage = false; /**< it can never be right */
    std::string text;      /**< what a person reads */
    std::string json;      /**< the result as JSON; empty: none */
};

/** The gateway, as the console sees it. Texts are JSON objects, in UTF-8. */
struct subject {
    /** What does not change, the value of "hello". Called on the console's thread; may throw, then
     * a browser does without it. */
    std::function<std::string()> hello;
    /** What does, the value of "state" without "at". Called on the console's thread; may throw,
     * then the old state is shown until it can be had. */
    std::function<std::string()> state;
    /** Microseconds on the clock of the events. */
    std::function<uint64_t()> now;
    /** Carries out the words of a line. Called on a thread for lines, one at a time. */
    std::function<line_answer(const std::vector<std::string> &words)> carry_out;
};

/** A console that is open; its end disconnects all browsers at once. */
class live_console {
  public:
    /**
     * Takes its address; nobody is served yet.
     *
     * @throws std::runtime_error that names the address
     */
    live_console(const place &where, subject shown);
    ~live_console();
    live_console(const live_console &) = delete;
    live_console &operator=(const live_console &) = delete;

    /** Address of the page, with the token that it takes. */
    [[nodiscard]] std::string page_address() const;
    /** Begins to serve. */
    void begin();
    /** Something happened: a JSON object, in UTF-8. Any thread; never waits. */
    void add_event(std::string text);

  private:
    class feed;
    class browser;
    std::unique_ptr<feed> feed_;
};

} // namespace console
