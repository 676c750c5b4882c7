// info: what a gateway announces of itself, and whether the app can talk to it.
#include "base/failure.h"
#include "gateway/devices.h"
#include "gateway/discovery.h"
#include "gateway/explain.h"
#include "gateway/format.h"
#include "gateway/session.h"
#include "verbs/verb.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using lan_client::answer;
using lan_client::error_kind;

// Result of a trial connection.
struct trial {
    std::optional<failure> problem;
    std::string connection; // as people read it
    std::string key;        // the same
    bool key_right = false;
    double round_trip_ms = 0;
    std::optional<std::size_t> devices;
    std::optional<upgrade_status> firmware;
};

trial try_to_talk(gateway_session &session, bool versions) {
    trial shown;
    const bool key_at_hand = session.has_needed_key();
    std::vector<lan_client::request> requests{{.type = lan_client::frame_type::keepalive}};
    if (key_at_hand) {
        requests.push_back(device_list_request()); // its answer is always encrypted
    }
    if (key_at_hand && versions) {
        warn_of_withdrawal(session);
        requests.push_back(gateway_version_request());
    }
    const std::vector<answer> answers = session.ask(std::move(requests), false);
    const answer &alive = answers.front();
    shown.round_trip_ms = static_cast<double>(alive.round_trip.count()) / 1000;
    if (alive.failure) {
        shown.problem = explain(session, alive);
        shown.connection = "does not work";
        shown.key = "not tried";
        return shown;
    }
    shown.connection = "works";
    if (!key_at_hand) {
        shown.key = "not tried: the gateway is activated, give its key with --local-key";
        return shown;
    }
    const answer &listed = answers[1];
    if (listed.failure) {
        shown.problem = explain(session, listed);
        shown.key = listed.failure.kind == error_kind::wrong_key ? "wrong" : "not known";
        return shown;
    }
    shown.key_right = true;
    shown.key = "right";
    if (listed.ret == 0) {
        shown.devices = parse_device_list(listed.payload).size();
    }
    if (versions && !answers[2].failure && answers[2].ret == 0) {
        shown.firmware = parse_upgrade_status({}, answers[2].payload);
    }
    return shown;
}

nlohmann::json as_json(const gateway &target, const trial &shown) {
    nlohmann::json all = target.announced ? announcement_json(*target.announced)
                                          : nlohmann::json{{"address", target.address}};
    all["port"] = target.port;
    all["announced"] = target.announced.has_value() && !target.remembered;
    all["reachable"] = shown.connection == "works";
    all["key"] = shown.key_right ? "right" : shown.key == "wrong" ? "wrong" : "unknown";
    if (shown.connection == "works") {
        all["round_trip_ms"] = shown.round_trip_ms;
    }
    if (shown.devices) {
        all["devices"] = *shown.devices;
    }
    if (shown.firmware) {
        all["sw_ver"] = shown.firmware->version;
        all["upgrading"] =
            shown.firmware->running ? nlohmann::json(shown.firmware->running_id) : nlohmann::json();
    }
    if (shown.problem) {
        all["error"] = {{"kind", shown.problem->kind()}, {"message", shown.problem->what()}};
    }
    return all;
}

void show_announcement(std::vector<std::pair<std::string, std::string>> &facts,
                       const lan_client::announcement &announced) {
    facts.emplace_back("id", announced.id);
    facts.emplace_back("version", announced.version);
    facts.emplace_back("product key", announced.product_key);
    facts.emplace_back("activated", yes_or_no(announced.activated));
    facts.emplace_back("ability", std::to_string(announced.ability));
    facts.emplace_back("needs Wi-Fi", yes_or_no(announced.needs_wifi_setup));
    if (announced.announced_address != announced.address) {
        facts.emplace_back("told address", announced.announced_address);
    }
}

void show_trial(console &out, const gateway &target, const trial &shown) {
    std::vector<std::pair<std::string, std::string>> facts{{"address", target.address}};
    if (target.announced) {
        show_announcement(facts, *target.announced);
        if (target.remembered) {
            facts.emplace_back("announcement", "an earlier one (--wait listens for a new one)");
        }
    } else {
        facts.emplace_back("announcement", "not listened for (--wait listens for it)");
    }
    std::string connection = shown.connection;
    if (connection == "works") {
        connection += fmt::format(", round trip {}", milliseconds_text(shown.round_trip_ms));
    }
    facts.emplace_back("connection", connection);
    facts.emplace_back("key", shown.key);
    if (shown.devices) {
        facts.emplace_back("devices", std::to_string(*shown.devices));
    }
    if (shown.firmware) {
        facts.emplace_back("firmware", shown.firmware->version);
        facts.emplace_back("upgrade",
                           shown.firmware->running
                               ? fmt::format("of {} under way", shown.firmware->running_id)
                               : "none under way");
    }
    out.facts(facts);
}

struct info_arguments {
    bool wait = false;
    bool versions = false;
};

int info(gateway_session &session, const info_arguments &given) {
    const trial shown = try_to_talk(session, given.versions);
    if (given.wait) {
        session.chosen_announcement();
    }
    const gateway &target = session.chosen();
    console &out = session.out();
    if (out.json()) {
        out.document(as_json(target, shown));
    } else {
        show_trial(out, target, shown);
    }
    if (shown.problem) {
        throw failure(*shown.problem);
    }
    return exit_success;
}

} // namespace

verb_work declare_info(CLI::App &parser) {
    const auto given = std::make_shared<info_arguments>();
    parser.add_flag("--wait", given->wait,
                    "Also listen for an announcement, when none was heard in this run");
    parser.add_flag("--versions", given->versions,
                    "Ask for the installed firmware and an upgrade under way as well");
    parser.footer(std::string(versions_note) + "Examples:\n"
                                               "  engr_app info\n"
                                               "  engr_app info --gateway 127.0.0.2 --wait");
    return with_arguments(given, info);
}

} // namespace engr_app
