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

/** Removes the content of a partial image that was left over, but not its name, which tells that
 * the image is not in place. */
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

/** One image. At most one exists at a time. All of its functions throw refused, which says what the
 * disk does not allow. */
class received_image {
  public:
    /** Begins an empty image and takes the room for the whole of it. */
    received_image(uint32_t size, image_medium kept_in);
    /** Removes what was not installed. */
    ~received_image();
    received_image(const received_image &) = delete;
    received_image &operator=(const received_image &) = delete;

    /** Size of the complete image. */
    [[nodiscard]] uint32_t size() const { return size_; }
    /** Bytes that are there. */
    [[nodiscard]] uint32_t received() const { return received_; }
    /** Bytes of a chunk, at its end, that are not there yet. A chunk has to continue what is there
     * and to lie within the image. */
    [[nodiscard]] uint32_t new_bytes(uint32_t offset, uint32_t length) const;
    /** Adds bytes at the end; they fit. */
    void append(const uint8_t *bytes, uint32_t length);
    /** MD5 of what was received, in hexadecimal digits; nothing is added afterwards. */
    [[nodiscard]] std::string md5();
    /** Has everything on the disk. */
    void flush();
    /** Whether the name of the partial file outlives the image. */
    void keep_name(bool is_kept) { is_name_kept_ = is_kept; }
    /** Gives the image its name for good, in the place of what had it. When it throws, nothing has
     * changed. */
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
