// From the bytes of the wire to records: frames are cut out of a stream and decrypted.
#pragma once

#include "lan_client/crypto.h"
#include "session/event.h"
#include "session/wire.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace session {

/** Keys under which payloads may travel. */
struct known_keys {
    std::vector<lan_client::aes_key> local; /**< the one in use first, then those before it */
    key_ring built_in;                      /**< its local key is not used */
};

/** A frame in words, or bytes that are none, of a stream. */
struct stream_piece {
    uint64_t began_us = 0; /**< when its first byte came */
    std::variant<lan_client::frame, std::string> content;
    uint32_t first_bytes = 0; /**< of a frame that came in pieces: those of the first piece */
};

/**
 * Cuts one direction of a connection into frames and what lies between them; no byte is lost. Holds
 * at most one unfinished frame of the longest length.
 */
class stream_words {
  public:
    explicit stream_words(side from) : from_(from) {}

    /**
     * Takes the next bytes.
     *
     * @return the frames that are complete now, and the bytes before them that belong to none
     */
    [[nodiscard]] std::vector<stream_piece> take(uint64_t at_us, std::string_view bytes);

    /** What is left when the stream ends: half a frame, or noise. Nothing when nothing is. */
    [[nodiscard]] std::optional<stream_piece> finish();

  private:
    void put_noise(std::vector<stream_piece> &pieces, std::size_t begin, std::size_t end) const;
    [[nodiscard]] uint64_t time_of(std::size_t at) const;
    void drop(std::size_t count);

    /** Bytes that came at one time. */
    struct arrival {
        std::size_t end; /**< in the buffer, behind the last of them */
        uint64_t at_us;
    };

    /** The one that brought a byte of the buffer. */
    [[nodiscard]] std::vector<arrival>::const_iterator arrival_of(std::size_t at) const;

    side from_;
    std::string buffer_;
    std::vector<arrival> arrivals_;
};

/** The words of a frame of a connection. */
[[nodiscard]] frame_content words_of(side from, lan_client::frame got, const known_keys &keys);

/** The words of a datagram to a port; its bytes when it is no frame. */
[[nodiscard]] std::variant<frame_content, std::string>
datagram_words(side from, uint16_t port, std::string_view bytes, const known_keys &keys);

} // namespace session
