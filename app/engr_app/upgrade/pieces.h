// What a gateway asks for in the course of an upgrade, held against the image and the upgrade.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace engr_app {

/** One piece of the image that a gateway asks for; 0 bytes: it has all. */
struct wanted_piece {
    uint64_t offset = 0;
    uint64_t bytes = 0;
};

/**
 * The requests of one transfer. A gateway goes through the image from its beginning, may come back
 * to bytes that it could not take, and says at the end that it has all.
 */
class piece_requests {
  public:
    /** `ids` are the names under which the gateway may know what is upgraded. */
    piece_requests(uint64_t image_bytes, std::vector<std::string> ids);

    /**
     * What the next request wants. Throws a failure when the payload is no request that this
     * transfer can lead to.
     */
    wanted_piece next(std::string_view payload);

    /** So many bytes were sent for it. */
    void sent(const wanted_piece &wanted, uint64_t bytes);

  private:
    [[nodiscard]] std::string fault_of(std::string_view payload, wanted_piece &wanted) const;
    [[nodiscard]] bool wants_too_much(const wanted_piece &wanted);

    uint64_t image_bytes_;
    std::vector<std::string> ids_;
    uint64_t furthest_ = 0;   // offset asked for
    uint64_t sent_end_ = 0;   // of what was sent
    uint64_t sent_bytes_ = 0; // in all, repeats included
    uint32_t repeats_ = 0;    // requests that went no further
    bool asked_ = false;
};

} // namespace engr_app
