// token: gives the gateway the installer's token.
#include "gateway/request.h"
#include "verbs/consent.h"
#include "verbs/secret_argument.h"
#include "verbs/verb.h"

#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

constexpr std::size_t max_token_bytes = 64;

struct token_arguments {
    secret_argument token{"token", "ENGR_TOKEN"};
    consent asked;
};

int set_token(gateway_session &session, token_arguments &given) {
    given.asked.require(session, "Set the token");
    const std::string &secret = given.token.read();
    if (secret.size() > max_token_bytes || !std::ranges::all_of(secret, [](char character) {
            return character >= ' ' && character <= '~';
        })) {
        throw wrong_usage("the token must have 1 to 64 printable characters");
    }
    ask_one(session, json_request(lan_client::frame_type::token_bind, {{"token", secret}}));
    return print_result(session, fmt::format("the token is bound to {}", session.chosen().name()),
                        {{"bound", true}});
}

verb_work declare_token_set(CLI::App &parser) {
    const auto given = std::make_shared<token_arguments>();
    given->asked.declare(parser, asked_runs::with_all);
    parser.add_option("TOKEN", given->token.given(),
                      "The token itself (visible in process lists; prefer --token-file)");
    given->token.declare(parser, nullptr, "--token-file");
    return with_arguments(given, set_token);
}

} // namespace

verb_work declare_token(CLI::App &parser) {
    parser.footer("Without TOKEN and --token-file the token is taken from the environment variable "
                  "ENGR_TOKEN, or\nasked for on the terminal.\n\n"
                  "Examples:\n"
                  "  engr_app token set --token-file token.txt\n"
                  "  ENGR_TOKEN=... engr_app token set");
    return add_subverbs(parser,
                        {{"set", "give the gateway the installer's token", declare_token_set}});
}

} // namespace engr_app
