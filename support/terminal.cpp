#include "support/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace support {

std::optional<std::size_t> terminal_columns(int descriptor) {
    winsize size{};
    const bool is_known = isatty(descriptor) == 1 && ioctl(descriptor, TIOCGWINSZ, &size) == 0;
    return is_known && size.ws_col != 0 ? std::optional<std::size_t>(size.ws_col) : std::nullopt;
}

} // namespace support
