#include "store/files.h"

#include "gateway_services/error.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace gateway {
namespace {

/** A descriptor, closed with its scope; errno stays. */
class open_file {
  public:
    open_file(const char *name, int flags)
        : descriptor_(::open(name, flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600)) {}
    open_file(const open_file &) = delete;
    open_file &operator=(const open_file &) = delete;
    ~open_file() {
        const int error = errno;
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
        errno = error;
    }
    explicit operator bool() const { return descriptor_ >= 0; }
    [[nodiscard]] int descriptor() const { return descriptor_; }

  private:
    int descriptor_;
};

bool write_whole(int descriptor, std::string_view content) {
    while (!content.empty()) {
        const ssize_t count = write(descriptor, content.data(), content.size());
        if (count < 0 && errno != EINTR) {
            return false;
        }
        content.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    return true;
}

void write_file(const std::string &name, std::string_view content, bool is_flushed) {
    unlink(name.c_str()); // whatever it was: the new file is nobody else's
    const open_file file(name.c_str(), O_WRONLY | O_CREAT | O_EXCL);
    if (file && write_whole(file.descriptor(), content) &&
        (!is_flushed || fsync(file.descriptor()) == 0)) {
        return;
    }
    const int error = errno;
    unlink(name.c_str());
    errno = error;
    fail_file(name, "written");
}

} // namespace

void fail_file(const std::string &name, const char *what) {
    throw refused(fmt::format("{} cannot be {}: {}", name, what, std::strerror(errno)));
}

uint64_t disk_room() {
    struct statvfs status {};
    if (statvfs(".", &status) != 0) {
        return UINT64_MAX;
    }
    return uint64_t{status.f_bavail} * status.f_frsize;
}

std::string read_regular_file(const std::string &name, std::size_t bytes_max) {
    const open_file file(name.c_str(), O_RDONLY);
    struct stat status {};
    if (!file || fstat(file.descriptor(), &status) != 0) {
        fail_file(name, "read");
    }
    if (!S_ISREG(status.st_mode)) {
        throw refused(fmt::format("{} cannot be read: it is not a regular file", name));
    }
    std::string content;
    char part[65536];
    ssize_t count = 0;
    while (content.size() <= bytes_max &&
           (count = read(file.descriptor(), part, sizeof part)) > 0) {
        content.append(part, static_cast<std::size_t>(count));
    }
    if (count < 0) {
        fail_file(name, "read");
    }
    if (content.size() > bytes_max) {
        throw refused(fmt::format("{} has more than {} bytes", name, bytes_max));
    }
    return content;
}

void write_private_file(const std::string &name, std::string_view content) {
    write_file(name, content, false);
}

void replace_private_file(const std::string &name, std::string_view content) {
    const std::string new_name = name + ".new";
    write_file(new_name, content, true);
    if (rename(new_name.c_str(), name.c_str()) != 0) {
        const int error = errno;
        unlink(new_name.c_str());
        errno = error;
        fail_file(name, "replaced");
    }
    if (!flush_directory()) {
        fail_file("the data directory", "flushed");
    }
}

bool flush_directory() {
    const open_file directory(".", O_RDONLY | O_DIRECTORY);
    return directory && fsync(directory.descriptor()) == 0;
}

} // namespace gateway
