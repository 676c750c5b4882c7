// The sentences for what can go wrong: what, where, and what to do next.
#include "gateway/session.h"

#include "base/failure.h"
#include "lan_client/frame_types.h"

#include <string>
#include <utility>

namespace engr_app {
namespace {

using lan_client::error_kind;

std::string seconds_text(std::chrono::milliseconds time) {
    std::string text = std::to_string(static_cast<double>(time.count()) / 1000);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') {
        text.pop_back();
    }
    return text + " s";
}

} // namespace

// A gateway on a network is out of reach of a socket that stays on the loopback interface.
std::string gateway_session::elsewhere_hint() const {
    const bool on_loopback = options_.interface_name == "lo";
    const bool address_elsewhere = chosen_ && !chosen_->address.starts_with("127.");
    return on_loopback && address_elsewhere
               ? "; only interface lo was tried, name the gateway's network with --interface"
               : "";
}

std::string gateway_session::wrong_key_sentence() {
    const std::string what = "the answer of " + chosen_->name() + " can't be decrypted: ";
    return local_key().empty()
               ? what + "if it is activated, give its local key with --local-key or in "
                        "ENGR_LOCAL_KEY; if not, this program was built with other key seeds than "
                        "the gateway"
               : what + "the local key is not the gateway's; check --local-key, ENGR_LOCAL_KEY "
                        "or --key-file";
}

std::string gateway_session::deactivated_sentence() {
    return chosen_->name() +
           " answers with the key that every app knows, although a local key was given: it was "
           "deactivated or never activated, or something else answers in its place. Nothing was "
           "sent with that key. If you know that the gateway is not activated, leave out the local "
           "key, or give --accept-deactivated";
}

void gateway_session::warn_of_built_in_key() {
    if (!std::exchange(warned_of_built_in_key_, true)) {
        out_.notice(deactivated_sentence());
    }
}

failure gateway_session::explain(const lan_client::error &problem) {
    const std::string name = chosen().name();
    const auto sentence = [&]() -> std::string {
        switch (problem.kind) {
        case error_kind::no_interface:
            return "can't use interface " + problem.detail;
        case error_kind::refused:
            return name +
                   " refused the connection: nothing listens there; start the gateway or "
                   "its engineering mode, or check the address" +
                   elsewhere_hint();
        case error_kind::unreachable:
            return name + " can't be reached (" + problem.detail +
                   "): check that it is switched on and that the address is right" +
                   elsewhere_hint();
        case error_kind::table_full:
            return name + " closed the connection at once: its table of 10 apps is probably full; "
                          "close an app that is not needed, or try again in two minutes, when "
                          "silent ones have been dropped";
        case error_kind::connection_lost:
            return name + " closed the connection before it answered (" + problem.detail +
                   "): it may be restarting, try again";
        case error_kind::timed_out:
            return name + " took the connection but did not answer within " +
                   seconds_text(answer_time()) +
                   ": it may be busy (a log upload holds up all apps); try again, or wait longer "
                   "with --timeout";
        case error_kind::wrong_key:
            return wrong_key_sentence();
        case error_kind::deactivated:
            return deactivated_sentence();
        case error_kind::answer_too_long:
            return name + " announces an answer that is too long to be one (" + problem.detail +
                   "); nothing of it was kept";
        case error_kind::damaged:
            return "the answer of " + name + " arrived damaged (" + problem.detail +
                   "): try again; if it stays so, gateway and program compute the CRC differently";
        case error_kind::queue_full:
            return name + " does not take what it is sent, and too much waits already: give it "
                          "less at once, or try again when it is less busy";
        case error_kind::too_large:
            return "the request is too long: a gateway takes at most " +
                   std::to_string(lan_client::max_request_payload_bytes) + " bytes";
        default:
            return "the request to " + name + " was given up (" + problem.detail + ")";
        }
    };
    return {lan_client::error_name(problem.kind), sentence()};
}

failure gateway_session::explain(const lan_client::answer &unanswered) {
    const auto *info = lan_client::find_frame_type(unanswered.type);
    const std::string type = lan_client::frame_type_text(unanswered.type);
    if (unanswered.failure.kind != error_kind::timed_out ||
        (info != nullptr && info->answer == lan_client::answer_rule::always)) {
        return explain(unanswered.failure);
    }
    const std::string silent =
        chosen().name() + " stayed silent for " + seconds_text(answer_time()) + " after " + type;
    if (info == nullptr || info->answer == lan_client::answer_rule::never ||
        info->answer == lan_client::answer_rule::not_a_request) {
        return {"timed_out", silent + ", as gateways do for this type unless their application "
                                      "added a handler for it"};
    }
    return {"timed_out",
            info->answer == lan_client::answer_rule::on_failure_only
                ? silent + ": it accepts this type in silence, so it was probably accepted"
                : silent + ": it refuses this type in silence, so it was probably refused; check "
                           "the device and the data points"};
}

void gateway_session::require_key() {
    if (!key_at_hand()) {
        throw failure("local_key",
                      chosen().name() +
                          " is activated: give its local key (16 characters) with "
                          "--local-key, or in the environment variable "
                          "ENGR_LOCAL_KEY or a --key-file, which no process list shows");
    }
}

} // namespace engr_app
