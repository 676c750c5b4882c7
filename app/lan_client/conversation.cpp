// A conversation's life: connecting, sending, waiting, coming back. What it receives is handled in
// conversation_receive.cpp.
#include "conversation.h"

#include "lan_client/frame.h"
#include "send_window.h"

#include <algorithm>
#include <random>
#include <utility>

namespace lan_client {

client::conversation::conversation(event_loop &loop, client_options options, client_events events)
    : loop_(loop), options_(std::move(options)), events_(std::move(events)),
      peer_(options_.address + ":" + std::to_string(options_.port)),
      connection_(loop,
                  {[this] { connected(); }, [this](std::string_view bytes) { received(bytes); },
                   [this](std::size_t count) { written(count); },
                   [this](const error &why) { closed(why); }}),
      deadline_timer_(loop), keep_alive_timer_(loop), reconnect_timer_(loop), resume_timer_(loop) {}

void client::conversation::open() {
    if (stage_ == stage::idle) {
        connect();
    }
}

void client::conversation::connect() {
    stage_ = stage::connecting;
    confirmed_ = false;
    cutter_ = {};
    connection_.open({options_.address, options_.port, options_.interface_name},
                     options_.connect_timeout);
}

void client::conversation::connected() {
    stage_ = stage::up;
    wire_is_shown_ = true;
    show_wire(wire_event::connected);
    received_any_ = true;
    if (options_.reconnect) {
        keep_alive(); // its answer shows that the gateway has room for this connection
    } else {
        keep_alive_timer_.start(options_.keep_alive_interval, [this] { keep_alive(); });
    }
    send_ready();
}

void client::conversation::show_wire(wire_event event, std::string_view bytes,
                                     bool by_gateway) const {
    if (events_.on_wire) {
        events_.on_wire({event, this, peer_, bytes, by_gateway});
    }
}

// Releases what belongs to the connection, whichever side ended it.
void client::conversation::drop_connection(bool by_gateway) {
    connection_.close();
    if (std::exchange(wire_is_shown_, false)) {
        show_wire(wire_event::closed, {}, by_gateway);
    }
    keep_alive_timer_.cancel();
    resume_timer_.cancel();
    stream_end_ = 0;
    stream_written_ = 0;
}

void client::conversation::closed(error why) {
    const auto self = shared_from_this();
    const bool was_up = stage_ == stage::up;
    const bool by_gateway = was_up && why.kind == error_kind::connection_lost;
    if (was_up && !confirmed_ && why.kind == error_kind::connection_lost) {
        why.kind = error_kind::table_full;
    }
    drop_connection(by_gateway);
    link_change change{link_state::lost, why, {}};
    const bool returns = options_.reconnect && ever_confirmed_;
    if (returns) {
        stage_ = stage::pausing;
        std::random_device chance; // made here, since most connections are never lost
        change.pause = options_.pause.next(std::uniform_real_distribution<>(0, 1)(chance));
        reconnect_timer_.start(change.pause, [this] { connect(); });
    } else {
        stage_ = stage::idle;
        last_failure_ = why;
    }
    // A request that was not sent yet can go out over the next connection. A frame without an
    // answer, as a piece of an image, belongs to this one.
    const auto is_gone = [returns](const exchange &one) {
        return one.sent || !returns || !one.done;
    };
    exchange_list gone;
    std::ranges::copy_if(exchanges_, std::back_inserter(gone), is_gone);
    std::erase_if(exchanges_, is_gone);
    complete_all(std::move(gone), why);
    if (events_.on_link && !abandoned_) {
        events_.on_link(change);
    }
}

void client::conversation::close() {
    const auto self = shared_from_this();
    stage_ = stage::idle;
    last_failure_ = {error_kind::cancelled, {}};
    drop_connection(false);
    deadline_timer_.cancel();
    reconnect_timer_.cancel();
    complete_all(std::exchange(exchanges_, {}), last_failure_);
}

void client::conversation::abandon() {
    abandoned_ = true;
    close();
}

void client::conversation::ask(request wanted, completion done) {
    const auto timeout = wanted.timeout.count() > 0 ? wanted.timeout : options_.request_timeout;
    exchange made;
    made.done = std::move(done);
    made.asked = clock::now();
    made.deadline = made.asked + timeout;
    last_number_ += last_number_ == UINT32_MAX ? 2 : 1; // 0 is for frames that answer nothing
    made.number = last_number_;
    // Encryption makes a text up to one block longer.
    if (wanted.payload.size() + key_bytes > max_request_payload_bytes) {
        made.at_deadline = {error_kind::too_large, std::to_string(wanted.payload.size())};
        made.deadline = made.asked;
    } else if (stage_ == stage::idle) {
        made.at_deadline = last_failure_;
        made.deadline = made.asked;
    } else if (bytes_under_way() + wanted.payload.size() > max_request_bytes_under_way) {
        made.at_deadline = {error_kind::queue_full, "the gateway does not take what it is sent"};
        made.deadline = made.asked;
        wanted.payload = {};
    }
    made.wanted = std::move(wanted);
    exchanges_.push_back(std::move(made));
    send_ready();
    start_deadline_timer();
}

std::size_t client::conversation::unsent_bytes() const {
    auto bytes = static_cast<std::size_t>(stream_end_ - stream_written_);
    for (const exchange &one : exchanges_) {
        bytes += one.sent ? 0 : request_overhead_bytes + one.wanted.payload.size();
    }
    return bytes;
}

std::size_t client::conversation::bytes_under_way() const {
    auto bytes = static_cast<std::size_t>(stream_end_ - stream_written_);
    for (const exchange &one : exchanges_) {
        bytes += sizeof one + one.wanted.payload.size();
    }
    return bytes;
}

// Keep-alives are counted, not seconds: a program that was suspended has sent only one.
void client::conversation::keep_alive() {
    unanswered_keep_alives_ = received_any_ ? 0 : unanswered_keep_alives_ + 1;
    received_any_ = false;
    if (unanswered_keep_alives_ >= options_.max_unanswered_keep_alives) {
        return closed({error_kind::connection_lost,
                       std::to_string(unanswered_keep_alives_) + " keep-alives were not answered"});
    }
    keep_alive_timer_.start(options_.keep_alive_interval, [this] { keep_alive(); });
    ask({.type = frame_type::keepalive,
         .coding = payload_coding::plain,
         .timeout = options_.keep_alive_interval},
        {});
}

void client::conversation::send_ready() {
    if (stage_ != stage::up) {
        return;
    }
    for (exchange &due : exchanges_) {
        if (due.sent || due.at_deadline.kind != error_kind::timed_out) {
            continue;
        }
        if (options_.reconnect && !confirmed_ && due.wanted.type != frame_type::keepalive) {
            continue; // so that a refused connection costs no request
        }
        if (!may_start_at(stream_end_)) {
            return; // continues when an earlier one is answered or times out
        }
        send(due);
    }
}

// Whether the gateway gets a frame that starts there, however much it has read of those before.
bool client::conversation::may_start_at(uint64_t position) const {
    return std::ranges::all_of(exchanges_, [position](const exchange &earlier) {
        return !earlier.sent || earlier.read_by_gateway ||
               may_follow(earlier.stream_start, position);
    });
}

// A frame that may stay without an answer must not hold up the next one. Blanks behind a JSON text
// mean nothing, so it is made longer until the next one may start at its end.
std::string client::conversation::encrypt_payload(exchange &due) const {
    const frame_type_info *about = find_frame_type(due.wanted.type);
    const bool may_stay_silent = about != nullptr && due.wanted.payload.ends_with('}') &&
                                 (about->answer == answer_rule::on_failure_only ||
                                  about->answer == answer_rule::on_success_only);
    const auto next_may_follow = [&](const std::string &cipher) {
        return may_start_at(due.stream_start + request_overhead_bytes + cipher.size());
    };
    std::string cipher = encrypt(options_.keys.front(), due.wanted.payload);
    for (std::size_t added = 0;
         may_stay_silent && added < gateway_read_bytes && !next_may_follow(cipher);
         added += key_bytes) {
        due.wanted.payload.append(key_bytes, ' ');
        cipher = encrypt(options_.keys.front(), due.wanted.payload);
    }
    return cipher;
}

void client::conversation::send(exchange &due) {
    const bool encrypted =
        due.wanted.coding == payload_coding::encrypted && !due.wanted.payload.empty();
    due.sent = true;
    due.stream_start = stream_end_;
    const std::string cipher = encrypted ? encrypt_payload(due) : "";
    const std::string &wire_payload = encrypted ? cipher : due.wanted.payload;
    std::string bytes = encode_request(due.number, due.wanted.type, wire_payload);
    stream_end_ += bytes.size();
    due.stream_end = stream_end_;
    show_wire(wire_event::sent, bytes);
    connection_.send(std::move(bytes));
    if (events_.on_traffic && !abandoned_) {
        events_.on_traffic({.sent = true,
                            .peer = peer_,
                            .number = due.number,
                            .type = due.wanted.type,
                            .state = encrypted ? payload_state::decrypted : payload_state::plain,
                            .wire_payload = wire_payload,
                            .text = due.wanted.payload});
    }
    if (!encrypted) {
        due.wanted.payload = {}; // only what another key may be needed for is ever repeated
    }
}

// Reports the progress of a frame that is being sent, unless the gateway has answered it already.
void client::conversation::written(std::size_t count) {
    const auto self = shared_from_this();
    stream_written_ += count;
    const auto sending = std::ranges::find_if(exchanges_, [this, count](const exchange &one) {
        return one.sent && one.wanted.on_sent && one.stream_start < stream_written_ &&
               one.stream_end + count > stream_written_;
    });
    if (sending == exchanges_.end()) {
        return;
    }
    extend_deadline(*sending);
    // A copy: the callback may close the client, which ends the exchange.
    const auto on_sent = sending->wanted.on_sent;
    const uint64_t start = sending->stream_start;
    const uint64_t frame_bytes = sending->stream_end - start;
    on_sent(static_cast<std::size_t>(std::min(stream_written_ - start, frame_bytes)),
            static_cast<std::size_t>(frame_bytes));
}

// The timer still ends at the earlier time, finds nothing to expire, and is set anew.
void client::conversation::extend_deadline(exchange &sending) {
    const auto timeout =
        sending.wanted.timeout.count() > 0 ? sending.wanted.timeout : options_.request_timeout;
    sending.deadline = clock::now() + timeout;
}

void client::conversation::start_deadline_timer() {
    const auto earliest = std::ranges::min_element(exchanges_, {}, &exchange::deadline);
    if (earliest == exchanges_.end()) {
        return deadline_timer_.cancel();
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(earliest->deadline - clock::now());
    deadline_timer_.start(std::max(left, std::chrono::milliseconds(0)), [this] { expire(); });
}

void client::conversation::expire() {
    const auto self = shared_from_this();
    const auto now = clock::now();
    for (;;) {
        const auto late = std::ranges::find_if(
            exchanges_, [now](const exchange &one) { return one.deadline <= now; });
        if (late == exchanges_.end()) {
            break;
        }
        if (!late->done && late->at_deadline.kind == error_kind::queue_full) {
            return closed(late->at_deadline);
        }
        complete(late, {.failure = late->at_deadline});
    }
    send_ready();
    start_deadline_timer();
}

void client::conversation::complete(exchange_list::iterator found, answer outcome) {
    const completion done = std::move(found->done);
    if (outcome.failure) {
        outcome.payload = std::move(found->received);
    }
    outcome.type = found->wanted.type;
    outcome.number = found->number;
    outcome.round_trip =
        std::chrono::duration_cast<std::chrono::microseconds>(clock::now() - found->asked);
    exchanges_.erase(found);
    start_deadline_timer();
    if (done && !abandoned_) {
        done(outcome);
    }
}

void client::conversation::complete_all(exchange_list gone, const error &why) {
    for (exchange &one : gone) {
        if (one.done && !abandoned_) {
            one.done({.failure = why,
                      .type = one.wanted.type,
                      .number = one.number,
                      .payload = std::move(one.received)});
        }
    }
    start_deadline_timer();
}

} // namespace lan_client
