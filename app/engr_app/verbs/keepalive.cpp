// keepalive: how long the gateway takes to answer.
#include "base/failure.h"
#include "gateway/frame_format.h"
#include "gateway/session.h"
#include "verbs/arguments.h"
#include "verbs/verb.h"

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

int keepalive(session &present) {
    const lan_client::request question{.type = lan_client::frame_type::keepalive};
    // The first one includes the time to connect.
    present.accepted(present.ask({question}, false).front());
    const auto answers = present.ask({question}, false);
    present.accepted(answers.front());
    const double round_trip_ms = static_cast<double>(answers.front().round_trip.count()) / 1000;
    if (present.out().json()) {
        present.out().document(
            {{"address", present.chosen().address}, {"round_trip_ms", round_trip_ms}});
        return exit_success;
    }
    present.out().line(present.chosen().name() + " answered after " +
                       milliseconds_text(round_trip_ms));
    return exit_success;
}

} // namespace

verb_work declare_keepalive(arguments &declared) {
    declared.notes("Needs no key: a keep-alive has no payload.\n\n"
                   "Examples:\n"
                   "  engr_app keepalive --gateway 127.0.0.1");
    return keepalive;
}

} // namespace engr_app
