// Reading a session file, line by line.
#pragma once

#include "session/event.h"

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace session {

/**
 * Reads a file of any length; holds one line of it. Whatever is wrong throws support::input_error
 * with the file and the line: a line that is no event, a time that goes back, a client that is not
 * connected, unless events were lost before.
 */
class reader {
  public:
    /** Opens the file and reads its first line. */
    explicit reader(const std::string &path);
    /** Reads from elsewhere; `name` is what messages call it. */
    reader(std::unique_ptr<std::istream> from, std::string name);

    /** How the session began. */
    [[nodiscard]] const header &start() const { return start_; }

    /** The next event; nothing at the end. */
    [[nodiscard]] std::optional<event> next();

    /** Number of the line that was read last, from 1. */
    [[nodiscard]] std::size_t line_number() const { return line_number_; }

    /** At the end: whether the recorder ended in order. */
    [[nodiscard]] bool is_complete() const { return has_ended_; }

    /** At the end: whether the last line broke off, as after a loss of power. It is not read. */
    [[nodiscard]] bool breaks_off() const { return breaks_off_; }

  private:
    [[nodiscard]] std::string place() const;
    [[nodiscard]] std::optional<std::string> next_line();
    void check(const event &read);

    std::string name_;
    std::unique_ptr<std::istream> file_;
    header start_;
    std::size_t line_number_ = 0;
    uint64_t last_at_us_ = 0;
    uint32_t last_client_ = 0;
    std::set<uint32_t> open_clients_;
    bool has_gap_ = false; /**< the beginning of a connection may be missing */
    bool has_ended_ = false;
    bool breaks_off_ = false;
};

} // namespace session
