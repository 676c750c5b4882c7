// One question for all gateways of a run.
#include "verbs/consent.h"

#include "base/counted.h"
#include "gateway/session.h"
#include "terminal/question.h"

#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace engr_app {
namespace {

constexpr std::size_t most_named_gateways = 20;

bool concerns_all(CLI::App &parser) {
    CLI::App *whole = &parser;
    while (whole->get_parent() != nullptr) {
        whole = whole->get_parent();
    }
    const CLI::Option *all = whole->get_option_no_throw("--all");
    return all != nullptr && all->count() > 0;
}

// "on gateway X", or the names of all of the run.
std::string place_text(gateway_session &session) {
    const std::vector<std::string> &all = session.run_gateways();
    if (all.size() < 2) {
        return "on " + session.chosen().name();
    }
    std::string names;
    for (std::size_t at = 0; at < std::min(all.size(), most_named_gateways); ++at) {
        names += (at == 0 ? "" : ", ") + all[at];
    }
    if (all.size() > most_named_gateways) {
        names += fmt::format(" and {} more", all.size() - most_named_gateways);
    }
    return fmt::format("on {}: {}", counted(all.size(), "gateway"), names);
}

} // namespace

void consent::declare(CLI::App &parser, std::function<asked_runs()> asked) {
    asked_runs_ = std::move(asked);
    parser.add_flag("-y,--yes", given_, "Don't ask for confirmation");
    parser.callback([this, &parser] {
        const asked_runs now = asked_runs_();
        const bool needed =
            now == asked_runs::any || (now == asked_runs::with_all && concerns_all(parser));
        if (needed && !given_ && !can_ask()) {
            throw CLI::ValidationError(
                now == asked_runs::any
                    ? "this can't be taken back; give --yes to do it without being asked"
                    : "with --all this changes every gateway found; give --yes to do it without "
                      "being asked");
        }
    });
}

void consent::declare(CLI::App &parser, asked_runs asked) {
    declare(parser, [asked] { return asked; });
}

void consent::require(gateway_session &session, const std::string &change) {
    const asked_runs now = asked_runs_();
    if (now == asked_runs::any || (now == asked_runs::with_all && session.options().all)) {
        require_always(session, change);
    }
}

void consent::require_always(gateway_session &session, const std::string &change) {
    const std::string place = place_text(session);
    const std::lock_guard lock(mutex_);
    if (!given_ && !can_ask()) {
        throw wrong_usage(
            fmt::format("{} {}: give --yes to do this without being asked", change, place));
    }
    if (!given_ && !std::exchange(asked_, true)) {
        given_ = is_confirmed(session.out(), fmt::format("{} {}?", change, place));
    }
    if (!given_) {
        throw failure("not_confirmed", "nothing was changed");
    }
}

} // namespace engr_app
