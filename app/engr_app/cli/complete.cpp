#include "cli/complete.h"

#include "files/seen_words.h"
#include "support/completion.h"
#include "support/interfaces.h"
#include "support/manual_page.h"
#include "verbs/verb.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

namespace engr_app {
namespace {

/** Kinds of ids that only the user knows: a gateway tells nobody which groups and scenes it has. */
constexpr const char *typed_kinds[] = {"GID", "SID", "SCENEID"};

std::vector<std::string> values_of_kind(const std::string &kind) {
    if (kind == "ADDRESS|ID") {
        return seen_gateways();
    }
    if (kind == "IF") {
        return support::interface_names();
    }
    return seen_words(kind == "CIDS" || kind == "ID" ? "CID" : kind);
}

std::vector<support::completion> value_completions(const std::string &kind) {
    std::vector<support::completion> found;
    for (const std::string &each : values_of_kind(kind)) {
        found.push_back({each});
    }
    return found;
}

} // namespace

bool answer_about_command_line(CLI::App &app, int count, const char *const *arguments) {
    const std::string_view first = count > 1 ? arguments[1] : "";
    if (first == support::completion_request || first == support::manual_page_request) {
        declare_all_verbs(app);
    }
    return support::answer_completion_request(app, count, arguments, value_completions) ||
           support::answer_manual_page_request(
               app, "commission Zigbee gateways over the local network", count, arguments);
}

void remember_given_ids(const CLI::App &app) {
    for (const CLI::App *verb : app.get_subcommands()) {
        for (const CLI::Option *each : verb->get_options()) {
            const std::string kind = each->get_positional() ? each->get_name(true) : "";
            if (each->count() > 0 &&
                std::ranges::find(typed_kinds, kind) != std::end(typed_kinds)) {
                remember_typed_words(kind, each->results());
            }
        }
        remember_given_ids(*verb);
    }
}

} // namespace engr_app
