// wifi: moves the gateway to another Wi-Fi network.
#include "gateway/request.h"
#include "lan_client/provisioning.h"
#include "verbs/consent.h"
#include "verbs/secret_argument.h"
#include "verbs/verb.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

constexpr std::size_t max_password_bytes = 64;

struct wifi_arguments {
    std::string network;
    bool open = false;
    secret_argument password{"Wi-Fi password", "ENGR_WIFI_PASSWORD"};
    consent asked;
};

int wifi(gateway_session &session, wifi_arguments &given) {
    if (given.network.empty() || given.network.size() > lan_client::max_network_name_bytes) {
        throw wrong_usage("wifi: a network's name has 1 to 32 bytes");
    }
    given.asked.require(session, fmt::format("Switch to Wi-Fi network {}", given.network));
    nlohmann::json payload{{"ssid", given.network}};
    if (!given.open) {
        payload["passwd"] = given.password.read();
        if (given.password.read().size() > max_password_bytes) {
            throw wrong_usage("wifi: a password has at most 64 characters");
        }
    }
    ask_one(session, json_request(lan_client::frame_type::wifi_modify, payload));
    return print_result(
        session,
        fmt::format("{} is switching to network {}: its address may change, find it "
                    "again with engr_app discover",
                    session.chosen().name(), given.network),
        {{"ssid", given.network}});
}

} // namespace

verb_work declare_wifi(CLI::App &parser) {
    const auto given = std::make_shared<wifi_arguments>();
    parser.add_option("SSID", given->network, "The name of the network")->required();
    given->password.declare(parser, "--password", "--password-file");
    parser.add_flag("--open", given->open, "The network has no password")
        ->excludes(parser.get_option("--password"))
        ->excludes(parser.get_option("--password-file"));
    given->asked.declare(parser, asked_runs::with_all);
    parser.footer("Without an option the password is taken from the environment variable\n"
                  "ENGR_WIFI_PASSWORD, or asked for on the terminal. It is never shown.\n\n"
                  "Examples:\n"
                  "  engr_app wifi office\n"
                  "  engr_app wifi office --password-file wifi.txt");
    return with_arguments(given, wifi);
}

} // namespace engr_app
