// Checks which pieces of an image a gateway requests during an upgrade.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace lan_client {

/** A request for a piece of the image; 0 bytes: the gateway has the whole image. */
struct piece_request {
    uint64_t offset = 0;
    uint64_t bytes = 0;
};

/**
 * The requests of one transfer. A gateway reads the image from the beginning, may request bytes
 * again that it could not use, and confirms at the end that it has the whole image.
 */
class piece_requests {
  public:
    /** @param ids  names under which the gateway may know the upgraded device */
    piece_requests(uint64_t image_bytes, std::vector<std::string> ids);

    /**
     * Parses the next request.
     *
     * @param wanted  receives what is requested
     * @return "" when the request can follow in this transfer; else what the gateway does, to be
     *         read after "the gateway "
     */
    [[nodiscard]] std::string next(std::string_view payload, piece_request &wanted);

    /** Counts the bytes that were sent for a request. */
    void sent(const piece_request &wanted, uint64_t bytes);

  private:
    [[nodiscard]] std::string fault_of(std::string_view payload, piece_request &wanted) const;
    [[nodiscard]] bool wants_too_much(const piece_request &wanted);

    uint64_t image_bytes_;
    std::vector<std::string> ids_;
    uint64_t furthest_ = 0;   // offset asked for
    uint64_t sent_end_ = 0;   // of what was sent
    uint64_t sent_bytes_ = 0; // in all, repeats included
    uint32_t repeats_ = 0;    // requests that went no further
    bool asked_ = false;
};

} // namespace lan_client
