/* Files. A handle is a file descriptor, and the reason of a failure is the thread's errno. */
#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr mode_t new_file_mode = 0755;

} // namespace

int32_t engr_file_open(const char *path) {
    return open(path, O_RDONLY | O_CLOEXEC);
}

int32_t engr_file_create(const char *path) {
    return open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, new_file_mode);
}

int32_t engr_file_read(int32_t file, void *buffer, uint32_t length) {
    return static_cast<int32_t>(read(file, buffer, length));
}

int32_t engr_file_write(int32_t file, const void *bytes, uint32_t length) {
    return static_cast<int32_t>(write(file, bytes, length));
}

void engr_file_close(int32_t file) {
    close(file);
}

int32_t engr_file_size(const char *path, uint64_t *bytes) {
    struct stat status {};
    if (stat(path, &status) != 0) {
        return -1;
    }
    *bytes = static_cast<uint64_t>(status.st_size);
    return 0;
}

int32_t engr_file_remove(const char *path) {
    return unlink(path);
}

const char *engr_file_error() {
    return std::strerror(errno);
}
