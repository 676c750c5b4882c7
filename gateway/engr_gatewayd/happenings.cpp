#include "happenings.h"

#include "gateway_services/host.h"
#include "linux_port/port.h"

#include <fmt/format.h>

#include <atomic>
#include <optional>

namespace gatewayd {
namespace {

/** Never destroyed: threads may still tell something while the process ends. */
session::live_events *observed = nullptr;
std::vector<std::function<void()>> pauses;
std::atomic<bool> is_observing;

std::vector<lan_client::aes_key> local_keys() {
    std::vector<lan_client::aes_key> keys;
    if (const auto key = lan_client::aes_key::from_text(gateway::local_key())) {
        keys.push_back(*key);
    }
    return keys;
}

session::live_events &make_observed() {
    if (observed == nullptr) {
        observed = new session::live_events(local_keys);
        observed->on_pause([] {
            for (const auto &pause : pauses) {
                pause();
            }
        });
    }
    return *observed;
}

std::string peer_text(const linux_port::traffic_notice &notice) {
    return fmt::format("{}:{}", linux_port::address_text(notice.peer), notice.peer_port);
}

void on_traffic(const linux_port::traffic_notice &notice) {
    using enum linux_port::traffic_event;
    using session::side;
    if (!is_observing) {
        return;
    }
    const auto connection = static_cast<uint64_t>(notice.descriptor);
    switch (notice.event) {
    case connected:
        return observed->tell_connected(connection, peer_text(notice));
    case received:
        return observed->tell_bytes(connection, side::app, notice.bytes);
    case sent:
        return observed->tell_bytes(connection, side::gateway, notice.bytes);
    case disconnected:
        return observed->tell_closed(connection, notice.peer_has_ended ? side::app : side::gateway);
    case datagram_received:
        return observed->tell_datagram(side::app, notice.port, peer_text(notice), notice.bytes);
    case datagram_sent:
        return observed->tell_datagram(side::gateway, notice.port,
                                       linux_port::address_text(notice.peer), notice.bytes);
    }
}

} // namespace

void listen_to_happenings(session::live_events::listener listener, std::function<void()> on_pause) {
    make_observed().listen(std::move(listener));
    if (on_pause) {
        pauses.push_back(std::move(on_pause));
    }
}

bool happenings_are_observed() {
    return observed != nullptr;
}

void begin_happenings() {
    if (observed != nullptr) {
        observed->begin();
        linux_port::set_traffic_observer(on_traffic);
        is_observing = true;
    }
}

void end_happenings() {
    if (is_observing.exchange(false)) {
        observed->end();
    }
}

const session::known_keys &happenings_keys() {
    return observed->keys();
}

void tell_call(std::string_view name, std::string_view arguments, std::string_view result) {
    if (is_observing) {
        observed->tell(
            session::call{std::string(name), std::string(arguments), std::string(result)},
            name.size() + arguments.size() + result.size());
    }
}

uint64_t happenings_time() {
    return is_observing ? observed->now_us() : 0;
}

void tell_control(uint64_t began_us, const std::vector<std::string> &line,
                  std::string_view answer) {
    if (is_observing) {
        std::size_t bytes = answer.size();
        for (const std::string &word : line) {
            bytes += word.size();
        }
        observed->tell(session::control{began_us, line, std::string(answer)}, bytes);
    }
}

void tell_log(int level, std::string_view line) {
    if (is_observing) {
        observed->tell(session::log_line{level, std::string(line)}, line.size());
    }
}

void tell_happening(std::string_view sentence) {
    if (is_observing) {
        observed->tell(session::activity{std::string(sentence)}, sentence.size());
    }
}

} // namespace gatewayd
