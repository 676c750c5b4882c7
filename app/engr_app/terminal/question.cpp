// Asking on the terminal.
#include "terminal/question.h"

#include "base/failure.h"
#include "terminal/console.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>

#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace engr_app {
namespace {

constexpr std::array affirmations = {"y", "Y", "yes", "Yes", "YES"};

} // namespace

bool can_ask() {
    return ::isatty(STDIN_FILENO) == 1 && ::isatty(STDERR_FILENO) == 1;
}

bool is_confirmed(console &out, std::string_view text) {
    ::tcflush(STDIN_FILENO, TCIFLUSH);
    out.question(std::string(text) + "\nContinue? [y/N] ");
    // Unlike a read, a poll is never begun again after a signal.
    pollfd input{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
    if (::poll(&input, 1, -1) < 0 && errno == EINTR) {
        throw interrupted();
    }
    std::array<char, 64> line{};
    const ssize_t count = ::read(STDIN_FILENO, line.data(), line.size());
    const std::string_view typed(line.data(),
                                 static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return std::ranges::find(affirmations, typed.substr(0, typed.find_first_of("\r\n"))) !=
           affirmations.end();
}

} // namespace engr_app
