// deactivate: resets a gateway to "not activated".
#include "gateway/request.h"
#include "verbs/consent.h"
#include "verbs/verb.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

int deactivate(gateway_session &session, consent &asked) {
    asked.require(session,
                  "Deactivate, which forgets the token, the open joining and the local key,");
    ask_one(session, {.type = lan_client::frame_type::gw_unactive});
    return print_result(
        session,
        session.chosen().name() +
            " is deactivated: from now on it speaks with the key of gateways that are not "
            "activated, so leave out --local-key and unset ENGR_LOCAL_KEY",
        {{"deactivated", true}});
}

} // namespace

verb_work declare_deactivate(CLI::App &parser) {
    const auto asked = std::make_shared<consent>();
    asked->declare(parser, asked_runs::any);
    parser.footer("Its devices stay with the gateway. Its local key is void afterwards.\n\n"
                  "Examples:\n"
                  "  engr_app deactivate\n"
                  "  engr_app deactivate --gateway 192.168.1.20 --yes");
    return with_arguments(asked, deactivate);
}

} // namespace engr_app
