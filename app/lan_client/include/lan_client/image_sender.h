// Answering a gateway's requests for pieces of an image; image_upgrade.h has the rest of an
// upgrade.
#pragma once

#include "lan_client/client.h"
#include "lan_client/image_pieces.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace lan_client {

/**
 * One transfer of an image, from its first piece to the gateway's word that it has all. It needs
 * the reports of the client from before the start of the upgrade on. Used on the loop's thread.
 */
class image_sender {
  public:
    /** Appends `count` bytes of the image from `offset` on; false when it can't. */
    using source = std::function<bool(std::string &bytes, uint64_t offset, std::size_t count)>;

    /**
     * @param to             must exist as long as this
     * @param ids            names under which the gateway may know the upgraded device
     * @param piece_timeout  that the network may take to accept more of a piece
     * @param on_change      called when one of the questions below has another answer
     */
    image_sender(client &to, uint64_t image_bytes, std::vector<std::string> ids,
                 std::chrono::milliseconds piece_timeout, source read,
                 std::function<void()> on_change);

    /**
     * Takes a report.
     *
     * @return whether it was a request for a piece
     */
    bool take(const report &told);

    /** @return bytes from the beginning of the image that the gateway has */
    [[nodiscard]] uint64_t taken_bytes() const { return taken_bytes_; }

    /** @return when the system last accepted a part of a piece */
    [[nodiscard]] std::chrono::steady_clock::time_point last_progress() const {
        return last_progress_;
    }

    /** @return whether the gateway has said that it has the whole image */
    [[nodiscard]] bool is_complete() const { return complete_; }

    /** @return what went wrong, to be read after "the gateway "; empty as long as nothing did */
    [[nodiscard]] const std::string &fault() const { return fault_; }

  private:
    void answer_next();
    void send(const piece_request &wanted);
    void note_sent(bool whole);

    client &to_;
    piece_requests pieces_;
    std::chrono::milliseconds piece_timeout_;
    source read_;
    std::function<void()> on_change_;
    std::deque<std::string> requests_; // received and not answered yet
    uint64_t taken_bytes_ = 0;
    std::chrono::steady_clock::time_point last_progress_;
    bool sending_ = false; // the system has not accepted the whole piece yet
    bool complete_ = false;
    std::string fault_;
    std::shared_ptr<image_sender *> self_ = std::make_shared<image_sender *>(this);
};

} // namespace lan_client
