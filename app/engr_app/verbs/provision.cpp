// provision: gives a gateway in access-point mode its Wi-Fi network and waits for the outcome.
#include "gateway/discovery.h"
#include "gateway/request.h"
#include "lan_client/provisioning.h"
#include "support/utf8.h"
#include "verbs/secret_argument.h"
#include "verbs/verb.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using namespace std::chrono_literals;
using lan_client::announcement;
using lan_client::payload_coding;

constexpr auto repeat_interval = 1000ms;

struct provision_arguments {
    std::string network;
    secret_argument password{"Wi-Fi password", "ENGR_WIFI_PASSWORD"};
    secret_argument token{"token", "ENGR_TOKEN"};
    std::string address = lan_client::broadcast_address;
    std::string new_interface; // empty: the one that is sent on
    int64_t repeat = 10;
    double wait_s = 60;
    bool open = false;
    bool plain = false;
};

std::string text_to_send(provision_arguments &given) {
    if (given.network.empty() || given.network.size() > lan_client::max_network_name_bytes) {
        throw wrong_usage("provision: a network's name has 1 to 32 bytes");
    }
    const lan_client::wifi_configuration wanted{
        given.network, given.open ? "" : given.password.read(), given.token.read()};
    for (const std::string &text : {wanted.network, wanted.password, wanted.token}) {
        if (!support::is_utf8(text)) {
            throw wrong_usage("provision: network, password and token must be valid UTF-8");
        }
    }
    std::string text = lan_client::configuration_text(wanted);
    const std::size_t bytes = lan_client::configuration_bytes(
        text, given.plain ? payload_coding::plain : payload_coding::encrypted);
    if (bytes > lan_client::max_configuration_bytes) {
        throw wrong_usage(fmt::format("provision: network, password and token are too long "
                                      "together: they need a datagram of {} bytes, and gateways "
                                      "take {}",
                                      bytes, lan_client::max_configuration_bytes));
    }
    return text;
}

// One configuration from its first datagram to its outcome.
class provisioning {
  public:
    provisioning(gateway_session &session, const provision_arguments &given, std::string text)
        : session_(session), given_(given), text_(std::move(text)),
          new_interface_(given.new_interface.empty() ? session.options().interface_name
                                                     : given.new_interface),
          channel_(
              session.loop(), [this](const auto &failed) { on_failure(failed); },
              session.observer()),
          listener_(
              session.loop(), [this](const auto &datagram) { on_datagram(datagram); },
              session.observer()),
          repeat_timer_(session.loop()) {
        const std::vector<std::string> &named = session.options().gateways;
        if (!named.empty()) {
            wanted_id_ = named.front();
            if (parse_address(wanted_id_)) {
                throw wrong_usage("provision: --gateway names the id that is to appear; where the "
                                  "configuration is sent is named with --address");
            }
        }
    }

    int run() {
        console &out = session_.out();
        // Gateways that are on the network already must not be taken for the new one.
        out.progress(
            fmt::format("listening on {} for gateways that are there already ...", new_interface_));
        before_ = session_.discover(new_interface_, session_.discovery_time()).announcements;
        for (const announcement &announced : before_) {
            note_if_waiting(announced);
        }
        if (!can_be_recognised()) {
            out.progress("no gateway here says that it needs Wi-Fi, so the right one can't be "
                         "recognised when it appears; --gateway ID names it");
        }
        check(channel_.open(session_.options().interface_name), "listen for a failure");
        check(listener_.open(new_interface_), "listen for gateways");
        send();
        const auto limit = std::chrono::milliseconds(static_cast<long>(given_.wait_s * 1000));
        session_.loop().run_until(
            [this] { return failed_ || appeared_ || (candidate_ && !can_be_recognised()); }, limit);
        if (failed_) {
            throw refused();
        }
        if (!appeared_ && candidate_) {
            throw unconfirmed();
        }
        if (!appeared_) {
            throw silent();
        }
        nlohmann::json document = announcement_json(*appeared_);
        document["sent"] = sent_;
        return print_result(
            session_,
            fmt::format("gateway {} appeared at {} on {}: it has joined its network", appeared_->id,
                        appeared_->address, new_interface_),
            document);
    }

  private:
    static void check(const lan_client::error &problem, const char *what) {
        if (problem) {
            throw failure(lan_client::error_name(problem.kind),
                          fmt::format("can't {}: {}", what, problem.detail));
        }
    }

    void send() {
        const auto problem =
            channel_.send(text_, given_.plain ? payload_coding::plain : payload_coding::encrypted,
                          given_.address);
        // The gateway's network goes away once it has taken the configuration.
        if (sent_ == 0) {
            check(problem, "send the configuration");
        }
        sent_ += problem ? 0 : 1;
        ++attempts_;
        session_.out().progress(
            problem ? fmt::format("could not send again: {}", problem.detail)
                    : fmt::format("sent the configuration to {} on {}, {} of at most {} times",
                                  given_.address, session_.options().interface_name, attempts_,
                                  given_.repeat));
        if (attempts_ < given_.repeat) {
            repeat_timer_.start(repeat_interval, [this] { send(); });
        } else {
            session_.out().progress(
                fmt::format("waiting for the gateway on {} ...", new_interface_));
        }
    }

    void on_failure(const std::optional<lan_client::wifi_failure> &failed) {
        unreadable_ += failed ? 0 : 1;
        if (failed && !failed_) {
            failed_ = failed;
        }
    }

    void on_datagram(const lan_client::parsed_datagram &datagram) {
        const announcement &announced = datagram.content;
        unreadable_ += datagram.kind == lan_client::datagram_kind::unreadable ? 1 : 0;
        if (datagram.kind != lan_client::datagram_kind::announcement || appeared_ ||
            note_if_waiting(announced) || (!wanted_id_.empty() && announced.id != wanted_id_)) {
            return;
        }
        const bool was_there =
            std::ranges::any_of(before_, [&announced](const announcement &other) {
                return other.id == announced.id && other.address == announced.address &&
                       !other.needs_wifi_setup;
            });
        if (!was_there) {
            const bool right = !wanted_id_.empty() || waiting_ids_.contains(announced.id);
            (right ? appeared_ : candidate_) = announced;
        }
    }

    // Remembers a gateway that says that it has no network yet.
    bool note_if_waiting(const announcement &announced) {
        if (announced.needs_wifi_setup) {
            waiting_ids_.insert(announced.id);
        }
        return announced.needs_wifi_setup;
    }

    // Whether the right gateway can be recognised when it appears.
    [[nodiscard]] bool can_be_recognised() const {
        return !wanted_id_.empty() || !waiting_ids_.empty();
    }

    [[nodiscard]] failure unconfirmed() const {
        return {"unconfirmed",
                fmt::format("gateway {} appeared at {} on {}, but it had not said before that it "
                            "needs Wi-Fi, so it may be another one: compare its id, and name the "
                            "right one with --gateway ID next time",
                            candidate_->id, candidate_->address, new_interface_)};
    }

    [[nodiscard]] failure refused() const {
        const std::string result =
            failed_->result ? fmt::format(" (result {})", *failed_->result) : "";
        return {"wifi_failure",
                fmt::format("the gateway at {} could not join network {}: {}{}; check the name and "
                            "the password, bring it into access-point mode again and repeat",
                            failed_->address, given_.network, failed_->description, result)};
    }

    [[nodiscard]] failure silent() const {
        if (unreadable_ > 0) {
            return {
                "other_seeds",
                fmt::format("no readable announcement was received, but {} datagram(s) that this "
                            "program can't read: it must be built with the key seeds of the "
                            "gateway",
                            unreadable_)};
        }
        return {"no_gateway",
                "no announcement was received since the configuration was sent: check that this "
                "machine is on "
                "the gateway's own network and --interface names it, that the gateway is still in "
                "access-point mode, and that the network it shall join can be reached from here "
                "(--new-interface names the interface)"};
    }

    gateway_session &session_;
    const provision_arguments &given_;
    std::string text_;
    std::string new_interface_;
    std::string wanted_id_; // empty: any
    std::vector<announcement> before_;
    lan_client::provisioning_channel channel_;
    lan_client::discovery_listener listener_;
    lan_client::timer repeat_timer_;
    int64_t attempts_ = 0;
    int64_t sent_ = 0;
    unsigned unreadable_ = 0;
    std::optional<lan_client::wifi_failure> failed_;
    std::set<std::string> waiting_ids_; // of gateways that had no network
    std::optional<announcement> appeared_;
    std::optional<announcement> candidate_; // may be the right one
};

int provision(gateway_session &session, provision_arguments &given) {
    if (!parse_address(given.address) || given.address.find(':') != std::string::npos) {
        throw wrong_usage(fmt::format("provision: --address {} is no IPv4 address", given.address));
    }
    return provisioning(session, given, text_to_send(given)).run();
}

} // namespace

verb_work declare_provision(CLI::App &parser) {
    const auto given = std::make_shared<provision_arguments>();
    parser.add_option("--ssid", given->network, "The network that it shall join")
        ->type_name("SSID")
        ->required();
    given->password.declare(parser, "--password", "--password-file");
    parser.add_flag("--open", given->open, "The network has no password");
    given->token.declare(parser, "--token", "--token-file");
    parser.add_flag("--plain", given->plain, "Send the configuration unencrypted");
    parser
        .add_option("--address", given->address,
                    "Send to this address (default: broadcast on the interface)")
        ->type_name("ADDRESS");
    parser
        .add_option("--new-interface", given->new_interface,
                    "Where the gateway is to appear (default: the interface that is sent on)")
        ->type_name("IF");
    parser
        .add_option("--repeat", given->repeat,
                    "Send at most so many times, every second (default 10)")
        ->type_name("N")
        ->check(CLI::Range(1, 1000));
    parser.add_option("--wait", given->wait_s, "How long to wait for the outcome (default 60)")
        ->type_name("SECONDS")
        ->check(CLI::PositiveNumber);
    concerns_no_gateway(parser);
    parser.footer(
        "Join the gateway's own network and name its interface. Password and token are taken from\n"
        "ENGR_WIFI_PASSWORD and ENGR_TOKEN when no option gives them, or asked for. The gateway\n"
        "never answers: it tells a failure, and appears on the new network after a success. It\n"
        "listens first, for --timeout seconds, for gateways that are there already; --gateway ID\n"
        "waits for that one. Without it, only one that had said that it needs Wi-Fi is taken for\n"
        "the right one.\n\n"
        "Examples:\n"
        "  engr_app provision --ssid office --interface wlan0\n"
        "  engr_app provision --ssid office --password-file wifi.txt --token-file token.txt \\\n"
        "      --interface wlan0 --new-interface eth0");
    return with_arguments(given, provision);
}

} // namespace engr_app
