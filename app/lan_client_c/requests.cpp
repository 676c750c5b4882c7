// What requests yield.
#include "requests.h"

#include "lan_client/devices.h"
#include "lan_client/log_transfer.h"

#include <memory>
#include <utility>

#include <nlohmann/json.hpp>

namespace lan_client_c {
namespace {

using lan_client::answer;
using nlohmann::json;

// Shorter frames are sent at once.
constexpr std::size_t progress_from_bytes = 64 * 1024;

std::unique_ptr<owned_event> answer_event(uint32_t id, const answer &outcome) {
    auto event = std::make_unique<owned_event>(ENGR_CLIENT_ANSWER);
    event->request = id;
    event->type = outcome.type;
    event->ret = outcome.ret;
    event->set_error(code_of(outcome.failure), outcome.failure.detail);
    event->set_payload(outcome.payload);
    return event;
}

// The answer for both: that of the list, unless the one about the states is bad news.
std::unique_ptr<owned_event> devices_event(uint32_t id, const answer &list, const answer &states) {
    const bool none = lan_client::says_no_devices(states);
    const bool list_failed = list.failure || list.ret != 0;
    if (list_failed || ((states.failure || states.ret != 0) && !none)) {
        return answer_event(id, list_failed ? list : states);
    }
    auto event = answer_event(id, list);
    auto devices = lan_client::read_device_list(list.payload);
    const auto known =
        none ? lan_client::line_state() : lan_client::read_line_state(states.payload);
    if (devices && known) {
        const json all = lan_client::as_json(lan_client::with_states(*std::move(devices), *known));
        event->set_payload(all.dump(-1, ' ', false, json::error_handler_t::replace));
    } else {
        event->set_error(ENGR_CLIENT_BAD_ANSWER, "");
    }
    return event;
}

} // namespace

engr_client_error code_of(const lan_client::error &problem) {
    return static_cast<engr_client_error>(problem.kind);
}

void set_announcement(owned_event &event, const lan_client::announcement &announced) {
    event.set_address(announced.address);
    event.id_text = announced.id;
    event.product_key_text = announced.product_key;
    event.version_text = announced.version;
    event.interface_text = announced.interface_name;
    event.set_announcement({.id = nullptr,
                            .address = nullptr,
                            .product_key = nullptr,
                            .version = nullptr,
                            .ability = announced.ability,
                            .activated = announced.activated,
                            .needs_wifi_setup = announced.needs_wifi_setup,
                            .interface_name = nullptr});
}

void add_failure(engr_client &client, uint32_t id, uint32_t type, engr_client_error why,
                 std::string text) {
    auto event = std::make_unique<owned_event>(ENGR_CLIENT_ANSWER);
    event->request = id;
    event->type = type;
    event->set_error(why, std::move(text));
    client.add(std::move(event));
}

void add_progress(engr_client &client, uint32_t id, uint32_t type, uint64_t done, uint64_t total) {
    auto event = std::make_unique<owned_event>(ENGR_CLIENT_PROGRESS);
    event->request = id;
    event->type = type;
    event->done = done;
    event->total = total;
    client.add(std::move(event));
}

void ask(engr_client &client, uint32_t id, lan_client::request wanted) {
    const uint32_t type = wanted.type;
    wanted.on_segment = [&client, id, type](lan_client::segment_position at) {
        add_progress(client, id, type, static_cast<uint64_t>(at.number),
                     static_cast<uint64_t>(at.count));
    };
    if (wanted.payload.size() >= progress_from_bytes) {
        wanted.on_sent = [&client, id, type](std::size_t sent, std::size_t whole) {
            add_progress(client, id, type, sent, whole);
        };
    }
    client.gateway->ask(std::move(wanted), [&client, id](const answer &outcome) {
        client.add(answer_event(id, outcome));
    });
}

void ask_devices(engr_client &client, uint32_t id, std::chrono::milliseconds timeout) {
    // Answers come in any order.
    struct answers {
        std::optional<answer> list;
        std::optional<answer> states;
    };
    const auto got = std::make_shared<answers>();
    const auto take = [&client, id, got](std::optional<answer> &to, const answer &outcome) {
        to = outcome;
        if (got->list && got->states) {
            client.add(devices_event(id, *got->list, *got->states));
        }
    };
    lan_client::request list = lan_client::device_list_request();
    lan_client::request states = lan_client::line_state_request();
    list.timeout = states.timeout = timeout;
    client.gateway->ask(std::move(list),
                        [got, take](const answer &outcome) { take(got->list, outcome); });
    client.gateway->ask(std::move(states),
                        [got, take](const answer &outcome) { take(got->states, outcome); });
}

void ask_log(engr_client &client, uint32_t id) {
    const auto transfer = std::make_shared<lan_client::log_transfer>(
        *client.gateway, client.request_timeout, [&client, id](uint64_t done, uint64_t total) {
            add_progress(client, id, lan_client::frame_type::get_log, done, total);
        });
    client.gateway->ask(transfer->wanted(), [&client, id, transfer](const answer &outcome) {
        auto event = answer_event(id, outcome);
        if (transfer->is_endless()) {
            event->set_error(ENGR_CLIENT_ANSWER_TOO_LONG, "the log is too slow");
        }
        client.add(std::move(event));
    });
}

} // namespace lan_client_c
