// What a client does with the frames that arrive.
#include "conversation.h"

#include "lan_client/frame_types.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace lan_client {
namespace {

// How a gateway answers a request that it can't decrypt, or that comes out of it as no JSON.
constexpr std::string_view refusals_of_other_keys[] = {"parse data error", "data format error"};

} // namespace

void client::conversation::received(std::string_view bytes) {
    received_any_ = true;
    show_wire(wire_event::received, bytes);
    cutter_.feed(bytes);
    take_frames();
}

// Handles a bounded number of frames, then returns to the loop. Reading pauses until then, so that
// no more pile up.
void client::conversation::take_frames() {
    const auto self = shared_from_this();
    for (std::size_t taken = 0; taken < max_frames_at_once && stage_ == stage::up; ++taken) {
        std::optional<frame> got = cutter_.next();
        if (!got) {
            return connection_.resume_reading();
        }
        take(std::move(*got));
    }
    if (stage_ == stage::up) {
        connection_.pause_reading();
        resume_timer_.start(std::chrono::milliseconds(0), [this] { take_frames(); });
    }
}

void client::conversation::take(frame got) {
    decrypted_payload payload = decrypt_payload(got);
    if (events_.on_traffic) {
        events_.on_traffic({.peer = peer_,
                            .number = got.number,
                            .type = got.type,
                            .ret = got.ret,
                            .segment = got.segment,
                            .crc_matches = got.crc_matches,
                            .state = payload.state,
                            .wire_payload = got.payload,
                            .text = payload.text});
    }
    confirm();
    if (stage_ != stage::up) {
        return; // the link's callback closed the client
    }
    const auto found = find(got);
    if (found != exchanges_.end()) {
        mark_read_up_to(found);
        take_answer(found, got, payload);
        send_ready();
    } else if (got.type != frame_type::keepalive) {
        take_report(got, payload);
    }
}

// Requests are handled in order, so those before one that was read have been read as well.
void client::conversation::mark_read_up_to(exchange_list::iterator last) {
    for (auto earlier = exchanges_.begin(); earlier != std::next(last); ++earlier) {
        earlier->read_by_gateway = earlier->read_by_gateway || earlier->sent;
    }
}

// A gateway that asks for the next piece of an image has read the one before.
void client::conversation::take_report(const frame &got, decrypted_payload &payload) {
    const auto is_unanswered = [&got](const exchange &one) {
        return one.sent && !one.done && one.wanted.type == got.type;
    };
    const auto last = std::find_if(exchanges_.rbegin(), exchanges_.rend(), is_unanswered);
    if (last != exchanges_.rend()) {
        mark_read_up_to(std::prev(last.base()));
        // A frame that has not been sent can't have been read, whatever the gateway says.
        std::erase_if(exchanges_, [&](const exchange &one) {
            return is_unanswered(one) && one.stream_end <= stream_written_;
        });
        start_deadline_timer();
        send_ready();
    }
    if (events_.on_report) {
        const bool readable = got.crc_matches && payload.state != payload_state::unreadable;
        events_.on_report({.type = got.type,
                           .number = got.number,
                           .ret = got.ret,
                           .readable = readable,
                           .damaged = !got.crc_matches,
                           .under_built_in_key = payload.under_built_in_key,
                           .payload = readable ? std::move(payload.text) : std::string()});
    }
}

// Every payload is encrypted with the TCP key, except the segments of the log.
client::conversation::decrypted_payload client::conversation::decrypt_payload(const frame &got) {
    if (got.payload.empty() || got.segment) {
        return {.state = payload_state::plain, .text = got.payload};
    }
    for (auto key = options_.keys.begin(); key != options_.keys.end(); ++key) {
        if (std::optional<std::string> text = decrypt_text(*key, got.payload)) {
            const bool changed = key != options_.keys.begin();
            std::iter_swap(options_.keys.begin(), key);
            return {payload_state::decrypted, std::move(*text), changed};
        }
    }
    // Every app knows the built-in key, so that anyone can answer with it: what it says is dropped.
    return {.state = payload_state::unreadable,
            .text = {},
            .under_built_in_key = decrypt_text(options_.built_in_key, got.payload).has_value()};
}

// The first frame shows that the gateway took the connection into its table.
void client::conversation::confirm() {
    if (confirmed_) {
        return;
    }
    confirmed_ = true;
    ever_confirmed_ = true;
    options_.pause.reset();
    if (events_.on_link && !abandoned_) {
        events_.on_link({link_state::connected, {}, {}});
    }
    send_ready(); // requests may have waited for this
}

client::conversation::exchange_list::iterator client::conversation::find(const frame &got) {
    const bool keep_alive = got.type == frame_type::keepalive; // answered with number 0
    return std::ranges::find_if(exchanges_, [&got, keep_alive](const exchange &one) {
        return one.sent && one.wanted.type == got.type && (one.number == got.number || keep_alive);
    });
}

void client::conversation::take_answer(exchange_list::iterator found, const frame &got,
                                       decrypted_payload &payload) {
    if (!got.crc_matches) {
        return complete(found, {.failure = {error_kind::damaged, "its CRC is wrong"}});
    }
    if (payload.state == payload_state::unreadable) {
        const bool built_in = payload.under_built_in_key;
        return complete(
            found, {.failure = {built_in ? error_kind::deactivated : error_kind::wrong_key, {}}});
    }
    if (got.segment) {
        return take_segment(found, got, payload.text);
    }
    const bool refused_for_its_key = payload.key_changed && got.ret != 0 &&
                                     std::ranges::find(refusals_of_other_keys, payload.text) !=
                                         std::end(refusals_of_other_keys) &&
                                     found->wanted.coding == payload_coding::encrypted;
    if (refused_for_its_key && !found->repeated) {
        found->repeated = true;
        found->sent = false; // goes out again with the key that we know now
        found->read_by_gateway = false;
        return;
    }
    complete(found, {.ret = got.ret, .payload = std::move(payload.text)});
}

void client::conversation::take_segment(exchange_list::iterator found, const frame &got,
                                        std::string &bytes) {
    const segment_position at = *got.segment;
    if (at.number != found->segments_received + 1 || at.count < at.number) {
        return complete(found,
                        {.failure = {error_kind::damaged,
                                     "segment " + std::to_string(found->segments_received + 1) +
                                         " is missing"}});
    }
    if (at.count > static_cast<int32_t>(max_transfer_segments) ||
        found->received.size() + bytes.size() > max_transfer_bytes) {
        return complete(found, {.failure = {error_kind::answer_too_long,
                                            std::to_string(at.count) + " segments"}});
    }
    found->received += bytes;
    found->segments_received = at.number;
    if (at.number == at.count) {
        std::string whole = std::move(found->received);
        return complete(found, {.ret = got.ret, .payload = std::move(whole)});
    }
    extend_deadline(*found);
    if (found->wanted.on_segment) {
        // A copy: the callback may close the client, which ends the exchange.
        const auto on_segment = found->wanted.on_segment;
        on_segment(at);
    }
}

} // namespace lan_client
