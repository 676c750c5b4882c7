// The file that a session is recorded to.
#pragma once

#include "session/event.h"
#include "session/words.h"

#include <cstdint>
#include <functional>
#include <string>

namespace session {

/**
 * A file of whole lines that only its owner may read. What can't be written, since the disk is
 * full, is left out; the place of it says how much. One thread at a time.
 */
class file {
  public:
    /** Told once, when the first line can't be written: a sentence for people. */
    using complaint = std::function<void(const std::string &)>;

    /**
     * Makes the file, or empties it.
     *
     * @throws support::input_error  it can't be made
     */
    file(std::string path, complaint complain);
    file(const file &) = delete;
    file &operator=(const file &) = delete;
    ~file();

    /** Writes the first line, without its secrets unless it says that it has them. */
    void begin(const header &start);

    /** Keeps the line of an event until there is much to write, or flush is called. Secrets are
     * hidden unless the header has them. `keys` are those that may be in bytes that are no frame.
     */
    void add(event what, const known_keys &keys);

    /** Writes what is kept. */
    void flush();

  private:
    void complain_once(const char *reason);
    [[nodiscard]] bool write_whole(const std::string &lines) const;

    std::string path_;
    complaint complain_;
    int descriptor_;
    header start_;
    std::string first_line_; /**< until it is written */
    std::string kept_;
    uint64_t kept_events_ = 0;
    uint64_t lost_events_ = 0; /**< since the last line that could be written */
    uint64_t lost_at_us_ = 0;  /**< the last of these */
    uint64_t last_at_us_ = 0;
    bool has_complained_ = false;
};

} // namespace session
