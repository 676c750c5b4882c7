// Writes an input of fuzz/fuzz_server.cpp.
#include "exports/exports.h"
#include "session/wire.h"
#include "support/input_error.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace replay {
namespace {

/** The first byte of an input of fuzz_server: everything arrives at once. */
constexpr char in_one_piece = 0;

} // namespace

uint32_t busiest_app(const recording &of) {
    std::map<uint32_t, std::size_t> frames;
    for (const session::event &each : of.events) {
        const auto *frame = std::get_if<session::frame>(&each.what);
        if (frame != nullptr && frame->from == session::side::app) {
            ++frames[frame->client];
        }
    }
    const auto most =
        std::max_element(frames.begin(), frames.end(), [](const auto &one, const auto &other) {
            return one.second < other.second;
        });
    return most == frames.end() ? 0 : most->first;
}

std::string fuzz_seed_of(const recording &from, uint32_t client) {
    const session::key_ring keys{.local = lan_client::unactivated_key()};
    std::string bytes(1, in_one_piece);
    for (const session::event &each : from.events) {
        if (client != 0 && client_of_app_event(each) == client) {
            bytes += session::wire_bytes(each, keys).value_or("");
        }
    }
    if (bytes.size() == 1) {
        throw support::input_error(fmt::format("no bytes of client {} are in the session", client));
    }
    return bytes;
}

} // namespace replay
