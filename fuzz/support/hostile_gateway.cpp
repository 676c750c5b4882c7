#include "support/hostile_gateway.h"

#include "lan_client/frame_types.h"
#include "support/gateway_frame.h"
#include "support/require.h"

#include <algorithm>
#include <utility>

namespace fuzz {
namespace {

/** Longer than any time-out of an app. */
constexpr uint32_t longest_pause_ms = 500'000;

constexpr size_t request_head_bytes = 16;
constexpr size_t crc_and_tail_bytes = 8;

/** The number at the beginning of a line, which loses it and one blank behind it. */
uint32_t next_number(std::string_view &line) {
    uint32_t number = 0;
    size_t at = 0;
    for (; at < line.size() && line[at] >= '0' && line[at] <= '9'; ++at) {
        number = number * 10 + static_cast<uint32_t>(line[at] - '0');
    }
    at += at < line.size() && line[at] == ' ' ? 1 : 0;
    line.remove_prefix(at);
    return number;
}

uint32_t word_at(std::string_view bytes, size_t offset) {
    uint32_t word = 0;
    for (const char byte : bytes.substr(offset, 4)) {
        word = word << 8U | static_cast<unsigned char>(byte);
    }
    return word;
}

} // namespace

hostile_gateway::hostile_gateway(std::string_view script, const lan_client::aes_key &key,
                                 bool waits)
    : script_(script), key_(key), waits_(waits) {
    the_far_side().on_connected = [this](far_end &app) { play(app); };
    the_far_side().on_bytes = [this](far_end &app, std::string_view bytes) { take(app, bytes); };
}

hostile_gateway::~hostile_gateway() {
    the_far_side().on_connected = {};
    the_far_side().on_bytes = {};
}

void hostile_gateway::play(far_end &app) {
    if (!playing_) {
        playing_ = true;
        const auto go_on = [this, &app] {
            playing_ = false;
            play_next(app);
        };
        app.later(go_on, std::exchange(pause_, {}));
    }
}

void hostile_gateway::play_next(far_end &app) {
    if (script_.empty()) {
        return app.hang_up();
    }
    const size_t end = std::min(script_.find('\n'), script_.size());
    if (!play_line(app, script_.substr(0, end))) {
        return; // goes on with the next request
    }
    script_.remove_prefix(std::min(end + 1, script_.size()));
    play(app);
}

bool hostile_gateway::play_line(far_end &app, std::string_view line) {
    const char kind = line.empty() ? '\0' : line.front();
    line.remove_prefix(line.empty() ? 0 : 1);
    switch (kind) {
    case '=':
    case 'b':
    case 'p':
    case 'c':
    case '#':
        if (open_.empty()) {
            return !waits_;
        }
        answer(app, kind, line);
        break;
    case '!': {
        const uint32_t type = next_number(line);
        const uint32_t ret = next_number(line);
        app.send(gateway_frame(0, type, {ret}, lan_client::encrypt(key_, line)));
        break;
    }
    case '?':
        if (on_ask) {
            const uint32_t type = next_number(line);
            on_ask(type, line);
        }
        break;
    case 'x':
        app.send(std::string(line));
        break;
    case 'd':
        app.stop_reading();
        break;
    case 'w':
        pause_ = std::chrono::milliseconds(std::min(next_number(line), longest_pause_ms));
        break;
    default:
        break;
    }
    return true;
}

void hostile_gateway::answer(far_end &app, char kind, std::string_view line) {
    const seen_request to = open_.front();
    const uint32_t first = next_number(line);
    if (kind == '#') {
        const uint32_t number = next_number(line);
        app.send(gateway_frame(to.number, to.type, {0, first, number}, line));
        if (number < first) {
            return; // more segments follow
        }
    } else {
        const lan_client::aes_key key = kind == 'b' ? lan_client::unactivated_key() : key_;
        std::string bytes = gateway_frame(
            to.number, to.type, {first},
            line.empty() || kind == 'p' ? std::string(line) : lan_client::encrypt(key, line));
        if (kind == 'c') {
            bytes[bytes.size() - crc_and_tail_bytes] ^= 1;
        }
        app.send(std::move(bytes));
    }
    open_.pop_front();
}

void hostile_gateway::take(far_end &app, std::string_view bytes) {
    received_ += bytes;
    while (received_.size() >= request_head_bytes + crc_and_tail_bytes) {
        const size_t length = word_at(received_, 12);
        require(word_at(received_, 0) == 0x55AA && length >= crc_and_tail_bytes,
                "the app to send whole frames");
        if (received_.size() < request_head_bytes + length) {
            return;
        }
        open_.push_back({word_at(received_, 4), word_at(received_, 8),
                         received_.substr(request_head_bytes, length - crc_and_tail_bytes)});
        received_.erase(0, request_head_bytes + length);
        if (on_request) {
            on_request(open_.back());
        }
        // Pieces of an image are not answered, and nothing may wait behind them.
        if (open_.back().type == lan_client::frame_type::download_firmware) {
            open_.pop_back();
        }
        play(app);
    }
}

} // namespace fuzz
