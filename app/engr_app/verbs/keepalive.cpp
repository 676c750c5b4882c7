// keepalive: how long the gateway takes to answer.
#include "base/failure.h"
#include "gateway/format.h"
#include "gateway/request.h"
#include "verbs/verb.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

int keepalive(gateway_session &session) {
    const lan_client::request keep_alive{.type = lan_client::frame_type::keepalive};
    // The first one includes the time to connect.
    expect_success(session, session.ask({keep_alive}, false).front());
    const auto answers = session.ask({keep_alive}, false);
    expect_success(session, answers.front());
    const double round_trip_ms = static_cast<double>(answers.front().round_trip.count()) / 1000;
    if (session.out().json()) {
        session.out().document(
            {{"address", session.chosen().address}, {"round_trip_ms", round_trip_ms}});
        return exit_success;
    }
    session.out().line(fmt::format("{} answered after {}", session.chosen().name(),
                                   milliseconds_text(round_trip_ms)));
    return exit_success;
}

} // namespace

verb_work declare_keepalive(CLI::App &parser) {
    parser.footer("Needs no key: a keep-alive has no payload.\n\n"
                  "Examples:\n"
                  "  engr_app keepalive --gateway 127.0.0.1");
    return keepalive;
}

} // namespace engr_app
