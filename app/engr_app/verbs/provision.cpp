// provision: gives a gateway in access-point mode its Wi-Fi network and waits for the outcome.
#include "gateway/discovery.h"
#include "gateway/request.h"
#include "lan_client/provisioning.h"
#include "support/utf8.h"
#include "terminal/question.h"
#include "verbs/secret_argument.h"
#include "verbs/verb.h"

#include <algorithm>
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
    bool force = false;
    bool yes = false;
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

// What the network looks like before anything is sent: who waits for Wi-Fi, and where.
class surroundings {
  public:
    // wanted_id: of the gateway that is to get its Wi-Fi; empty: any
    surroundings(gateway_session &session, const provision_arguments &given, std::string wanted_id)
        : named_interface_(session.options().interface_name), wanted_id_(std::move(wanted_id)) {
        const bool elsewhere =
            !given.new_interface.empty() && given.new_interface != named_interface_;
        listened_on_ = elsewhere ? "" : named_interface_;
        session.end_on_interrupt();
        session.out().progress(fmt::format("listening on {} for gateways that are there ...",
                                           interfaces_text(listened_on_)));
        const auto enough = [this](const announcement &announced) { return note(announced); };
        heard_ = session.listen({listened_on_, session.discovery_time(), enough, {}}).announcements;
    }

    // Remembers a gateway that has no network yet. Returns whether it is the one wanted.
    bool note(const announcement &announced) {
        const bool here = named_interface_.empty() || announced.interface_name == named_interface_;
        if (!announced.needs_wifi_setup || !here) {
            return false;
        }
        waiting_ids_.insert(announced.id);
        if (wanted_id_.empty() || announced.id == wanted_id_) {
            interfaces_.insert(announced.interface_name);
        }
        return announced.id == wanted_id_;
    }

    // Whether the gateway was heard before, with a network, where it is now.
    [[nodiscard]] bool had_before(const announcement &now) const {
        return std::ranges::any_of(heard_, [&now](const announcement &other) {
            return other.id == now.id && other.address == now.address && !other.needs_wifi_setup;
        });
    }

    [[nodiscard]] bool is_waiting(const std::string &id) const { return waiting_ids_.contains(id); }
    [[nodiscard]] bool anyone_waits() const { return !waiting_ids_.empty(); }

    // Nobody's password goes out where no gateway has asked for it.
    void require_waiting() const {
        const std::string places =
            interfaces_text(named_interface_.empty() ? listened_on_ : named_interface_);
        if (wanted_id_.empty() && waiting_ids_.empty()) {
            throw failure("no_gateway", fmt::format("no gateway on {} says that it needs Wi-Fi "
                                                    "({} heard): --force sends all the same",
                                                    places, heard_.size()));
        }
        if (!wanted_id_.empty() && !is_waiting(wanted_id_)) {
            const bool there = std::ranges::count(heard_, wanted_id_, &announcement::id) > 0;
            throw failure("no_gateway",
                          fmt::format("gateway {} {} on {}: --force sends all the same", wanted_id_,
                                      there ? "does not say that it needs Wi-Fi" : "was not heard",
                                      places));
        }
    }

    // Where to broadcast: as named, else where the only ones that wait are.
    [[nodiscard]] std::string sending_interface() const {
        if (!named_interface_.empty()) {
            return named_interface_;
        }
        if (interfaces_.size() == 1) {
            return *interfaces_.begin();
        }
        throw wrong_usage(
            interfaces_.empty()
                ? "provision: name with --interface where to broadcast the configuration"
                : fmt::format("provision: gateways that need Wi-Fi were heard on {}; name one "
                              "with --interface",
                              fmt::join(interfaces_, " and ")));
    }

  private:
    std::string named_interface_; // empty: any
    std::string listened_on_;
    std::string wanted_id_;
    std::vector<announcement> heard_;
    std::set<std::string> waiting_ids_; // of gateways that have no network
    std::set<std::string> interfaces_;  // that those who are meant were heard on
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
    const bool to_all = given.address == lan_client::broadcast_address;
    const std::string text =
        fmt::format("Send the name of network {}{} and the token to {}{}?", given.network,
                    given.open ? "" : ", its password", to_all ? "every host" : given.address,
                    interface_name.empty() ? "" : " on " + interface_name);
    if (!is_confirmed(session.out(), text)) {
        throw failure("not_confirmed", "nothing was sent");
    }
}

// One configuration from its first datagram to its outcome.
class provisioning {
  public:
    provisioning(gateway_session &session, const provision_arguments &given, std::string text,
                 std::string wanted_id)
        : session_(session), given_(given), text_(std::move(text)), wanted_id_(wanted_id),
          around_(session, given, std::move(wanted_id)),
          new_interface_(given.new_interface.empty() ? session.options().interface_name
                                                     : given.new_interface),
          channel_(
              session.loop(), [this](const auto &failed) { on_failure(failed); },
              session.observer()),
          listener_(
              session.loop(), [this](const auto &datagram) { on_datagram(datagram); },
              session.observer()),
          repeat_timer_(session.loop()) {}

    int run() {
        if (!given_.force) {
            around_.require_waiting();
        }
        const bool broadcasts = given_.address == lan_client::broadcast_address;
        interface_ = broadcasts ? around_.sending_interface() : session_.options().interface_name;
        confirm_sending(session_, given_, interface_);
        check(channel_.open(interface_), "listen for a failure");
        check(listener_.open(new_interface_), "listen for gateways");
        bar_ =
            session_.out().bar("configuration sent", static_cast<uint64_t>(given_.repeat), "times");
        send();
        const auto limit = std::chrono::milliseconds(static_cast<long>(given_.wait_s * 1000));
        session_.loop().run_until(
            [this] { return failed_ || appeared_ || (candidate_ && !can_be_recognised()); }, limit);
        bar_.finish();
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
                        appeared_->address, appeared_->interface_name),
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
        if (problem) {
            session_.out().progress(fmt::format("could not send again: {}", problem.detail));
        }
        bar_.show(static_cast<uint64_t>(sent_));
        if (attempts_ < given_.repeat) {
            repeat_timer_.start(repeat_interval, [this] { send(); });
        } else {
            bar_.finish();
            session_.out().progress(
                fmt::format("waiting for the gateway on {} ...", interfaces_text(new_interface_)));
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
        if (datagram.kind != lan_client::datagram_kind::announcement || appeared_) {
            return;
        }
        around_.note(announced);
        if (announced.needs_wifi_setup || (!wanted_id_.empty() && announced.id != wanted_id_) ||
            around_.had_before(announced)) {
            return;
        }
        const bool right = !wanted_id_.empty() || around_.is_waiting(announced.id);
        (right ? appeared_ : candidate_) = announced;
    }

    // Whether the right gateway can be recognised when it appears.
    [[nodiscard]] bool can_be_recognised() const {
        return !wanted_id_.empty() || around_.anyone_waits();
    }

    [[nodiscard]] failure unconfirmed() const {
        return {"unconfirmed",
                fmt::format("gateway {} appeared at {} on {}, but it had not said before that it "
                            "needs Wi-Fi, so it may be another one: compare its id, and name the "
                            "right one with --gateway ID next time",
                            candidate_->id, candidate_->address, candidate_->interface_name)};
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
                fmt::format("no readable announcement was received, but {} datagram{} that this "
                            "program can't read: it must be built with the key seeds of the "
                            "gateway",
                            unreadable_, unreadable_ == 1 ? "" : "s")};
        }
        return {"no_gateway",
                "no announcement was received since the configuration was sent: check that this "
                "machine is on the gateway's own network and --interface names it, that the "
                "gateway is still in "
                "access-point mode, and that the network to join can be reached from here "
                "(--new-interface names the interface)"};
    }

    gateway_session &session_;
    const provision_arguments &given_;
    std::string text_;
    std::string wanted_id_; // empty: any
    surroundings around_;
    std::string interface_;     // that is sent on; empty: as the routing table has it
    std::string new_interface_; // that the gateway is to appear on; empty: any
    lan_client::provisioning_channel channel_;
    lan_client::discovery_listener listener_;
    lan_client::timer repeat_timer_;
    progress_bar bar_;
    int64_t attempts_ = 0;
    int64_t sent_ = 0;
    unsigned unreadable_ = 0;
    std::optional<lan_client::wifi_failure> failed_;
    std::optional<announcement> appeared_;
    std::optional<announcement> candidate_; // may be the right one
};

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
    return provisioning(session, given, text_to_send(given), wanted_id).run();
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
        .add_option("--repeat", given->repeat,
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
