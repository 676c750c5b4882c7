// Reading of firmware images.
#include "upgrade/image.h"

#include "base/failure.h"
#include "lan_client/crypto.h"
#include "lan_client/upgrade_status.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

namespace engr_app {
namespace {

constexpr std::size_t block_bytes = 64 * 1024;

failure unusable_image(const std::string &path, const std::string &why) {
    return {"input", fmt::format("can't use the image {}: {}", path, why)};
}

// Returns the bytes read: fewer than `count` only at the end of the file or where reading fails.
std::size_t read_at(int descriptor, char *to, std::size_t count, uint64_t offset) {
    std::size_t done = 0;
    while (done < count) {
        const ssize_t got =
            ::pread(descriptor, to + done, count - done, static_cast<off_t>(offset + done));
        if (got == 0 || (got < 0 && errno != EINTR)) {
            break;
        }
        done += got < 0 ? 0 : static_cast<std::size_t>(got);
    }
    return done;
}

} // namespace

// Without waiting, so that a pipe without a writer does not block the program.
firmware_image::open_file::open_file(const std::string &path)
    : descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    if (descriptor < 0) {
        throw unusable_image(path, std::strerror(errno));
    }
}

firmware_image::open_file::~open_file() {
    ::close(descriptor);
}

firmware_image::firmware_image(std::string path) : path_(std::move(path)), file_(path_) {
    if (::fstat(file_.descriptor, &opened_) != 0) {
        throw unusable_image(path_, std::strerror(errno));
    }
    check_size();
    std::array<char, block_bytes> block{};
    lan_client::md5_sum sum;
    uint64_t offset = 0;
    while (const std::size_t count =
               read_at(file_.descriptor, block.data(), block.size(), offset)) {
        sum.add({block.data(), count});
        offset += count;
    }
    md5_ = sum.text();
    require_unchanged();
    if (offset != size()) {
        throw unusable_image(path_,
                             fmt::format("only {} of its {} bytes can be read", offset, size()));
    }
}

void firmware_image::check_size() const {
    if (!S_ISREG(opened_.st_mode)) {
        throw unusable_image(path_, "it is not a regular file");
    }
    if (size() == 0) {
        throw unusable_image(path_, "it is empty");
    }
    if (size() > lan_client::max_image_bytes) {
        throw unusable_image(path_, fmt::format("it has {} bytes, and a gateway takes at most {}",
                                                size(), lan_client::max_image_bytes));
    }
}

void firmware_image::require_unchanged() const {
    struct stat now {};
    const bool same = ::fstat(file_.descriptor, &now) == 0 && now.st_size == opened_.st_size &&
                      now.st_mtim.tv_sec == opened_.st_mtim.tv_sec &&
                      now.st_mtim.tv_nsec == opened_.st_mtim.tv_nsec;
    if (!same) {
        throw failure("image_changed",
                      fmt::format("the image {} has changed while it was read", path_));
    }
}

void firmware_image::append_to(std::string &bytes, uint64_t offset, std::size_t count) const {
    const std::size_t before = bytes.size();
    bytes.resize(before + count);
    const std::size_t got = read_at(file_.descriptor, bytes.data() + before, count, offset);
    require_unchanged();
    if (got != count) {
        throw failure("image_changed",
                      fmt::format("the image {} can't be read at byte {}", path_, offset + got));
    }
}

} // namespace engr_app
