// deactivate: takes a gateway out of service.
#include "gateway/request.h"
#include "verbs/arguments.h"

#include <iostream>
#include <memory>
#include <mutex>

#include <nlohmann/json.hpp>
#include <unistd.h>

namespace engr_app {
namespace {

void confirm(gateway_session &session) {
    if (isatty(STDIN_FILENO) != 1) {
        throw wrong_usage("deactivate: give --yes to deactivate a gateway without being asked");
    }
    static std::mutex one_question_at_a_time;
    const std::lock_guard lock(one_question_at_a_time);
    session.out().notice("deactivate " + session.chosen().name() +
                         "? Its token and its open joining are forgotten. Type yes to go on:");
    std::string typed;
    std::getline(std::cin, typed);
    if (typed != "yes") {
        throw failure("not_confirmed", session.chosen().name() + " was left as it is");
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

verb_work declare_deactivate(arguments &declared) {
    const auto confirmed = std::make_shared<bool>(false);
    declared.flag("--yes", *confirmed, "Don't ask for confirmation");
    declared.notes("Its devices stay with the gateway. Its local key is void afterwards.\n\n"
                   "Examples:\n"
                   "  engr_app deactivate\n"
                   "  engr_app deactivate --gateway 192.168.1.20 --yes");
    return [confirmed](gateway_session &session) { return deactivate(session, *confirmed); };
}

} // namespace engr_app
