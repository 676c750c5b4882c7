// Firmware images: received byte for byte in one partial file of the working directory, or in
// memory, then installed. Image and version change together, also when the gateway is killed.
#pragma once

#include "platform/crypto.h"

#include <cstdint>
#include <string>
#include <vector>

namespace gateway {

/** Truncates a partial image that was left over. Its name stays: it means that the image is not in
 * place. */
void empty_partial_image();

/** Where images are kept. */
enum class image_medium : uint8_t { file, memory };

/**
 * Refuses an image that there is no room for.
 *
 * @param given_back  bytes that another image gives back first
 * @throws refused
 */
void check_image_room(uint32_t size, uint64_t given_back, image_medium kept_in);

/** One image; at most one exists at a time. All functions throw refused when the disk fails. */
class received_image {
  public:
    /** Creates an empty image and allocates room for all of it. */
    received_image(uint32_t size, image_medium kept_in);
    /** Removes the image unless it was installed. */
    ~received_image();
    received_image(const received_image &) = delete;
    received_image &operator=(const received_image &) = delete;

    /** Size of the complete image. */
    [[nodiscard]] uint32_t size() const { return size_; }
    /** Number of bytes received so far. */
    [[nodiscard]] uint32_t received() const { return received_; }
    /** Number of bytes at the end of a chunk that are new. Throws refused unless the chunk
     * continues the received bytes and lies within the image. */
    [[nodiscard]] uint32_t new_bytes(uint32_t offset, uint32_t length) const;
    /** Adds bytes at the end; they fit. */
    void append(const uint8_t *bytes, uint32_t length);
    /** MD5 of what was received, in hexadecimal digits; nothing is added afterwards. */
    [[nodiscard]] std::string md5();
    /** Flushes everything to the disk. */
    void flush();
    /** Whether the name of the partial file outlives the image. */
    void keep_name(bool is_kept) { is_name_kept_ = is_kept; }
    /** Renames the image, replacing an older file. When it throws, nothing has changed. */
    void install(const char *name);

  private:
    uint32_t size_;
    uint32_t received_ = 0;
    int fd_ = -1; /**< -1: kept in memory */
    std::vector<uint8_t> bytes_;
    bool is_installed_ = false;
    bool is_name_kept_ = false;
    uni_md5_context_t digest_;
};

/** What a firmware is installed on. */
struct firmware_target {
    std::string dev_id; /**< of a device in the list; empty: the gateway itself */
    std::string sw_ver; /**< version that it has afterwards */
};

/** Throws refused for an image that is not complete, or not the one that was announced. */
void verify_image(received_image &image, const char *announced_md5);
/** Throws usage_error for a version that cannot be reported to apps. */
void check_version(const firmware_target &target);
/** Version that the target has at present; throws refused when there is no such device. */
std::string installed_version(const std::string &dev_id);

/**
 * Makes a complete image the installed one, and its version that of the target in the store; of the
 * gateway also in its record, a device's record is left to the agent. After a kill at any moment
 * the store matches the installed image.
 *
 * @throws refused  nothing has changed; or image and version could not both be stored, which the
 * next recover_installation sets right
 */
void install_firmware(received_image &image, const firmware_target &target);

/**
 * Completes an installation whose image is in place, but whose version could not be stored. Called
 * before another image is received, whose partial file would make it look unfinished.
 *
 * @throws refused  it still cannot be completed
 */
void settle_installation();

/**
 * Completes an installation that was interrupted after its image was in place, and removes other
 * leftovers. Called before the store is read.
 *
 * @throws refused
 */
void recover_installation();

} // namespace gateway
