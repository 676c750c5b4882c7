// Listening, sending, and the answer for both.
#include "wifi_run.h"

#include "handle.h"
#include "requests.h"

#include <memory>
#include <utility>

namespace lan_client_c {

using lan_client::wifi_candidates;
using lan_client::wifi_setup_end;
using lan_client::wifi_setup_outcome;

wifi_run::wifi_run(engr_client &client, uint32_t id, lan_client::wifi_setup_order order,
                   const std::string &gateway_id, std::chrono::milliseconds listen, bool force)
    : client_(client), id_(id), order_(std::move(order)), listen_(listen), force_(force),
      candidates_(order_.interface_name, gateway_id), listened_(client.loop) {}

void wifi_run::start() {
    const bool one = order_.new_interface_name == order_.interface_name;
    listener_.emplace(
        client_.loop,
        [this](const lan_client::parsed_datagram &got) {
            if (got.kind == lan_client::datagram_kind::announcement &&
                candidates_.note(got.content)) {
                listened_.start(std::chrono::milliseconds(0), [this] { send(); });
            }
        },
        lan_client::traffic_observer(), order_.discovery);
    if (const lan_client::error problem = listener_->open(one ? order_.interface_name : "")) {
        return end(code_of(problem), problem.detail);
    }
    listened_.start(listen_, [this] { send(); });
}

void wifi_run::send() {
    listener_.reset();
    if (candidates_.state() != wifi_candidates::readiness::ready && !force_) {
        const bool heard = candidates_.state() == wifi_candidates::readiness::not_waiting;
        return end(ENGR_CLIENT_NOT_WAITING, heard ? "the gateway does not say that it needs Wi-Fi"
                                                  : "no such gateway was heard");
    }
    if (!choose_interface()) {
        return end(ENGR_CLIENT_NO_INTERFACE,
                   candidates_.interfaces().empty()
                       ? "name the one to broadcast on"
                       : "gateways that need Wi-Fi were heard on several: name one");
    }
    setup_.emplace(
        client_.loop, order_, candidates_,
        [this](unsigned sent, const lan_client::error &) {
            add_progress(client_, id_, lan_client::frame_type::ap_nw_cfg, sent, order_.times);
        },
        [this](const wifi_setup_outcome &outcome) { take_outcome(outcome); });
    if (const lan_client::error problem = setup_->start()) {
        end(code_of(problem), problem.detail);
    }
}

// A broadcast goes where the gateway was heard, never to all networks of the machine.
bool wifi_run::choose_interface() {
    const bool broadcasts = order_.address == lan_client::broadcast_address;
    if (!order_.interface_name.empty() || !broadcasts) {
        return true;
    }
    if (candidates_.interfaces().size() != 1) {
        return false;
    }
    order_.interface_name = *candidates_.interfaces().begin();
    return true;
}

void wifi_run::take_outcome(const wifi_setup_outcome &outcome) {
    auto event = std::make_unique<owned_event>(ENGR_CLIENT_ANSWER);
    if (outcome.failure) {
        event->set_error(ENGR_CLIENT_WIFI_FAILURE, "a gateway could not join the network");
        event->set_address(outcome.failure->address);
        event->set_payload(outcome.failure->description);
        event->result = outcome.failure->result.value_or(0);
    } else if (outcome.appeared) {
        event->set_address(outcome.appeared->address);
        set_announcement(*event, *outcome.appeared);
    }
    if (outcome.end == wifi_setup_end::unconfirmed) {
        event->set_error(ENGR_CLIENT_UNCONFIRMED,
                         "a gateway appeared that had not said that it needs Wi-Fi");
    } else if (outcome.end == wifi_setup_end::silent) {
        const bool strangers = outcome.unreadable > 0;
        event->set_error(strangers ? ENGR_CLIENT_WRONG_KEY : ENGR_CLIENT_TIMED_OUT,
                         strangers ? "nothing was heard but datagrams under other keys"
                                   : "no gateway has appeared or reported a failure");
    }
    end(std::move(event));
}

void wifi_run::end(engr_client_error why, const std::string &text) {
    auto event = std::make_unique<owned_event>(ENGR_CLIENT_ANSWER);
    event->set_error(why, text);
    end(std::move(event));
}

void wifi_run::end(std::unique_ptr<owned_event> event) {
    ended_ = true;
    event->request = id_;
    event->type = lan_client::frame_type::ap_nw_cfg;
    client_.add(std::move(event));
}

} // namespace lan_client_c
