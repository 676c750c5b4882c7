#include "console_output.h"

#include "agent_calls.h"
#include "console/console.h"
#include "console_events.h"
#include "gateway_services/contents.h"
#include "gateway_services/fields.h"
#include "gateway_services/host.h"
#include "happenings.h"
#include "session/start.h"
#include "verb_handlers.h"
#include "verbs.h"

#include <nlohmann/json.hpp>

#include <map>
#include <mutex>
#include <utility>

namespace gatewayd {
namespace {

using nlohmann::ordered_json;

/** An app that is connected. */
struct shown_client {
    std::string peer;
    uint64_t since_us;
};

session::header start;   // how the events began; its key stands for the local one
std::mutex events_mutex; // guards what follows
console::live_console *open_console = nullptr;
std::map<uint32_t, shown_client> clients;

void take_event(const session::event &what) {
    std::string shown = shown_event(what, happenings_keys(), start);
    const std::lock_guard guard(events_mutex);
    if (const auto *came = std::get_if<session::connected>(&what.what)) {
        clients[came->client] = {came->peer, what.at_us};
    } else if (const auto *left = std::get_if<session::closed>(&what.what)) {
        clients.erase(left->client);
    }
    if (open_console != nullptr) {
        open_console->add_event(std::move(shown));
    }
}

void set_open_console(console::live_console *opened) {
    const std::lock_guard guard(events_mutex);
    open_console = opened;
}

std::string text_of(const ordered_json &json) {
    return json.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

ordered_json names_of(std::span<const gateway::field> fields) {
    auto names = ordered_json::array();
    for (const gateway::field &each : fields) {
        names.push_back(each.name);
    }
    return names;
}

ordered_json verb_table() {
    auto verbs = ordered_json::array();
    for (const control::verb &each : control::verbs) {
        verbs.push_back({{"name", each.name},
                         {"arguments", each.arguments},
                         {"least", each.least},
                         {"most", each.most},
                         {"help", each.help}});
    }
    return verbs;
}

std::string hello() {
    const ordered_json record = gateway::status()["gateway"];
    const std::string id = record["gw_id"];
    ordered_json said{{"program", "engr_gatewayd"},
                      {"version", ENGR_VERSION},
                      {"gateway", id.empty() ? record["alt_gw_id"] : record["gw_id"]},
                      {"started", start.started},
                      {"now", happenings_time()},
                      {"verbs", verb_table()}};
    said.update(gateway::changeable_calls());
    said["functions"] = agent_functions();
    said["fields"] = {{"gateway", names_of(gateway::gateway_fields())},
                      {"device", names_of(gateway::device_fields())}};
    said["products"] = gateway::products();
    return text_of(said);
}

ordered_json connected_clients() {
    auto all = ordered_json::array();
    const std::lock_guard guard(events_mutex);
    for (const auto &[number, client] : clients) {
        all.push_back({{"client", number}, {"peer", client.peer}, {"since", client.since_us}});
    }
    return all;
}

std::string state() {
    ordered_json whole{{"status", gateway_status()}, {"devices", gateway::devices()}};
    whole.update(gateway::contents());
    whole["clients"] = connected_clients();
    return text_of(whole);
}

console::line_answer carry_out_words(const std::vector<std::string> &words) {
    const ordered_json reply = ordered_json::parse(
        answer_request(control::request_line({words.front(), {words.begin() + 1, words.end()}})));
    console::line_answer answer;
    if (reply.contains("result")) {
        const ordered_json &result = reply["result"];
        answer.ok = true;
        answer.json = text_of(result);
        answer.text = control::shown_result(result);
    } else {
        answer.is_usage = reply["usage"];
        answer.text = reply["error"];
    }
    return answer;
}

} // namespace

void listen_for_console() {
    start = session::start_now("engr_gatewayd", ENGR_VERSION, session::side::gateway);
    listen_to_happenings(take_event);
}

console_output::console_output(const options &chosen) {
    if (chosen.console) {
        console_ = std::make_unique<console::live_console>(
            *chosen.console, console::subject{.hello = hello,
                                              .state = state,
                                              .now = happenings_time,
                                              .carry_out = carry_out_words});
        set_open_console(console_.get());
    }
}

console_output::~console_output() {
    set_open_console(nullptr);
}

std::string console_output::page_address() const {
    return console_ ? console_->page_address() : "";
}

void console_output::begin() {
    if (console_) {
        console_->begin();
    }
}

} // namespace gatewayd
