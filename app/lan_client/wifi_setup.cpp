// Sending a network again and again until something shows what has become of it.
#include "lan_client/wifi_setup.h"

#include <utility>

namespace lan_client {

struct wifi_setup::state {
    state(event_loop &loop, wifi_setup_order wanted, wifi_candidates before, sent_callback sent,
          end_callback called, const traffic_observer &observer)
        : order(std::move(wanted)), candidates(std::move(before)), on_sent(std::move(sent)),
          on_end(std::move(called)), text(configuration_text(order.network)),
          channel(
              loop, [this](const auto &failed) { on_failure(failed); }, observer,
              order.configuration),
          listener(
              loop, [this](const auto &datagram) { on_datagram(datagram); }, observer,
              order.discovery),
          repeat(loop), limit(loop) {}

    error start() {
        if (error problem = channel.open(order.interface_name)) {
            return problem;
        }
        if (error problem = listener.open(order.new_interface_name)) {
            return problem;
        }
        if (error problem = channel.send(text, order.coding, order.address)) {
            return problem;
        }
        limit.start(order.limit, [this] { give_up(); });
        sent({});
        return {};
    }

    // The gateway's own network goes away once it has taken the configuration, and the interface
    // with it, so a failure is no reason to stop.
    void send_again() { sent(channel.send(text, order.coding, order.address)); }

    void sent(const error &problem) {
        ++attempts;
        outcome.sent += problem ? 0 : 1;
        if (attempts < order.times) {
            repeat.start(order.interval, [this] { send_again(); });
        }
        if (on_sent) {
            on_sent(outcome.sent, problem);
        }
    }

    void on_failure(const std::optional<wifi_failure> &failed) {
        if (!failed) {
            ++outcome.unreadable;
            return;
        }
        outcome.failure = failed;
        end(wifi_setup_end::failed);
    }

    void on_datagram(const parsed_datagram &datagram) {
        outcome.unreadable += datagram.kind == datagram_kind::unreadable ? 1 : 0;
        if (datagram.kind != datagram_kind::announcement) {
            return;
        }
        const wifi_candidates::sign sign = candidates.judge(datagram.content);
        if (sign == wifi_candidates::sign::none) {
            return;
        }
        outcome.appeared = datagram.content;
        if (sign == wifi_candidates::sign::joined) {
            end(wifi_setup_end::joined);
        } else if (!candidates.can_recognise()) {
            end(wifi_setup_end::unconfirmed);
        }
    }

    void give_up() { end(outcome.appeared ? wifi_setup_end::unconfirmed : wifi_setup_end::silent); }

    void end(wifi_setup_end how) {
        if (std::exchange(ended, true)) {
            return;
        }
        repeat.cancel();
        limit.cancel();
        outcome.end = how;
        const end_callback called = std::move(on_end);
        const wifi_setup_outcome told = std::move(outcome);
        called(told); // may destroy this
    }

    wifi_setup_order order;
    wifi_candidates candidates;
    sent_callback on_sent;
    end_callback on_end;
    std::string text;
    provisioning_channel channel;
    discovery_listener listener;
    timer repeat;
    timer limit;
    wifi_setup_outcome outcome;
    unsigned attempts = 0;
    bool ended = false;
};

wifi_setup::wifi_setup(event_loop &loop, wifi_setup_order order, wifi_candidates before,
                       sent_callback on_sent, end_callback on_end, traffic_observer observer)
    : state_(std::make_unique<state>(loop, std::move(order), std::move(before), std::move(on_sent),
                                     std::move(on_end), observer)) {}

wifi_setup::~wifi_setup() = default;

error wifi_setup::start() {
    return state_->start();
}

} // namespace lan_client
