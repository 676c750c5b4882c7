// A firmware image on its way into the gateway: byte for byte in one partial file of the working
// directory, or in memory.
#pragma once

#include "platform/crypto.h"

#include <cstdint>
#include <string>
#include <vector>

namespace gateway {

/** Name of the file that holds an image while it is received. */
constexpr const char *partial_image_name = "firmware.part";

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

} // namespace gateway
