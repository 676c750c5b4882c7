// The sentences for what can go wrong: what, where, and what to do next.
#include "gateway/explain.h"

#include "base/json_text.h"
#include "gateway/session.h"
#include "lan_client/frame_types.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

namespace frame_type = lan_client::frame_type;
using lan_client::answer_rule;
using lan_client::error_kind;

struct advice {
    uint32_t type; // 0: whatever was asked
    std::string_view reply;
    std::string_view next;
};

constexpr advice advices[] = {
    {0, "data format error", "it can't read this request: its version may differ from this app's"},
    {0, "parse data error",
     "it can't decrypt the request: check --local-key, or leave it out for a gateway that is not "
     "activated"},
    {0, "device is upgrading...", "try again after the upgrade"},
    {0, "devid not found", "engr_app devices lists the devices"},
    {0, "json obj data unvalid",
     "the device is offline, see engr_app devices, or has no data points yet"},
    {0, "permit join set error", "the kind of device may not be right, see engr_app join --help"},
    {0, "scene execute error",
     "there may be no such scene in that group, engr_app scene save stores one, or none of "
     "its devices is online, see engr_app devices"},
    {0, "query dp failed",
     "the device may be offline, see engr_app devices, or lack a data point, see engr_app dp get"},
    {0, "group oper failed", "check the ids; engr_app devices lists the devices"},
    {0, "scene oper failed", "check the ids and the actions; engr_app devices lists the devices"},
    {0, "set panel cmd error", "check the panel's id; engr_app devices lists the devices"},
    {0, "get scene error",
     "it could not store the scenes and has none now; correct them and send "
     "them again"},
    {0, "set channel error",
     "channels are 11 to 26; if this is one of them its radio failed, try again"},
    {0, "get channel error", "its radio may still be starting, try again"},
    {0, "download cloud config error", "it could not write the file; its storage may be full"},
    {0, "download app config error", "it could not write the file; its storage may be full"},
    {0, "sync config error",
     "it stored the file but could not take it over; check its content "
     "and push it again"},
    {0, "read config error", "it has none yet; engr_app config push app FILE gives it one"},
    {0, "read log error", "it has no log at hand: a log is removed once it was fetched"},
    {0, "gw unactive failed", "it is still activated; try again"},
    {0, "dev is upgrading", "an upgrade is under way already; try again after it"},
    {0, "file_size is zero", "another app withdrew the announcement of the image; try again"},
    {0, "Json Parse Fails", "it can't read this request: its version may differ from this app's"},
    {0, "malloc error", "it is out of memory; restart it and try again"},
    {0, "gw_lan_ug_cb func not exist", "it can't upgrade itself over the local network"},
    {0, "dev_lan_ug_cb func not exist", "it can't upgrade its devices over the local network"},
    {0, "gw_lan_ug_cb error",
     "its upgrade service does not take this image: it may be too large or of a version that it "
     "refuses, or another is being installed; engr_app log has the reason"},
    {0, "dev_lan_ug_cb error",
     "its upgrade service does not take this image for this device: the device may be offline, the "
     "image too large or of a version that it refuses, or another is being installed; engr_app "
     "log has the reason"},
    {frame_type::token_bind, "inner process failed", "it does not take this token; get a new one"},
    {frame_type::wifi_modify, "inner process failed",
     "it stays on its network; check the name and the password"},
    {frame_type::user_bind_req_engr, "inner process failed",
     "check the ids and products of the file; engr_app devices shows what is bound"},
};

std::string_view advice_for(uint32_t type, std::string_view reply) {
    const auto *found = std::ranges::find_if(advices, [&](const advice &one) {
        return one.reply == reply && (one.type == 0 || one.type == type);
    });
    return found == std::end(advices) ? std::string_view() : found->next;
}

// A gateway on a network is out of reach of a socket that stays on the loopback interface.
std::string elsewhere_hint(gateway_session &session) {
    const bool on_loopback = session.options().interface_name == "lo";
    return on_loopback && !session.chosen().address.starts_with("127.")
               ? "; only interface lo was tried, name the gateway's network with --interface"
               : "";
}

std::string wrong_key_sentence(gateway_session &session) {
    return fmt::format(
        "the answer of {} can't be decrypted: {}", session.chosen().name(),
        session.local_key().empty()
            ? "if it is activated, give its local key with --local-key or in ENGR_LOCAL_KEY; if "
              "not, this program was built with other key seeds than the gateway"
            : "the local key is not the gateway's; check --local-key, ENGR_LOCAL_KEY or "
              "--key-file");
}

std::string sentence_for(gateway_session &session, const lan_client::error &problem) {
    const std::string name = session.chosen().name();
    switch (problem.kind) {
    case error_kind::no_interface:
        return fmt::format("can't use interface {}", problem.detail);
    case error_kind::refused:
        return fmt::format("{} refused the connection: nothing listens there; start the gateway or "
                           "its engineering mode, or check the address{}",
                           name, elsewhere_hint(session));
    case error_kind::unreachable:
        return fmt::format("{} can't be reached ({}): check that it is switched on and that the "
                           "address is right{}",
                           name, problem.detail, elsewhere_hint(session));
    case error_kind::table_full:
        return fmt::format("{} closed the connection at once: its table of 10 apps is probably "
                           "full; close an app that is not needed, or try again in two minutes, "
                           "when silent ones have been dropped",
                           name);
    case error_kind::connection_lost:
        return fmt::format("{} closed the connection before it answered ({}): it may be "
                           "restarting, try again",
                           name, problem.detail);
    case error_kind::timed_out:
        return fmt::format(
            "{} accepted the connection but did not answer within {}: it may be busy (a "
            "log upload holds up all apps); try again, or wait longer with "
            "--timeout",
            name, seconds_text(session.answer_time()));
    case error_kind::wrong_key:
        return wrong_key_sentence(session);
    case error_kind::deactivated:
        return deactivated_sentence(session.chosen());
    case error_kind::answer_too_long:
        return fmt::format("{} announces an answer that is too long to be one ({}); nothing of it "
                           "was kept",
                           name, problem.detail);
    case error_kind::damaged:
        return fmt::format("the answer of {} arrived damaged ({}): try again; if it stays so, "
                           "gateway and program compute the CRC differently",
                           name, problem.detail);
    case error_kind::queue_full:
        return fmt::format("{} does not take what it is sent, and too much waits already: give it "
                           "less at once, or try again when it is less busy",
                           name);
    case error_kind::too_large:
        return fmt::format("the request is too long: a gateway takes at most {} bytes",
                           lan_client::max_request_payload_bytes);
    default:
        return fmt::format("the request to {} was given up ({})", name, problem.detail);
    }
}

answer_rule answer_rule_of(uint32_t type) {
    const auto *info = lan_client::find_frame_type(type);
    return info == nullptr ? answer_rule::never : info->answer;
}

} // namespace

failure explain(gateway_session &session, const lan_client::error &problem) {
    return {lan_client::error_name(problem.kind), sentence_for(session, problem)};
}

failure explain(gateway_session &session, const lan_client::answer &unanswered) {
    const answer_rule rule = answer_rule_of(unanswered.type);
    if (unanswered.failure.kind != error_kind::timed_out || rule == answer_rule::always) {
        return explain(session, unanswered.failure);
    }
    const std::string name = session.chosen().name();
    if (rule == answer_rule::on_success_only) {
        return {
            "not_accepted",
            fmt::format("{} did not accept the command: it doesn't answer what it refuses, such as "
                        "a command for an unknown device or group, for a device that is "
                        "offline, or with a wrong data point or value; see engr_app devices and "
                        "engr_app dp get",
                        name)};
    }
    const std::string silent =
        fmt::format("{} stayed silent for {} after {}", name, seconds_text(session.answer_time()),
                    lan_client::frame_type_text(unanswered.type));
    return {"timed_out",
            silent + (rule == answer_rule::on_failure_only
                          ? ": it accepts this type in silence, so it was probably accepted"
                          : ", as gateways do for this type unless their application added a "
                            "handler for it")};
}

failure refusal(gateway_session &session, uint32_t type, std::string_view payload) {
    const std::string reason = member_text(parse_json(payload), "reason");
    const std::string reply = reason.empty() ? std::string(payload) : reason;
    const std::string_view next = advice_for(type, reply);
    return {"refused_by_gateway", fmt::format("{} answered: {}{}{}", session.chosen().name(),
                                              reply.empty() ? "refused, without a reason" : reply,
                                              next.empty() ? "" : "; ", next)};
}

failure missing_key(const gateway &target) {
    return {"local_key",
            fmt::format("{} is activated: give its local key (16 characters) with --local-key, or "
                        "in the environment variable ENGR_LOCAL_KEY or a --key-file, which no "
                        "process list shows",
                        target.name())};
}

std::string deactivated_sentence(const gateway &target) {
    return fmt::format("{} answers with the key that every app knows, although a local key was "
                       "given: it was deactivated or never activated, or something else answers in "
                       "its place. Nothing was sent with that key. If you know that the gateway is "
                       "not activated, leave out the local key, or give --accept-deactivated",
                       target.name());
}

} // namespace engr_app
