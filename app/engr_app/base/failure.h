// The failure of a piece of work, with a message for the user.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace engr_app {

inline constexpr int exit_success = 0;
inline constexpr int exit_failed = 1;
inline constexpr int exit_wrong_usage = 2;

/** Thrown by verbs and what they use; the run shows it and ends with its exit code. */
class failure : public std::runtime_error {
  public:
    /**
     * @param kind      a short name for scripts, such as "timed_out"
     * @param sentence  what was wrong, where, and what to do next
     */
    failure(std::string kind, const std::string &sentence, int exit_code = exit_failed)
        : std::runtime_error(sentence), kind_(std::move(kind)), exit_code_(exit_code) {}

    [[nodiscard]] const std::string &kind() const { return kind_; }
    [[nodiscard]] int exit_code() const { return exit_code_; }

  private:
    std::string kind_;
    int exit_code_;
};

/** @return a failure for arguments that can't be right */
[[nodiscard]] inline failure wrong_usage(const std::string &sentence) {
    return {"usage", sentence, exit_wrong_usage};
}

} // namespace engr_app
