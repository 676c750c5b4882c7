#include "session/words.h"

#include "lan_client/discovery.h"
#include "lan_client/frame_types.h"
#include "support/utf8.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace session {
namespace {

using lan_client::aes_key;
using lan_client::decode_status;

constexpr std::string_view head_bytes("\x00\x00\x55\xAA", 4);
/** How long a gateway waits for the rest of a frame. */
constexpr uint64_t frame_patience_us = 30'000'000;

lan_client::decode_result decode(side from, std::string_view bytes) {
    // What can't become a head is noise at once, however few bytes there are.
    if (!head_bytes.starts_with(bytes.substr(0, head_bytes.size()))) {
        return {};
    }
    return from == side::app ? lan_client::decode_request(bytes) : lan_client::decode_frame(bytes);
}

/** A key with the coding that it stands for. */
struct tried_key {
    const aes_key *key;
    coding coded;
};

/** Decrypts a payload in place. Text is preferred: a wrong key yields a valid padding at times. */
void decrypt_payload(frame_content &content, const std::vector<tried_key> &keys) {
    for (const auto decrypted : {lan_client::decrypt_text, lan_client::decrypt}) {
        for (const tried_key &one : keys) {
            if (std::optional<std::string> text = decrypted(*one.key, content.payload)) {
                content.payload = std::move(*text);
                content.coded = one.coded;
                return;
            }
        }
    }
    content.coded = support::is_utf8(content.payload) ? coding::plain : coding::unknown;
}

frame_content content_of(side from, lan_client::frame got) {
    frame_content content{.number = got.number,
                          .type = got.type,
                          .ret = {},
                          .segment = got.segment,
                          .payload = std::move(got.payload),
                          .crc_matches = got.crc_matches};
    if (from == side::gateway) {
        content.ret = got.ret;
    }
    return content;
}

} // namespace

std::vector<stream_piece> stream_words::take(uint64_t at_us, std::string_view bytes) {
    std::vector<stream_piece> pieces;
    if (from_ == side::app && !buffer_.empty() && at_us - time_of(0) > frame_patience_us) {
        pieces.push_back(*finish());
    }
    buffer_.append(bytes);
    arrivals_.push_back({buffer_.size(), at_us});
    std::size_t noise = 0; // where the bytes begin that belong to no frame
    std::size_t at = 0;
    while (at < buffer_.size()) {
        lan_client::decode_result found = decode(from_, std::string_view(buffer_).substr(at));
        if (found.status == decode_status::incomplete) {
            break;
        }
        if (found.status == decode_status::whole) {
            put_noise(pieces, noise, at);
            pieces.push_back({time_of(at), std::move(found.decoded)});
            const std::size_t first = arrival_of(at)->end - at;
            if (first < found.consumed_bytes) {
                pieces.back().first_bytes = static_cast<uint32_t>(first);
            }
            at += found.consumed_bytes;
            noise = at;
        } else {
            at = std::min(buffer_.find(head_bytes.front(), at + 1), buffer_.size());
        }
    }
    put_noise(pieces, noise, at);
    drop(at);
    return pieces;
}

std::optional<stream_piece> stream_words::finish() {
    if (buffer_.empty()) {
        return std::nullopt;
    }
    stream_piece rest{time_of(0), std::move(buffer_)};
    buffer_.clear();
    arrivals_.clear();
    return rest;
}

void stream_words::put_noise(std::vector<stream_piece> &pieces, std::size_t begin,
                             std::size_t end) const {
    if (begin < end) {
        pieces.push_back({time_of(begin), buffer_.substr(begin, end - begin)});
    }
}

std::vector<stream_words::arrival>::const_iterator stream_words::arrival_of(std::size_t at) const {
    const auto found = std::upper_bound(
        arrivals_.begin(), arrivals_.end(), at,
        [](std::size_t position, const arrival &one) { return position < one.end; });
    return found == arrivals_.end() ? std::prev(found) : found;
}

uint64_t stream_words::time_of(std::size_t at) const {
    return arrival_of(at)->at_us;
}

void stream_words::drop(std::size_t count) {
    buffer_.erase(0, count);
    std::erase_if(arrivals_, [count](const arrival &one) { return one.end <= count; });
    for (arrival &one : arrivals_) {
        one.end -= count;
    }
}

frame_content words_of(side from, lan_client::frame got, const known_keys &keys) {
    frame_content content = content_of(from, std::move(got));
    if (content.payload.empty() || usual_coding(from, content) == coding::plain) {
        return content;
    }
    std::vector<tried_key> tried;
    for (const aes_key &key : keys.local) {
        tried.push_back({&key, coding::local});
    }
    tried.insert(tried.begin() + (tried.empty() ? 0 : 1),
                 {&keys.built_in.unactivated, coding::built_in});
    decrypt_payload(content, tried);
    return content;
}

std::variant<frame_content, std::string>
datagram_words(side from, uint16_t port, std::string_view bytes, const known_keys &keys) {
    lan_client::decode_result found = decode(from, bytes);
    if (found.status != decode_status::whole || found.consumed_bytes != bytes.size()) {
        return std::string(bytes);
    }
    frame_content content = content_of(from, std::move(found.decoded));
    if (usual_datagram_coding(content) != coding::plain) {
        const aes_key &key = port == lan_client::discovery_port ? keys.built_in.discovery
                                                                : keys.built_in.configuration;
        decrypt_payload(content, {{&key, coding::built_in}});
    }
    return content;
}

} // namespace session
