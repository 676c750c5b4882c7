// online: which devices are online and which are not.
#include "base/failure.h"
#include "gateway/devices.h"
#include "gateway/request.h"
#include "verbs/verb.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

int online(gateway_session &session) {
    const auto answers = session.ask({line_state_request()});
    line_state known;
    if (!says_no_devices(answers[0])) {
        known = parse_line_state(expect_success(session, answers[0]));
    }
    console &out = session.out();
    if (out.json()) {
        out.document({{"online", known.online}, {"offline", known.offline}});
        return exit_success;
    }
    std::vector<console::row> rows;
    for (const std::string &id : known.online) {
        rows.push_back({id, "online"});
    }
    for (const std::string &id : known.offline) {
        rows.push_back({id, "offline"});
    }
    out.table({"CID", "STATE"}, rows);
    out.progress(fmt::format("{} online, {} offline", known.online.size(), known.offline.size()));
    return exit_success;
}

} // namespace

verb_work declare_online(CLI::App &parser) {
    parser.footer("Examples:\n"
                  "  engr_app online\n"
                  "  engr_app online --json");
    return online;
}

} // namespace engr_app
