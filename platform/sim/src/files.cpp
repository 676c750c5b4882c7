/* Files: those of the machine, with handles of the simulation's own, so that a trace does not
 * depend on what else the process has open. */
#include "core.h"

#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr mode_t new_file_mode = 0755;

/** Result of a call that a fault makes fail. */
int32_t fail(sim::call &call) {
    sim::current_core().threads.self().file_error = EIO;
    return call.failed();
}

/** Ends a call; the thread keeps the reason of a failure. */
int32_t end(sim::call &call, int64_t result) {
    if (result < 0) {
        sim::current_core().threads.self().file_error = errno;
    }
    return call.done(result);
}

int32_t open_file(sim::call &call, const char *path, int flags) {
    call.note(path);
    if (call.fails()) {
        return fail(call);
    }
    const int descriptor = open(path, flags | O_CLOEXEC, new_file_mode);
    if (descriptor < 0) {
        return end(call, -1);
    }
    sim::file_state &files = sim::current_core().files;
    const int32_t handle = files.next_handle++;
    files.open[handle] = {.descriptor = descriptor, .path = path};
    return call.done(handle);
}

/** Descriptor of a handle; -1, and a problem of the world, when the handle is not open. */
int descriptor_of(int32_t handle) {
    sim::core &core = sim::current_core();
    const auto found = core.files.open.find(handle);
    if (found == core.files.open.end()) {
        core.problem("use of file handle " + std::to_string(handle) + ", which is not open");
        errno = EBADF;
        return -1;
    }
    return found->second.descriptor;
}

} // namespace

int32_t engr_file_open(const char *path) {
    sim::call call(sim::operation::engr_file_open);
    return open_file(call, path, O_RDONLY);
}

int32_t engr_file_create(const char *path) {
    sim::call call(sim::operation::engr_file_create);
    return open_file(call, path, O_WRONLY | O_CREAT | O_TRUNC);
}

int32_t engr_file_read(int32_t file, void *buffer, uint32_t length) {
    sim::call call(sim::operation::engr_file_read, {file, length});
    if (call.fails()) {
        return fail(call);
    }
    return end(call, read(descriptor_of(file), buffer, call.part_of(length)));
}

int32_t engr_file_write(int32_t file, const void *bytes, uint32_t length) {
    sim::call call(sim::operation::engr_file_write, {file, length});
    if (call.fails()) {
        return fail(call);
    }
    return end(call, write(descriptor_of(file), bytes, call.part_of(length)));
}

void engr_file_close(int32_t file) {
    sim::call call(sim::operation::engr_file_close, {file});
    close(descriptor_of(file));
    sim::current_core().files.open.erase(file);
    call.end(0);
}

int32_t engr_file_size(const char *path, uint64_t *bytes) {
    sim::call call(sim::operation::engr_file_size);
    call.note(path);
    if (call.fails()) {
        return fail(call);
    }
    struct stat status {};
    if (stat(path, &status) != 0) {
        return end(call, -1);
    }
    *bytes = static_cast<uint64_t>(status.st_size);
    return call.done(0);
}

int32_t engr_file_remove(const char *path) {
    sim::call call(sim::operation::engr_file_remove);
    call.note(path);
    return call.fails() ? fail(call) : end(call, unlink(path));
}

const char *engr_file_error() {
    return std::strerror(sim::current_core().threads.self().file_error);
}
