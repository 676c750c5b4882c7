#include "subjects/received_image.h"

#include "gateway_services/error.h"
#include "store/files.h"
#include "support/numbers.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace gateway {
namespace {

constexpr uint32_t memory_bytes_max = 64 * 1024 * 1024;

[[noreturn]] void refuse_size(uint32_t size, const std::string &why) {
    throw refused(fmt::format("there is no room for an image of {} bytes: {}", size, why));
}

/** Makes an empty file that has the room for a whole image. */
int make_partial_file(uint32_t size) {
    const int flags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
    const int fd = ::open(partial_image_name, flags, 0600);
    if (fd < 0) {
        fail_file(partial_image_name, "made");
    }
    // A file system without fallocate fails at the write instead.
    if (size != 0 && fallocate(fd, 0, 0, size) != 0 && errno != EOPNOTSUPP) {
        const std::string why = std::strerror(errno);
        ::close(fd);
        unlink(partial_image_name);
        refuse_size(size, why);
    }
    return fd;
}

} // namespace

void empty_partial_image() {
    const int fd =
        ::open(partial_image_name, O_WRONLY | O_TRUNC | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    if (fd >= 0) {
        ::close(fd);
    }
}

void check_image_room(uint32_t size, uint64_t given_back, image_medium kept_in) {
    if (kept_in == image_medium::memory && size > memory_bytes_max) {
        refuse_size(size, "too much for memory");
    }
    if (kept_in == image_medium::file && disk_room() + given_back < size + disk_reserve_bytes) {
        refuse_size(size, fmt::format("the disk has to keep {} free", disk_reserve_bytes));
    }
}

received_image::received_image(uint32_t size, image_medium kept_in) : size_(size) {
    uni_md5_init(&digest_);
    check_image_room(size, 0, kept_in);
    if (kept_in == image_medium::file) {
        fd_ = make_partial_file(size);
    }
}

received_image::~received_image() {
    if (fd_ < 0) {
        return;
    }
    ::close(fd_);
    if (is_name_kept_) {
        empty_partial_image();
    } else if (!is_installed_) {
        unlink(partial_image_name);
    }
}

uint32_t received_image::new_bytes(uint32_t offset, uint32_t length) const {
    const uint64_t end = uint64_t{offset} + length;
    if (offset > received_ || end <= received_ || end > size_) {
        throw refused(fmt::format("bytes {} to {} came, wanted were those from {} to at most {}",
                                  offset, end, received_, size_));
    }
    return static_cast<uint32_t>(end - received_);
}

void received_image::append(const uint8_t *bytes, uint32_t length) {
    if (fd_ < 0) {
        bytes_.insert(bytes_.end(), bytes, bytes + length);
    }
    for (uint32_t done = 0; fd_ >= 0 && done < length;) {
        const ssize_t count = write(fd_, bytes + done, length - done);
        if (count < 0 && errno != EINTR) {
            fail_file(partial_image_name, "written");
        }
        done += count < 0 ? 0 : static_cast<uint32_t>(count);
    }
    uni_md5_update(&digest_, bytes, length);
    received_ += length;
}

std::string received_image::md5() {
    uint8_t digest[MD5_DIGEST_SIZE];
    uni_md5_final(&digest_, digest);
    return support::to_hex({reinterpret_cast<const char *>(digest), sizeof digest});
}

void received_image::flush() {
    if (fd_ >= 0 && fsync(fd_) != 0) {
        fail_file(partial_image_name, "flushed");
    }
}

void received_image::install(const char *name) {
    if (fd_ < 0) {
        return;
    }
    if (rename(partial_image_name, name) != 0) {
        fail_file(name, "replaced");
    }
    is_installed_ = true;
}

} // namespace gateway
