// The run of one verb: finding a gateway and talking to it. The sentences are in
// session_explain.cpp.
#include "session.h"

#include "failure.h"
#include "lan_client/frame_types.h"

#include <algorithm>
#include <charconv>
#include <memory>
#include <utility>

#include <arpa/inet.h>

namespace engr_app {
namespace {

using namespace std::chrono_literals;
using lan_client::announcement;

// A gateway speaks every 5 s, so after this every one has spoken.
constexpr std::chrono::milliseconds default_listen_time = lan_client::discovery_period + 1s;
constexpr std::chrono::milliseconds default_answer_time = 5s;

std::chrono::milliseconds given_or(double seconds, std::chrono::milliseconds otherwise) {
    return seconds > 0 ? std::chrono::milliseconds(static_cast<long>(seconds * 1000)) : otherwise;
}

bool is_ipv4(const std::string &text) {
    in_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

// ADDRESS or ADDRESS:PORT; nothing when it is neither, and so an id.
std::optional<gateway> parse_address(const std::string &text) {
    const std::size_t colon = text.find(':');
    gateway named;
    named.address = text.substr(0, colon);
    if (!is_ipv4(named.address)) {
        return std::nullopt;
    }
    if (colon != std::string::npos) {
        const char *end = text.data() + text.size();
        const auto [rest, problem] = std::from_chars(text.data() + colon + 1, end, named.port);
        if (problem != std::errc() || rest != end || named.port == 0) {
            throw failure("usage", "--gateway " + text + ": the port must be 1 to 65535",
                          exit_wrong_usage);
        }
    }
    return named;
}

gateway from_announcement(const announcement &heard) {
    return {heard.address, lan_client::gateway_port, heard};
}

} // namespace

std::string gateway::name() const {
    const std::string place =
        port == lan_client::gateway_port ? address : address + ":" + std::to_string(port);
    return announced ? "gateway " + announced->id + " (" + place + ")" : "gateway " + place;
}

session::session(const global_options &options, console &out) : options_(options), out_(out) {
    if (!options_.record_file.empty()) {
        recorder_.emplace(options_.record_file);
    }
}

std::chrono::milliseconds session::listen_time() const {
    return given_or(options_.timeout_s, default_listen_time);
}

std::chrono::milliseconds session::answer_time() const {
    return given_or(options_.timeout_s, default_answer_time);
}

void session::observe(const lan_client::traffic &seen) {
    if (options_.verbose) {
        out_.trace(frame_words(seen));
    }
    if (recorder_) {
        recorder_->write(seen);
    }
}

lan_client::traffic_observer session::observer() {
    if (!options_.verbose && !recorder_) {
        return {};
    }
    return [this](const lan_client::traffic &seen) { observe(seen); };
}

heard_gateways session::listen(std::chrono::milliseconds limit, const stop_rule &enough) {
    heard_gateways heard;
    bool stop = false;
    const auto hear = [&](const lan_client::parsed_datagram &datagram) {
        heard.unreadable += datagram.kind == lan_client::datagram_kind::unreadable ? 1 : 0;
        if (datagram.kind != lan_client::datagram_kind::announcement) {
            return;
        }
        const announcement &said = datagram.said;
        const auto known = std::ranges::find_if(heard.announcements, [&](const auto &other) {
            return other.id == said.id && other.address == said.address;
        });
        if (known != heard.announcements.end()) {
            *known = said;
        } else {
            heard.announcements.push_back(said);
        }
        stop = stop || (enough && enough(said));
    };
    lan_client::discovery_listener listener(loop_, hear, observer());
    if (const lan_client::error problem = listener.open(options_.interface_name)) {
        throw failure(lan_client::error_name(problem.kind),
                      "can't listen for gateways: " + problem.detail);
    }
    loop_.run_until([&stop] { return stop; }, limit);
    std::ranges::sort(heard.announcements, {},
                      [](const announcement &one) { return std::pair(one.id, one.address); });
    return heard;
}

gateway session::find_by_id(const std::string &id) {
    out_.progress("listening for gateway " + id + " on " + options_.interface_name + " ...");
    const heard_gateways heard =
        listen(listen_time(), [&id](const announcement &said) { return said.id == id; });
    for (const announcement &said : heard.announcements) {
        if (said.id == id) {
            return from_announcement(said);
        }
    }
    throw not_found(heard, options_);
}

gateway session::find_only() {
    out_.progress("listening for gateways on " + options_.interface_name +
                  " (--gateway ADDRESS saves the wait) ...");
    const heard_gateways heard = listen(listen_time());
    if (heard.announcements.size() != 1) {
        throw not_found(heard, options_);
    }
    return from_announcement(heard.announcements.front());
}

const gateway &session::chosen() {
    if (!chosen_) {
        chosen_ = parse_address(options_.gateway);
        if (!chosen_) {
            chosen_ = options_.gateway.empty() ? find_only() : find_by_id(options_.gateway);
        }
    }
    return *chosen_;
}

bool session::key_at_hand() {
    const gateway &target = chosen();
    return !options_.local_key.empty() || !target.announced || !target.announced->activated;
}

lan_client::client &session::connect(bool reconnect, lan_client::client_events events) {
    const gateway &target = chosen();
    lan_client::client_options wanted;
    wanted.address = target.address;
    wanted.port = target.port;
    wanted.interface_name = options_.interface_name;
    wanted.connect_timeout = answer_time();
    wanted.request_timeout = answer_time();
    wanted.reconnect = reconnect;
    // A gateway that was activated or deactivated since it was heard uses the other key.
    wanted.keys.push_back(lan_client::unactivated_key());
    if (const auto local = lan_client::aes_key::from_text(options_.local_key)) {
        const bool likely = !target.announced || target.announced->activated;
        wanted.keys.insert(likely ? wanted.keys.begin() : wanted.keys.end(), *local);
    }
    events.on_traffic = observer();
    client_ = std::make_unique<lan_client::client>(loop_, std::move(wanted), std::move(events));
    client_->open();
    return *client_;
}

std::vector<lan_client::answer> session::ask(std::vector<lan_client::request> requests,
                                             bool need_key) {
    if (need_key) {
        require_key();
    }
    lan_client::client &client = client_ ? *client_ : connect();
    // Shared, because answers may still come after this function has given up on them.
    struct progress {
        std::vector<std::optional<lan_client::answer>> answers;
        std::size_t missing;
        lan_client::error first_failure{};
    };
    const auto now = std::make_shared<progress>(progress{
        .answers = decltype(progress::answers)(requests.size()), .missing = requests.size()});
    std::vector<lan_client::answer> answers;
    for (std::size_t index = 0; index < requests.size(); ++index) {
        answers.push_back({.type = requests[index].type});
        client.ask(std::move(requests[index]), [now, index](const lan_client::answer &outcome) {
            now->answers[index] = outcome;
            --now->missing;
            if (outcome.failure && !now->first_failure) {
                now->first_failure = outcome.failure;
            }
        });
    }
    // The client itself bounds every wait; where one request failed the others are not waited for.
    loop_.run_until([&now] { return now->missing == 0 || now->first_failure; },
                    std::chrono::hours(24));
    for (std::size_t index = 0; index < answers.size(); ++index) {
        answers[index].failure = now->first_failure;
        answers[index] = now->answers[index].value_or(answers[index]);
    }
    return answers;
}

} // namespace engr_app
