/* Files: a handle is a file descriptor, a reason the thread's errno. */
#include "platform/file.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

int32_t engr_file_open(const char *path) {
    return open(path, O_RDONLY | O_CLOEXEC);
}

int32_t engr_file_create(const char *path) {
    return open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0755);
}

int32_t engr_file_read(int32_t file, void *buffer, uint32_t length) {
    return (int32_t)read(file, buffer, length);
}

int32_t engr_file_write(int32_t file, const void *bytes, uint32_t length) {
    return (int32_t)write(file, bytes, length);
}

void engr_file_close(int32_t file) {
    close(file);
}

int32_t engr_file_size(const char *path, uint64_t *bytes) {
    struct stat status;
    if (stat(path, &status) != 0) {
        return -1;
    }
    *bytes = (uint64_t)status.st_size;
    return 0;
}

int32_t engr_file_remove(const char *path) {
    return unlink(path);
}

const char *engr_file_error(void) {
    return strerror(errno); /* of this thread alone; the C library keeps the text for it */
}
