#include "session/file.h"

#include "session/lines.h"
#include "session/secrets.h"
#include "support/input_error.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

namespace session {
namespace {

/** So much is kept before it is written while more comes. */
constexpr std::size_t kept_bytes_max = 256 * 1024;

} // namespace

file::file(std::string path, complaint complain)
    : path_(std::move(path)), complain_(std::move(complain)),
      descriptor_(open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600)) {
    if (descriptor_ < 0) {
        throw support::input_error(
            fmt::format("{}: cannot be written: {}", path_, std::strerror(errno)));
    }
    struct stat made {};
    if (fstat(descriptor_, &made) == 0 && S_ISREG(made.st_mode)) {
        fchmod(descriptor_, 0600); // it may have been there before
    }
}

file::~file() {
    flush();
    close(descriptor_);
}

void file::begin(const header &start) {
    start_ = start.has_secrets ? start : without_secrets(start);
    first_line_ = line_of(start_) + "\n";
    flush();
}

void file::add(event what, const known_keys &keys) {
    if (!start_.has_secrets) {
        what = without_secrets(std::move(what), keys, start_.key);
    }
    last_at_us_ = what.at_us;
    kept_ += line_of(what) + "\n";
    ++kept_events_;
    if (kept_.size() >= kept_bytes_max) {
        flush();
    }
}

void file::flush() {
    if (kept_.empty() && first_line_.empty()) {
        return;
    }
    const std::string gap =
        lost_events_ == 0 ? "" : line_of(event{lost_at_us_, lost{lost_events_}}) + "\n";
    if (write_whole(first_line_ + gap + kept_)) {
        first_line_.clear();
        lost_events_ = 0;
    } else {
        lost_events_ += kept_events_;
        lost_at_us_ = last_at_us_;
        complain_once(std::strerror(errno));
    }
    kept_.clear();
    kept_events_ = 0;
}

void file::complain_once(const char *reason) {
    if (!std::exchange(has_complained_, true) && complain_) {
        complain_(fmt::format("{} cannot be written: {}; what happens meanwhile is missing there",
                              path_, reason));
    }
}

/** Leaves the file as it was when not all can be written. errno says why. */
bool file::write_whole(const std::string &lines) const {
    struct stat before {};
    const bool is_file = fstat(descriptor_, &before) == 0 && S_ISREG(before.st_mode);
    for (std::size_t done = 0; done < lines.size();) {
        const ssize_t count = write(descriptor_, lines.data() + done, lines.size() - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            const int error = errno;
            // Where that fails, too, a line breaks off, which a reader tells.
            const bool is_cut = is_file && ftruncate(descriptor_, before.st_size) == 0;
            static_cast<void>(is_cut);
            errno = error;
            return false;
        }
    }
    return true;
}

} // namespace session
