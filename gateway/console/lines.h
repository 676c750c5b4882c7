// The lines that a browser sends, and the answers on their way back to it.
#pragma once

#include "console/console.h"
#include "console/web_server.h"

#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace console {

/** A line of a browser. */
struct browser_line {
    int64_t id = 0; /**< its answer has it, too */
    std::vector<std::string> words;
};

/** The line in a message; none: the message breaks the rules. */
std::optional<browser_line> read_line(std::string_view text);

/** The message with the answer to a line. */
std::string answer_message(int64_t id, const line_answer &answer);

/** A message with one member. */
std::string message_of(std::string_view name, std::string_view json);

/** Answers on their way from the thread for lines to a browser, which may have gone. Any thread. */
class outbox {
  public:
    /** @param hurry  has the browser's connection look for messages */
    explicit outbox(nudge hurry);

    /** @return how many answers are expected or not taken yet, one more than before */
    std::size_t expect();
    /** Adds an answer that was expected. */
    void add(std::string message);
    /** The next answer. */
    std::optional<std::string> take();

  private:
    nudge hurry_;
    std::mutex mutex_; // guards what follows
    std::deque<std::string> messages_;
    std::size_t expected_ = 0;
};

} // namespace console
