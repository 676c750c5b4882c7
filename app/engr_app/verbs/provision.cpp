// provision: gives a gateway in access-point mode its Wi-Fi network and waits for the outcome.
#include "gateway/discovery.h"
#include "gateway/request.h"
#include "lan_client/wifi_setup.h"
#include "terminal/question.h"
#include "verbs/secret_argument.h"
#include "verbs/verb.h"

#include <chrono>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using namespace std::chrono_literals;
using lan_client::announcement;
using lan_client::payload_coding;
using lan_client::wifi_candidates;
using lan_client::wifi_failure;
using lan_client::wifi_setup_end;
using lan_client::wifi_setup_order;
using lan_client::wifi_setup_outcome;
using std::chrono::milliseconds;

struct provision_arguments {
    std::string network;
    secret_argument password{"Wi-Fi password", "ENGR_WIFI_PASSWORD"};
    secret_argument token{"token", "ENGR_TOKEN"};
    std::string address = lan_client::broadcast_address;
    std::string new_interface; // empty: the one that is sent on
    unsigned times = 10;
    double wait_s = 60;
    bool open = false;
    bool plain = false;
    bool force = false;
    bool yes = false;

    [[nodiscard]] payload_coding coding() const {
        return plain ? payload_coding::plain : payload_coding::encrypted;
    }
    [[nodiscard]] bool broadcasts() const { return address == lan_client::broadcast_address; }
};

lan_client::wifi_configuration network_to_send(provision_arguments &given) {
    if (given.network.empty() || given.network.size() > lan_client::max_network_name_bytes) {
        throw wrong_usage("provision: a network's name has 1 to 32 bytes");
    }
    lan_client::wifi_configuration wanted{given.network, given.open ? "" : given.password.read(),
                                          given.token.read()};
    if (!lan_client::is_valid(wanted)) {
        throw wrong_usage("provision: network, password and token must be valid UTF-8");
    }
    const std::size_t bytes =
        lan_client::configuration_bytes(lan_client::configuration_text(wanted), given.coding());
    if (bytes > lan_client::max_configuration_bytes) {
        throw wrong_usage(fmt::format("provision: network, password and token are too long "
                                      "together: they need a datagram of {} bytes, and gateways "
                                      "take {}",
                                      bytes, lan_client::max_configuration_bytes));
    }
    return wanted;
}

// What the network looks like before anything is sent.
class surroundings {
  public:
    surroundings(gateway_session &session, const provision_arguments &given, std::string wanted_id)
        : named_interface_(session.options().interface_name), wanted_id_(std::move(wanted_id)),
          candidates_(named_interface_, wanted_id_) {
        const bool elsewhere =
            !given.new_interface.empty() && given.new_interface != named_interface_;
        listened_on_ = elsewhere ? "" : named_interface_;
        session.end_on_interrupt();
        session.out().progress(fmt::format("listening on {} for gateways that are there ...",
                                           interfaces_text(listened_on_)));
        session.listen({listened_on_,
                        session.discovery_time(),
                        [this](const announcement &heard) { return candidates_.note(heard); },
                        {}});
    }

    [[nodiscard]] const wifi_candidates &candidates() const { return candidates_; }

    // Nobody's password goes out where no gateway has asked for it.
    void require_waiting() const {
        const wifi_candidates::readiness state = candidates_.state();
        if (state == wifi_candidates::readiness::ready) {
            return;
        }
        const std::string places =
            interfaces_text(named_interface_.empty() ? listened_on_ : named_interface_);
        if (state == wifi_candidates::readiness::nobody_waits) {
            throw failure("no_gateway", fmt::format("no gateway on {} says that it needs Wi-Fi "
                                                    "({} heard): --force sends all the same",
                                                    places, candidates_.heard()));
        }
        const bool there = state == wifi_candidates::readiness::not_waiting;
        throw failure("no_gateway",
                      fmt::format("gateway {} {} on {}: --force sends all the same", wanted_id_,
                                  there ? "does not say that it needs Wi-Fi" : "was not heard",
                                  places));
    }

    // Where to broadcast: as named, else where the only ones that wait are.
    [[nodiscard]] std::string sending_interface() const {
        const std::set<std::string> &known = candidates_.interfaces();
        if (!named_interface_.empty()) {
            return named_interface_;
        }
        if (known.size() == 1) {
            return *known.begin();
        }
        throw wrong_usage(
            known.empty()
                ? "provision: name with --interface where to broadcast the configuration"
                : fmt::format("provision: gateways that need Wi-Fi were heard on {}; name one "
                              "with --interface",
                              fmt::join(known, " and ")));
    }

  private:
    std::string named_interface_; // empty: any
    std::string listened_on_;
    std::string wanted_id_; // empty: any
    wifi_candidates candidates_;
};

void require_confirmation(const provision_arguments &given) {
    if (!given.yes && !can_ask()) {
        throw wrong_usage("provision: give --yes to send password and token without being asked");
    }
}

void confirm_sending(gateway_session &session, const provision_arguments &given,
                     const std::string &interface_name) {
    if (given.yes) {
        return;
    }
    const std::string text = fmt::format("Send the name of network {}{} and the token to {}{}?",
                                         given.network, given.open ? "" : ", its password",
                                         given.broadcasts() ? "every host" : given.address,
                                         interface_name.empty() ? "" : " on " + interface_name);
    if (!is_confirmed(session.out(), text)) {
        throw failure("not_confirmed", "nothing was sent");
    }
}

// Sends the network, shows how often, and returns what came of it.
wifi_setup_outcome send_until_outcome(gateway_session &session, const wifi_setup_order &order,
                                      const wifi_candidates &before) {
    progress_bar bar = session.out().bar("configuration sent", order.times, "times");
    unsigned attempts = 0;
    std::optional<wifi_setup_outcome> outcome;
    lan_client::wifi_setup setup(
        session.loop(), order, before,
        [&](unsigned sent, const lan_client::error &problem) {
            if (problem) {
                session.out().progress(fmt::format("could not send again: {}", problem.detail));
            }
            bar.show(sent);
            if (++attempts == order.times) {
                bar.finish();
                session.out().progress(fmt::format("waiting for the gateway on {} ...",
                                                   interfaces_text(order.new_interface_name)));
            }
        },
        [&outcome](const wifi_setup_outcome &ended) { outcome = ended; },
        session.datagram_observer());
    if (const lan_client::error problem = setup.start()) {
        throw failure(lan_client::error_name(problem.kind),
                      fmt::format("can't send the configuration and listen for what comes of it: "
                                  "{}",
                                  problem.detail));
    }
    session.loop().run_until([&outcome] { return outcome.has_value(); }, 24h);
    bar.finish();
    return *outcome;
}

failure no_sign(const wifi_setup_outcome &outcome) {
    if (outcome.unreadable > 0) {
        return {"other_seeds",
                fmt::format("no readable announcement was received, but {} datagram{} that this "
                            "program can't read: it must be built with the key seeds of the "
                            "gateway",
                            outcome.unreadable, outcome.unreadable == 1 ? "" : "s")};
    }
    return {"no_gateway",
            "no announcement was received since the configuration was sent: check that this "
            "machine is on the gateway's own network and --interface names it, that the gateway "
            "is still in access-point mode, and that the network to join can be reached from here "
            "(--new-interface names the interface)"};
}

failure not_joined(const wifi_failure &told, const std::string &network) {
    const std::string result = told.result ? fmt::format(" (result {})", *told.result) : "";
    return {"wifi_failure",
            fmt::format("the gateway at {} could not join network {}: {}{}; check the name and "
                        "the password, bring it into access-point mode again and repeat",
                        told.address, network, told.description, result)};
}

int show_wifi_outcome(gateway_session &session, const wifi_setup_outcome &outcome,
                      const std::string &network) {
    switch (outcome.end) {
    case wifi_setup_end::silent:
        throw no_sign(outcome);
    case wifi_setup_end::failed:
        throw not_joined(*outcome.failure, network);
    case wifi_setup_end::unconfirmed:
        throw failure("unconfirmed",
                      fmt::format("gateway {} appeared at {} on {}, but it had not said before "
                                  "that it needs Wi-Fi, so it may be another one: compare its id, "
                                  "and name the right one with --gateway ID next time",
                                  outcome.appeared->id, outcome.appeared->address,
                                  outcome.appeared->interface_name));
    case wifi_setup_end::joined:
        break;
    }
    nlohmann::json document = announcement_json(*outcome.appeared);
    document["sent"] = outcome.sent;
    return print_result(session,
                        fmt::format("gateway {} appeared at {} on {}: it has joined its network",
                                    outcome.appeared->id, outcome.appeared->address,
                                    outcome.appeared->interface_name),
                        document);
}

int provision(gateway_session &session, provision_arguments &given) {
    if (!parse_address(given.address) || given.address.find(':') != std::string::npos) {
        throw wrong_usage(
            fmt::format("provision: --address {} is not an IPv4 address", given.address));
    }
    const std::vector<std::string> &named = session.options().gateways;
    const std::string wanted_id = named.empty() ? "" : named.front();
    if (!wanted_id.empty() && parse_address(wanted_id)) {
        throw wrong_usage("provision: --gateway names the id that is to appear; where the "
                          "configuration is sent is named with --address");
    }
    require_confirmation(given);
    const std::string &named_interface = session.options().interface_name;
    wifi_setup_order order{.network = network_to_send(given),
                           .coding = given.coding(),
                           .address = given.address,
                           .interface_name = named_interface,
                           .new_interface_name =
                               given.new_interface.empty() ? named_interface : given.new_interface,
                           .times = given.times,
                           .limit = milliseconds(static_cast<long>(given.wait_s * 1000))};
    const surroundings around(session, given, wanted_id);
    if (!given.force) {
        around.require_waiting();
    }
    if (given.broadcasts()) {
        order.interface_name = around.sending_interface();
    }
    confirm_sending(session, given, order.interface_name);
    return show_wifi_outcome(session, send_until_outcome(session, order, around.candidates()),
                             given.network);
}

} // namespace

verb_work declare_provision(CLI::App &parser) {
    const auto given = std::make_shared<provision_arguments>();
    parser.add_option("--ssid", given->network, "The network to join")
        ->type_name("SSID")
        ->required();
    given->password.declare(parser, "--password", "--password-file");
    parser.add_flag("--open", given->open, "The network has no password")
        ->excludes(parser.get_option("--password"))
        ->excludes(parser.get_option("--password-file"));
    given->token.declare(parser, "--token", "--token-file");
    parser.add_flag("--plain", given->plain, "Send the configuration unencrypted");
    parser
        .add_option("--address", given->address,
                    "Send to this address (default: broadcast on one interface)")
        ->type_name("ADDRESS");
    parser
        .add_option("--new-interface", given->new_interface,
                    "Where the gateway is to appear (default: the one that --interface names, "
                    "or any)")
        ->type_name("IF");
    parser
        .add_option("--repeat", given->times,
                    "Send at most so many times, every second (default 10)")
        ->type_name("N")
        ->check(CLI::Range(1, 1000));
    parser.add_option("--wait", given->wait_s, "How long to wait for the outcome (default 60)")
        ->type_name("SECONDS")
        ->check(CLI::PositiveNumber);
    parser.add_flag("--force", given->force,
                    "Send although no gateway was heard that says that it needs Wi-Fi");
    parser.add_flag("--yes", given->yes, "Don't ask before password and token are sent");
    concerns_no_gateway(parser);
    parser.footer(
        "Join the gateway's own network first. Password and token are taken from "
        "ENGR_WIFI_PASSWORD and ENGR_TOKEN when no option gives them, or asked for. It listens, "
        "for --listen seconds, for gateways that need Wi-Fi, and broadcasts on the one interface "
        "where it has heard some, or on that of --interface. The gateway never answers: it tells "
        "a failure, and appears on the new network after a success. --gateway ID waits for that "
        "one. Without it, only one that had said that it needs Wi-Fi is taken for the right "
        "one.\n\n"
        "Examples:\n"
        "  engr_app provision --ssid office\n"
        "  engr_app provision --ssid office --password-file wifi.txt --token-file token.txt \\\n"
        "      --interface wlan0 --new-interface eth0 --yes");
    return with_arguments(given, provision);
}

} // namespace engr_app
