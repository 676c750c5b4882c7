// deactivate: takes a gateway out of service.
#include "gateway/request.h"
#include "verbs/verb.h"

#include <iostream>
#include <memory>
#include <mutex>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace engr_app {
namespace {

void confirm(gateway_session &session) {
    if (isatty(STDIN_FILENO) != 1) {
        throw wrong_usage("deactivate: give --yes to deactivate a gateway without being asked");
    }
    static std::mutex terminal; // one gateway after the other
    const std::lock_guard lock(terminal);
    session.out().notice(fmt::format(
        "deactivate {}? Its token and its open joining are forgotten. Type yes to go on:",
        session.chosen().name()));
    std::string typed;
    std::getline(std::cin, typed);
    if (typed != "yes") {
        throw failure("not_confirmed",
                      fmt::format("{} was left as it is", session.chosen().name()));
    }
}

int deactivate(gateway_session &session, bool confirmed) {
    if (!confirmed) {
        confirm(session);
    }
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
    const auto confirmed = std::make_shared<bool>(false);
    parser.add_flag("--yes", *confirmed, "Don't ask for confirmation");
    parser.footer("Its devices stay with the gateway. Its local key is void afterwards.\n\n"
                  "Examples:\n"
                  "  engr_app deactivate\n"
                  "  engr_app deactivate --gateway 192.168.1.20 --yes");
    return with_arguments(confirmed, deactivate);
}

} // namespace engr_app
