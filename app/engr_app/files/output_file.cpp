// Writes a temporary file in the same directory, then renames it.
#include "files/output_file.h"

#include "base/failure.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

namespace engr_app {
namespace {

bool write_all(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    return ::fsync(descriptor) == 0;
}

// That of the file which is replaced, else what the user lets new files have.
mode_t usual_mode(const std::string &path) {
    struct stat replaced {};
    if (::stat(path.c_str(), &replaced) == 0) {
        return replaced.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
    }
    static std::mutex one_at_a_time; // the mask belongs to the process
    const std::lock_guard lock(one_at_a_time);
    const mode_t mask = ::umask(S_IRWXG | S_IRWXO);
    ::umask(mask);
    return (S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH) & ~mask;
}

} // namespace

void check_output_path(const std::string &path, bool overwrite) {
    const auto refuse = [&path](const std::string &why) {
        throw failure("usage", fmt::format("can't write {}: {}", path, why));
    };
    std::error_code ignored;
    // A rename would replace a device or a pipe.
    const bool exists = std::filesystem::exists(path, ignored);
    if (exists && !std::filesystem::is_regular_file(path, ignored)) {
        refuse("it exists and is not a regular file");
    }
    if (exists && !overwrite) {
        refuse("it exists; use --force to overwrite it");
    }
    const std::filesystem::path directory = std::filesystem::path(path).parent_path();
    if (::access(directory.empty() ? "." : directory.c_str(), W_OK | X_OK) != 0) {
        refuse(std::strerror(errno));
    }
}

void write_file(const std::string &path, std::string_view bytes, readers may_read) {
    std::string beside = path + ".XXXXXX";
    const int descriptor = ::mkstemp(beside.data()); // for its owner only
    bool written = descriptor >= 0 &&
                   (may_read == readers::owner || ::fchmod(descriptor, usual_mode(path)) == 0) &&
                   write_all(descriptor, bytes);
    int problem = errno;
    if (descriptor >= 0) {
        ::close(descriptor);
        if (written && std::rename(beside.c_str(), path.c_str()) != 0) {
            problem = errno;
            written = false;
        }
        if (!written) {
            ::unlink(beside.c_str());
        }
    }
    if (!written) {
        throw failure("output", fmt::format("can't write {}: {}", path, std::strerror(problem)));
    }
}

} // namespace engr_app
