// The failure of a piece of work: what kind it is, its exit status, and a message for the user.
#pragma once

#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace engr_app {

/** Exit statuses of the program; --help lists them as exit_statuses() has them. */
inline constexpr int exit_success = 0;
inline constexpr int exit_failed = 1;
inline constexpr int exit_wrong_usage = 2;
inline constexpr int exit_not_found = 3;
inline constexpr int exit_refused = 4;
inline constexpr int exit_no_connection = 5;
inline constexpr int exit_key = 6;
inline constexpr int exit_partly_failed = 7;
inline constexpr int exit_interrupted = 130; /**< as shells have it for what SIGINT has ended */

struct exit_status_meaning {
    int status;
    std::string_view meaning;
};

/** @return all statuses, in their order */
[[nodiscard]] std::span<const exit_status_meaning> exit_statuses();

/** @return the exit status of a kind of failure; exit_failed for kinds that have none of their own
 */
[[nodiscard]] int exit_status_of(std::string_view kind);

/** Thrown by verbs and what they use; the run shows it and ends with its exit status. */
class failure : public std::runtime_error {
  public:
    /**
     * @param kind      a short name for scripts, such as "timed_out", which decides on the status
     * @param sentence  what was wrong, where, and what to do next
     */
    failure(std::string kind, const std::string &sentence)
        : std::runtime_error(sentence), kind_(std::move(kind)) {}

    [[nodiscard]] const std::string &kind() const { return kind_; }
    [[nodiscard]] int exit_code() const { return exit_status_of(kind_); }

  private:
    std::string kind_;
};

/** @return a failure for arguments that can't be right */
[[nodiscard]] inline failure wrong_usage(const std::string &sentence) {
    return {"usage", sentence};
}

/** @return the failure of work that Ctrl-C has ended */
[[nodiscard]] inline failure interrupted() {
    return {"interrupted", "interrupted"};
}

} // namespace engr_app
