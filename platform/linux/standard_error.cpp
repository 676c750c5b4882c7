/*
 * Standard error as a place for log lines that never makes the writer wait: lines without a reader
 * are dropped and counted.
 */
#include "linux_port/port.h"
#include "log_line.h"
#include "platform/log.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <mutex>

namespace linux_port {

namespace {

class standard_error {
  public:
    void write_line(std::string_view line);

  private:
    static bool has_room(int fd);
    static int open_without_waiting();
    static size_t write_some(int fd, std::string_view bytes);
    bool write_whole(int fd, std::string_view bytes);
    bool tell_of_lost_lines(int fd);

    std::mutex mutex_;
    uint64_t lost_lines_ = 0;
    bool is_inside_line_ = false; /**< the last line went out in part */
};

bool standard_error::has_room(int fd) {
    pollfd watched{fd, POLLOUT, 0};
    const timespec no_time{};
    const bool is_ready = ppoll(&watched, 1, &no_time, nullptr) == 1;
    return is_ready && watched.revents == POLLOUT; // an error beside it: there is no reader left
}

/**
 * A terminal may take fewer bytes than it had room for, and wait; only a file opened separately can
 * be made non-blocking, since the standard one is shared with other programs.
 *
 * @return the descriptor to write to, to be closed unless it is standard error's
 */
int standard_error::open_without_waiting() {
    const int own = isatty(STDERR_FILENO) != 0
                        ? open("/proc/self/fd/2", O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)
                        : -1;
    return own >= 0 ? own : STDERR_FILENO;
}

/** Writes what can be written at once. Returns the number of bytes */
size_t standard_error::write_some(int fd, std::string_view bytes) {
    size_t written = 0;
    while (written < bytes.size() && has_room(fd)) {
        // A pipe or socket with room has room for so many.
        const size_t part = std::min<size_t>(bytes.size() - written, PIPE_BUF);
        const ssize_t count = write(fd, bytes.data() + written, part);
        if (count > 0) {
            written += static_cast<size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            break;
        }
    }
    return written;
}

bool standard_error::write_whole(int fd, std::string_view bytes) {
    const size_t written = write_some(fd, bytes);
    is_inside_line_ = is_inside_line_ || (written != 0 && written < bytes.size());
    return written == bytes.size();
}

/** Ends an incomplete line and writes how many were lost. Returns whether another line may follow
 */
bool standard_error::tell_of_lost_lines(int fd) {
    if (is_inside_line_) {
        if (write_some(fd, "\n") == 0) {
            return false;
        }
        is_inside_line_ = false;
    }
    if (lost_lines_ == 0) {
        return true;
    }
    std::string notice;
    begin_line(notice, LOG_LEVEL_WARNING, __FILE__, __LINE__, __func__);
    notice += std::to_string(lost_lines_) + " lines were lost here, standard error took no more\n";
    if (!write_whole(fd, notice)) {
        return false;
    }
    lost_lines_ = 0;
    return true;
}

void standard_error::write_line(std::string_view line) {
    const std::string whole = std::string(line) + '\n';
    const std::lock_guard lock(mutex_);
    const int fd = open_without_waiting();
    if (!tell_of_lost_lines(fd) || !write_whole(fd, whole)) {
        ++lost_lines_;
    }
    if (fd != STDERR_FILENO) {
        close(fd);
    }
}

} // namespace

void write_standard_error(std::string_view line) {
    static auto &output = *new standard_error; // threads may still write while the process ends
    output.write_line(line);
}

} // namespace linux_port
