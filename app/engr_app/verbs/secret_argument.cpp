// Secrets from options, files, the environment and terminals.
#include "verbs/secret_argument.h"

#include "base/failure.h"
#include "files/input_file.h"

#include <cstdlib>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace engr_app {
namespace {

constexpr std::size_t max_secret_bytes = 4096;

// The terminal of the program, whatever standard input and output are.
class silent_terminal {
  public:
    silent_terminal() : descriptor_(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {
        if (descriptor_ < 0 || tcgetattr(descriptor_, &before_) != 0) {
            return;
        }
        termios silent = before_;
        // Keys arrive one by one and Ctrl-C as one of them, so that the echo always comes back.
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | ISIG);
        silent.c_cc[VMIN] = 1;
        silent.c_cc[VTIME] = 0;
        usable_ = tcsetattr(descriptor_, TCSAFLUSH, &silent) == 0;
    }
    silent_terminal(const silent_terminal &) = delete;
    silent_terminal &operator=(const silent_terminal &) = delete;
    ~silent_terminal() {
        if (usable_) {
            tcsetattr(descriptor_, TCSAFLUSH, &before_);
        }
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }

    [[nodiscard]] bool usable() const { return usable_; }

    void write(std::string_view text) const {
        static_cast<void>(::write(descriptor_, text.data(), text.size()) + 0);
    }

    /** A line without its end, or nothing when the user gave up. */
    [[nodiscard]] std::optional<std::string> read_line() const {
        constexpr char end_of_text = 3; // Ctrl-C
        constexpr char end_of_input = 4;
        constexpr char erase_line = 21; // Ctrl-U
        std::string line;
        char key = 0;
        while (::read(descriptor_, &key, 1) == 1 && key != end_of_text && key != end_of_input) {
            if (key == '\n' || key == '\r') {
                return line;
            }
            if (key == '\b' || key == 127) {
                line.resize(line.empty() ? 0 : line.size() - 1);
            } else if (key == erase_line) {
                line.clear();
            } else if (line.size() < max_secret_bytes) {
                line += key;
            }
        }
        return std::nullopt;
    }

  private:
    int descriptor_;
    termios before_{};
    bool usable_ = false;
};

std::string first_line(const std::string &text) {
    return text.substr(0, text.find_first_of("\r\n"));
}

} // namespace

void secret_argument::declare(CLI::App &parser, const char *option, const char *file_option) {
    if (option != nullptr) {
        parser
            .add_option(option, given_,
                        "The secret (visible in process lists; prefer " + std::string(file_option) +
                            ")")
            ->type_name("SECRET");
    }
    parser
        .add_option(file_option, file_,
                    "File whose first line is the secret; - reads it from standard input")
        ->type_name("FILE");
    sources_ = std::string(file_option) + " FILE or the environment variable " + variable_;
}

const std::string &secret_argument::read() {
    const std::lock_guard lock(mutex_);
    if (!secret_) {
        std::string found = find();
        if (found.empty()) {
            throw wrong_usage("the " + what_ + " is empty");
        }
        secret_ = std::move(found);
    }
    return *secret_;
}

std::string secret_argument::find() const {
    if (!given_.empty() && !file_.empty()) {
        throw wrong_usage("the " + what_ + " is given twice");
    }
    if (!given_.empty()) {
        return given_;
    }
    if (!file_.empty()) {
        return first_line(file_text(file_));
    }
    if (const char *value = std::getenv(variable_.c_str())) {
        return value;
    }
    const silent_terminal terminal;
    if (!terminal.usable()) {
        throw wrong_usage("no " + what_ + ": give it with " + sources_);
    }
    terminal.write(what_ + ": ");
    const std::optional<std::string> typed = terminal.read_line();
    terminal.write("\n");
    if (!typed) {
        throw wrong_usage("no " + what_ + " was entered");
    }
    return *typed;
}

} // namespace engr_app
