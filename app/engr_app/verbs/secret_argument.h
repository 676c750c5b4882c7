// Passwords and tokens from where nobody sees them.
#pragma once

#include <mutex>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace engr_app {

/**
 * One secret of a verb, from an option, a file, an environment variable, or a terminal. It is read
 * once, when it is first asked for, also when several gateways need it at the same time.
 */
class secret_argument {
  public:
    /** `what` is a name as in "Wi-Fi password"; `variable` is the environment variable. */
    secret_argument(std::string what, std::string variable)
        : what_(std::move(what)), variable_(std::move(variable)) {}

    /**
     * Declares the option that holds the secret, unless it is an argument already, and the one that
     * names its file; both as in "--password".
     */
    void declare(CLI::App &parser, const char *option, const char *file_option);

    /** The secret where the user gave it as an argument. */
    [[nodiscard]] std::string &given() { return given_; }

    /**
     * The secret. On a terminal it is asked for without echo when no other source is named. Throws
     * a failure of wrong usage when there is none; no failure quotes it.
     */
    const std::string &read();

  private:
    [[nodiscard]] std::string find() const;

    std::string what_;
    std::string variable_;
    std::string given_;
    std::string file_;
    std::string sources_; // for messages
    std::mutex mutex_;
    std::optional<std::string> secret_;
};

} // namespace engr_app
