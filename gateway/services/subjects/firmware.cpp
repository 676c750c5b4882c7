#include "subjects/firmware.h"

#include "gateway_services/error.h"
#include "platform/owners.h"
#include "store/files.h"
#include "store/records.h"
#include "store/store.h"
#include "support/numbers.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <strings.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

namespace gateway {
namespace {

/** Holds an image while it is received. */
constexpr const char *partial_image_name = "firmware.part";
/** Holds the gateway's own image. */
constexpr const char *gateway_image_name = "firmware-gateway.bin";
/** Holds the image that a device got last. */
constexpr const char *device_image_name = "firmware-device.bin";

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

/** The installation under way, as {"dev_id": ID, "sw_ver": TEXT}. While it is recorded, the image
 * is in place if and only if there is no partial file. */
constexpr std::string_view installing_setting = "firmware_installing";

const field &version_field(const std::string &dev_id) {
    return dev_id.empty() ? need_field(gateway_fields(), "gw_sw_ver")
                          : need_field(device_fields(), "sw_ver");
}

void store_version(const firmware_target &target) {
    const field &of = version_field(target.dev_id);
    if (target.dev_id.empty()) {
        the_store().set_gateway_field(of, target.sw_ver);
    } else {
        the_store().set_device_field(target.dev_id, of, target.sw_ver);
    }
    the_store().erase_setting(installing_setting);
}

/** Records in the store what is about to be installed. */
void record_installation(const firmware_target &target) {
    const nlohmann::json recorded{{"dev_id", target.dev_id}, {"sw_ver", target.sw_ver}};
    change_setting(installing_setting, recorded.dump());
}

void forget_recorded_installation() {
    lasting_change change;
    the_store().erase_setting(installing_setting);
    change.commit();
}

/** The recorded installation, if any. Without change_mutex only before anybody else runs.
 */
std::optional<firmware_target> recorded_installation() {
    const std::string recorded = the_store().setting(installing_setting);
    const auto target = nlohmann::json::parse(recorded, nullptr, false);
    if (!target.is_object()) {
        return std::nullopt;
    }
    return firmware_target{target.value("dev_id", ""), target.value("sw_ver", "")};
}

/** Whether the image is in place; only while an installation is recorded. */
bool is_image_in_place() {
    return access(partial_image_name, F_OK) != 0;
}

void flush_installed_name() {
    if (!flush_directory()) {
        throw refused(
            fmt::format("the data directory cannot be flushed: {}", std::strerror(errno)));
    }
}

/** Flushes the name of the image, then stores its version. */
void complete_installation(const firmware_target &target) {
    flush_installed_name();
    lasting_change change;
    store_version(target);
    change.commit();
}

/** Enters a version into the record of its gateway or device, if it is still there. */
void enter_version(const firmware_target &target) {
    gateway_record &gateway = the_gateway();
    if (target.dev_id.empty()) {
        const platform::held_mutex guard(gateway.shared.field_mutex);
        write_field(&gateway, version_field(target.dev_id), target.sw_ver);
    } else if (dev_cntl_t *device = find_listed_device(target.dev_id)) {
        const platform::held_mutex guard(gateway.shared.dev_mutex);
        write_field(device, version_field(target.dev_id), target.sw_ver);
    }
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

void verify_image(received_image &image, const char *announced_md5) {
    if (image.received() != image.size()) {
        throw refused(fmt::format("only {} of {} bytes came", image.received(), image.size()));
    }
    const std::string md5 = image.md5();
    if (strcasecmp(md5.c_str(), announced_md5) != 0) {
        throw refused(fmt::format("the image is damaged: its MD5 is {}, announced was {}", md5,
                                  announced_md5));
    }
}

void check_version(const firmware_target &target) {
    if (target.sw_ver.empty()) {
        throw usage_error("the image has no version");
    }
    try {
        check_value(version_field(target.dev_id), target.sw_ver);
    } catch (const usage_error &error) {
        throw usage_error(fmt::format("the image's version {}", error.what()));
    }
}

std::string installed_version(const std::string &dev_id) {
    const gw_cntl_t &gateway = the_gateway().shared;
    if (dev_id.empty()) {
        const platform::held_mutex guard(gateway.field_mutex);
        return gateway.gw_sw_ver;
    }
    const dev_cntl_t &device = need_listed_device(dev_id);
    const platform::held_mutex guard(gateway.dev_mutex);
    return device.sw_ver;
}

void install_firmware(received_image &image, const firmware_target &target) {
    // The agent leaves a device's version alone when only the case of its letters differs.
    const std::string installed = installed_version(target.dev_id);
    const bool stays =
        !target.dev_id.empty() && strcasecmp(installed.c_str(), target.sw_ver.c_str()) == 0;
    const firmware_target stored{target.dev_id, stays ? installed : target.sw_ver};
    image.flush();
    record_installation(stored);
    try {
        image.install(target.dev_id.empty() ? gateway_image_name : device_image_name);
    } catch (const refused &) {
        // While the installation is recorded, the partial file means that the image is not in
        // place.
        image.keep_name(true);
        forget_recorded_installation();
        image.keep_name(false);
        throw;
    }
    complete_installation(stored);
    if (target.dev_id.empty()) {
        enter_version(target); // of a device the agent does it
    }
}

void settle_installation() {
    std::optional<firmware_target> pending;
    {
        const platform::held_mutex change(change_mutex());
        pending = recorded_installation();
    }
    if (!pending) {
        return;
    }
    if (!is_image_in_place()) {
        forget_recorded_installation();
        return;
    }
    complete_installation(*pending);
    enter_version(*pending);
}

void recover_installation() {
    if (const std::optional<firmware_target> pending = recorded_installation()) {
        transaction all(the_store());
        if (is_image_in_place()) {
            flush_installed_name();
            store_version(*pending);
        }
        the_store().erase_setting(installing_setting);
        all.commit();
    }
    unlink(partial_image_name);
}

} // namespace gateway
