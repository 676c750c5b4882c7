// The working part of a client: what is under way with one gateway.
#pragma once

#include "connection.h"
#include "lan_client/client.h"
#include "lan_client/stream_cutter.h"

#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <random>
#include <string>

namespace lan_client {

class client::conversation : public std::enable_shared_from_this<conversation> {
  public:
    conversation(event_loop &loop, client_options options, client_events events);

    void open();
    void close();
    void forget(); // as close, but nobody is told
    void ask(request wanted, completion done);
    [[nodiscard]] std::size_t unsent_bytes() const;

  private:
    using clock = std::chrono::steady_clock;

    enum class stage { idle, connecting, up, pausing };

    // A request from the moment it is made until it is completed.
    struct exchange {
        request wanted;
        completion done; // absent: the frame gets no answer of its own
        std::uint32_t number = 0;
        clock::time_point asked;
        clock::time_point deadline;
        error at_deadline{error_kind::timed_out, {}};
        std::uint64_t stream_start = 0;
        std::uint64_t stream_end = 0;
        bool sent = false;
        bool taken = false; // the gateway has read it: it or a later one was answered
        bool repeated = false;
        std::int32_t segments_received = 0;
        std::string received;
    };
    using exchange_list = std::deque<exchange>;

    struct opened_payload {
        payload_state state = payload_state::plain;
        std::string text;
        bool key_changed = false;
        bool under_built_in_key = false; // unreadable only because that key is not to be used
    };

    void connect();
    void connected();
    void received(std::string_view bytes);
    void written(std::size_t count);
    void closed(error why);
    void keep_alive();
    void send_ready();
    void send(exchange &due);
    void renew(exchange &moving);
    void arm();
    void expire();
    void leave();
    [[nodiscard]] std::size_t bytes_under_way() const;

    void take_frames();
    void take(frame got);
    opened_payload open_payload(const frame &got);
    void proved();
    exchange_list::iterator find(const frame &got);
    void read_up_to(exchange_list::iterator last);
    void take_report(const frame &got, opened_payload &payload);
    void take_answer(exchange_list::iterator found, const frame &got, opened_payload &payload);
    void take_segment(exchange_list::iterator found, const frame &got, std::string &bytes);
    void complete(exchange_list::iterator found, answer outcome);
    void complete_all(exchange_list gone, const error &why);

    event_loop &loop_;
    client_options options_;
    client_events events_;
    std::string peer_;
    connection connection_;
    timer deadline_timer_;
    timer keep_alive_timer_;
    timer pause_timer_;
    timer turn_timer_;
    std::minstd_rand chance_{std::random_device{}()};

    stage stage_ = stage::idle;
    bool forgotten_ = false;
    bool ever_proved_ = false; // some connection has carried a frame from the gateway
    error last_failure_{error_kind::cancelled, {}};
    exchange_list exchanges_; // in the order in which they were made
    std::uint32_t last_number_ = 0;

    // Of the present connection:
    std::uint64_t stream_end_ = 0;
    std::uint64_t stream_written_ = 0;
    bool proved_ = false;
    stream_cutter cutter_;
    bool heard_ = false;      // something was received since the last keep-alive
    unsigned unanswered_ = 0; // keep-alives in a row
};

} // namespace lan_client
