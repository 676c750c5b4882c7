// The implementation of a client: its connection to one gateway and the requests under way.
#pragma once

#include "connection.h"
#include "lan_client/client.h"
#include "lan_client/stream_cutter.h"

#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>

namespace lan_client {

class client::conversation : public std::enable_shared_from_this<conversation> {
  public:
    conversation(event_loop &loop, client_options options, client_events events);

    void open();
    void close();
    void abandon(); // as close, without callbacks
    void ask(request wanted, completion done);
    [[nodiscard]] std::size_t unsent_bytes() const;

  private:
    using clock = std::chrono::steady_clock;

    enum class stage { idle, connecting, up, pausing };

    // A request from the moment it is made until it is completed.
    struct exchange {
        request wanted;
        completion done; // absent: the frame has no answer of its own
        uint32_t number = 0;
        clock::time_point asked;
        clock::time_point deadline;
        error at_deadline{error_kind::timed_out, {}};
        uint64_t stream_start = 0;
        uint64_t stream_end = 0;
        bool sent = false;
        bool read_by_gateway = false; // it or a later one was answered
        bool repeated = false;
        int32_t segments_received = 0;
        std::string received;
    };
    using exchange_list = std::deque<exchange>;

    struct decrypted_payload {
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
    [[nodiscard]] bool may_start_at(uint64_t position) const;
    [[nodiscard]] std::string encrypt_payload(exchange &due) const;
    void send(exchange &due);
    void extend_deadline(exchange &sending);
    void start_deadline_timer();
    void expire();
    void drop_connection(bool by_gateway);
    void show_wire(wire_event event, std::string_view bytes = {}, bool by_gateway = false) const;
    [[nodiscard]] std::size_t bytes_under_way() const;

    void take_frames();
    void take(frame got);
    decrypted_payload decrypt_payload(const frame &got);
    void confirm();
    exchange_list::iterator find(const frame &got);
    void mark_read_up_to(exchange_list::iterator last);
    void take_report(const frame &got, decrypted_payload &payload);
    void take_answer(exchange_list::iterator found, const frame &got, decrypted_payload &payload);
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
    timer reconnect_timer_;
    timer resume_timer_;

    stage stage_ = stage::idle;
    bool abandoned_ = false;
    bool ever_confirmed_ = false; // some connection has carried a frame of the gateway
    error last_failure_{error_kind::cancelled, {}};
    exchange_list exchanges_; // in the order in which they were made
    uint32_t last_number_ = 0;

    // Of the present connection:
    uint64_t stream_end_ = 0;
    uint64_t stream_written_ = 0;
    bool confirmed_ = false;
    bool wire_is_shown_ = false; // its end has to be shown as well
    stream_cutter cutter_;
    bool received_any_ = false;           // something was received since the last keep-alive
    unsigned unanswered_keep_alives_ = 0; // keep-alives in a row
};

} // namespace lan_client
