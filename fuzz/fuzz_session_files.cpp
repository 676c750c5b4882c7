// Session files that somebody hands over, and the words that hostile bytes become in one.
//
// A file is read, or refused with its line; what was read and is written again is the same. A
// stream cut into words gives back every byte. No password shows, whatever stands around it.
#include "session/lines.h"
#include "session/reader.h"
#include "session/secrets.h"
#include "session/wire.h"
#include "session/words.h"
#include "support/input_error.h"
#include "support/require.h"

#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

namespace {

using fuzz::require;
using namespace session;

constexpr std::string_view password = "Correct-Horse";

const lan_client::aes_key local_key = *lan_client::aes_key::from_text("0123456789abcdef");
const key_ring ring{.local = local_key};
const known_keys keys{{local_key}, ring};

void read_file(std::string text) {
    try {
        reader from(std::make_unique<std::istringstream>(std::move(text)), "FILE");
        const key_ring own = keys_of(from.start());
        require(line_of(read_header(line_of(from.start()), "")) == line_of(from.start()),
                "the same beginning");
        while (const std::optional<event> one = from.next()) {
            const event again = read_event(line_of(*one), "");
            require(line_of(again) == line_of(*one), "the same event");
            require(wire_bytes(again, own) == wire_bytes(*one, own), "the same bytes");
            const auto hidden = wire_bytes(without_secrets(*one, keys, from.start().key), own);
            require(hidden.value_or("").size() == wire_bytes(*one, own).value_or("").size(),
                    "the same length without secrets");
        }
    } catch (const support::input_error &) {
        // It is no session file.
    }
}

void cut_stream(side from, std::size_t piece_bytes, std::string_view bytes) {
    stream_words words(from);
    std::string given_back;
    const auto keep = [&](stream_piece piece) {
        if (auto *whole = std::get_if<lan_client::frame>(&piece.content)) {
            // The value of a wrong CRC is the one thing that is not kept.
            if (!whole->crc_matches) {
                given_back.append(from == side::app
                                      ? lan_client::request_overhead_bytes + whole->payload.size()
                                      : lan_client::encode_reply(*whole).size(),
                                  '?');
                return;
            }
            const frame told{1, from, {}, words_of(from, std::move(*whole), keys)};
            const event read = read_event(line_of(event{0, told}), "");
            given_back += wire_bytes(read, ring).value();
        } else {
            given_back += std::get<std::string>(piece.content);
        }
    };
    for (std::size_t at = 0; at < bytes.size(); at += piece_bytes) {
        for (stream_piece &piece : words.take(at, bytes.substr(at, piece_bytes))) {
            keep(std::move(piece));
        }
    }
    if (std::optional<stream_piece> rest = words.finish()) {
        keep(std::move(*rest));
    }
    require(given_back.size() == bytes.size(), "every byte");
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        require(given_back[i] == bytes[i] || given_back[i] == '?', "the same bytes");
    }
}

void hide_password(std::string_view around) {
    if (around.find("Correct") != std::string_view::npos) {
        return;
    }
    const std::string text = std::string(around) + R"({"ssid":"net","passwd":")" +
                             std::string(password) + "\"}" + std::string(around);
    const std::string hidden = without_secrets(text);
    require(hidden.size() == text.size(), "the same length");
    require(hidden.find(password) == std::string::npos, "no password to be shown");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) {
        return 0;
    }
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::string_view rest = input.substr(1);
    switch (input.front()) {
    case 'f':
        read_file(std::string(rest));
        break;
    case 'p':
        hide_password(rest);
        break;
    case 'g':
        cut_stream(side::gateway, data[1] + 1U, rest);
        break;
    default:
        cut_stream(side::app, data[1] + 1U, rest);
    }
    return 0;
}
