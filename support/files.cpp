#include "support/files.h"

#include "support/input_error.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace support {
namespace {

[[noreturn]] void refuse_file(const std::string &name) {
    throw input_error(fmt::format("{}: cannot be read: {}", name, std::strerror(errno)));
}

/** A descriptor that is closed with its scope. */
struct open_file {
    int descriptor;

    explicit open_file(const char *name) : descriptor(open(name, O_RDONLY | O_CLOEXEC)) {}
    open_file(const open_file &) = delete;
    open_file &operator=(const open_file &) = delete;
    ~open_file() {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
};

} // namespace

std::string read_file(const std::string &name, std::size_t bytes_max) {
    const open_file file(name.c_str());
    if (file.descriptor < 0) {
        refuse_file(name);
    }
    return read_descriptor(file.descriptor, name, bytes_max);
}

std::string read_descriptor(int descriptor, const std::string &name, std::size_t bytes_max) {
    std::string text;
    std::array<char, 64 * 1024> block; // not cleared, which takes longer than to read a short file
    for (;;) {
        const ssize_t count = read(descriptor, block.data(), block.size());
        if (count == 0) {
            return text;
        }
        if (count < 0 && errno != EINTR) {
            refuse_file(name);
        }
        text.append(block.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (text.size() > bytes_max) {
            throw input_error(
                fmt::format("{}: is too long; at most {} bytes are read", name, bytes_max));
        }
    }
}

} // namespace support
