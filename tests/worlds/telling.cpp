/* One story from its beginning to its end, with the invariants that hold at rest and at the end. */
#include "telling.h"

#include "clients/lan_pro_cntl.h"
#include "roles.h"
#include "sim/explore.h"
#include "transport/frame_types.h"
#include "upgrade/upgrade_state.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>

namespace worlds {

namespace {

/** Longest time for the steps of all actors; answer_limit_ms bounds each. */
constexpr uint64_t steps_limit_ms = 10'000'000;
/** At rest the agent waits; a thread that turns without a pause takes far more steps. */
constexpr uint64_t quiet_ms = 10'000;
constexpr uint64_t quiet_steps_max = 20'000;
/** Processor time after which a story hangs. */
constexpr rlim_t hang_s = 60;

void act(stage &at, actor_run &by) {
    const bool is_honest = by.as.is == role::honest_app || by.as.is == role::slow_app;
    for (const step &one : by.as.steps) {
        is_honest ? at.listen(by, one.pause_ms) : at.world.run_for(one.pause_ms);
        one.what->act(at, by, one.number);
    }
    by.done = true;
    while (is_honest && !at.is_over) {
        at.listen(by, 1'000);
    }
}

/** The client table holds at most ten connections, each of them once. */
void check_table(stage &at) {
    const lan_pro_cntl_t *cntl = lan_pro_cntl.load();
    if (cntl == nullptr || at.world.in_use().held_mutexes != 0) {
        return;
    }
    if (cntl->socket_num < 0 || cntl->socket_num > lan_client_max) {
        return at.problem("the table has " + std::to_string(cntl->socket_num) + " clients");
    }
    const std::set<int32_t> different(cntl->sockets, cntl->sockets + cntl->socket_num);
    if (different.size() != static_cast<size_t>(cntl->socket_num) || different.count(-1) != 0) {
        at.problem("the table has a client twice, or an empty slot");
    }
}

/** A watchdog expires only while an upgrade or a transfer is under way. */
void check_watchdog(stage &at) {
    const auto &lines = at.world.log().lines();
    for (; at.lines_checked < lines.size(); ++at.lines_checked) {
        if (!at.had_upgrade && lines[at.lines_checked].message == "upgrade timeout!") {
            at.problem("a watchdog was left armed");
        }
    }
    at.had_upgrade =
        update_stat != 0 || (!at.transfers.empty() && at.transfers.back().outcomes == 0);
}

/** Lets time pass; what holds all along is checked all along. */
void pass(stage &at, uint64_t limit_ms, const std::function<bool()> &is_enough) {
    constexpr uint64_t check_every_ms = 500;
    for (uint64_t passed = 0; passed < limit_ms && !is_enough(); passed += check_every_ms) {
        at.world.run_for(check_every_ms);
        check_table(at);
        check_watchdog(at);
    }
}

void pass(stage &at, uint64_t ms) {
    pass(at, ms, [] { return false; });
}

/** Nothing goes on but what the agent does at rest. */
void check_rest(stage &at) {
    const uint64_t before = at.world.steps();
    pass(at, quiet_ms);
    const uint64_t steps = at.world.steps() - before;
    if (steps > quiet_steps_max) {
        at.problem("a thread spins: " + std::to_string(steps) + " steps at rest");
    }
    const lan_pro_cntl_t *cntl = lan_pro_cntl.load();
    if (cntl == nullptr) {
        return;
    }
    for (int32_t slot = 0; slot < cntl->socket_num; ++slot) {
        if (cntl->foreign_sends[slot] != 0) {
            at.problem("a send is counted that is not under way");
        }
    }
    const auto sockets = static_cast<size_t>(cntl->socket_num + (cntl->tcp_serv_fd >= 0 ? 1 : 0) +
                                             (cntl->udp_fd >= 0 ? 1 : 0));
    if (at.world.in_use().sockets != sockets) {
        at.problem("the agent knows " + std::to_string(sockets) + " sockets of " +
                   std::to_string(at.world.in_use().sockets));
    }
}

/** Each report came to every honest app that was connected all the while. */
void check_reports(stage &at, const std::deque<actor_run> &actors) {
    // A faulty connection is closed by the next cycle of the server task.
    constexpr uint64_t cycle_ms = 15'000;
    for (const actor_run &app : actors) {
        for (const link &over : app.links) {
            for (uint32_t number = 0; number < at.reports.size() && !at.has_misfortune; ++number) {
                const made_report &made = at.reports[number];
                const bool was_there =
                    over.known_ms && *over.known_ms < made.called_ms &&
                    (!over.ended_ms || *over.ended_ms > made.returned_ms + cycle_ms);
                if (was_there && made.accepted && over.reports.count(number) == 0) {
                    at.problem(name_of(app.as) + " lost report " + std::to_string(number) + " of " +
                               made.by);
                }
            }
        }
    }
}

/** Every upgrade has ended, at the latest when the next app left. */
void check_upgrade(stage &at) {
    pass(at, uint64_t{2} * outcome_watchdog_ms);
    if (update_stat != 0) {
        at.problem("an upgrade has not ended");
    }
}

/** Each transfer has had its outcome, unless a call that failed cost it. */
void check_outcomes(stage &at, const story &told) {
    const bool had_misfortune =
        std::any_of(told.actors.begin(), told.actors.end(),
                    [](const actor &each) { return each.is == role::misfortune; });
    for (const transfer &each : at.transfers) {
        if (each.outcomes == 0 && !each.may_have_none && !had_misfortune) {
            at.problem("a transfer had no outcome");
        }
    }
}

/** The misfortune has passed: the agent serves the next app. */
void check_next_app(stage &at) {
    if (engr_lan_pro_cntl_init(ENGR_MODE_LAN) != 0 ||
        !at.world.run_until_listening(lan_port, 5'000)) {
        return at.problem("the agent does not start again");
    }
    const actor next{role::honest_app, 0, {}};
    actor_run by{.as = next};
    at.has_misfortune = false;
    at.has_hostile_app = false;
    at.ask(by, FRM_KEEPALIVE, "", false);
    at.ask(by, FRM_DEV_LIST, "", false);
    if (by.links.empty() || !by.links.back().known_ms) {
        return at.problem("the next app gets no answer");
    }
    by.links.back().peer.close();
}

void play(sim::world &world, const story &told, std::string &log) {
    stage at(world, log);
    at.has_hostile_app = std::any_of(told.actors.begin(), told.actors.end(), [](const actor &each) {
        return each.is == role::hostile_app;
    });
    open_gateway(at);
    engr_lan_pro_cntl_init(ENGR_MODE_LAN);
    world.run_until_listening(lan_port);
    std::deque<actor_run> actors;
    std::vector<sim::test_thread> threads;
    for (const actor &each : told.actors) {
        actor_run &added = actors.emplace_back(actor_run{.as = each});
        threads.push_back(world.spawn(name_of(each), [&at, &added] { act(at, added); }));
    }
    const auto are_done = [&] {
        return std::all_of(actors.begin(), actors.end(),
                           [](const auto &each) { return each.done; });
    };
    pass(at, steps_limit_ms, are_done);
    if (!are_done()) {
        at.problem("an actor never comes to its end");
    }
    pass(at, 2 * uint64_t{chunk_watchdog_ms});
    check_rest(at);
    at.is_over = true;
    threads.clear();
    check_reports(at, actors);
    world.clear_faults();
    for (actor_run &each : actors) {
        for (link &one : each.links) {
            one.peer.close();
        }
        for (sim::peer &one : each.peers) {
            one.reset();
        }
    }
    pass(at, chunk_watchdog_ms);
    check_next_app(at);
    check_upgrade(at);
    check_outcomes(at, told);
    engr_lan_pro_cntl_exit();
    close_gateway();
}

/** Reads what the process of a story wrote; a crash is a problem, too. */
telling collect(pid_t child, int from) {
    std::string text;
    char buffer[4096];
    for (ssize_t count = 0; (count = read(from, buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<size_t>(count));
    }
    close(from);
    int status = 0;
    waitpid(child, &status, 0);
    const size_t log = std::min(text.find('\0'), text.size());
    telling found{.problems = text.substr(0, log),
                  .log = text.substr(std::min(log + 1, text.size()))};
    if (WIFSIGNALED(status)) {
        found.problems += std::string("ended by a signal: ") + strsignal(WTERMSIG(status)) + "\n";
    } else if (WEXITSTATUS(status) != 0) {
        found.problems += "ended with status " + std::to_string(WEXITSTATUS(status)) + "\n";
    }
    return found;
}

} // namespace

void stage::excuse_transfers(const transfer *but) {
    for (transfer &each : transfers) {
        each.may_have_none |= &each != but;
    }
}

void stage::problem(const std::string &text) {
    constexpr size_t lines = 20;
    if (log_.empty()) {
        log_ = world.log().text(lines);
    }
    if (problems_.insert(text).second) {
        world.problem(text);
    }
}

std::string telling::kind() const {
    // The time and the thread of a problem of the simulation stand before its words.
    std::string first = problems.substr(0, problems.find('\n'));
    if (first.starts_with("at ")) {
        first.erase(0, std::min(first.size(), first.find(": ")));
    }
    std::erase_if(first, [](char one) { return one >= '0' && one <= '9'; });
    return first;
}

telling tell(const story &told) {
    int ends[2];
    if (pipe(ends) != 0) {
        return {.problems = "no pipe\n", .log = {}};
    }
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child != 0) {
        close(ends[1]);
        return collect(child, ends[0]);
    }
    close(ends[0]);
    const rlimit processor_time = {.rlim_cur = hang_s, .rlim_max = hang_s};
    setrlimit(RLIMIT_CPU, &processor_time);
    std::string log;
    const sim::run_result run =
        sim::run_story({.seed = told.seed, .steps_without_time_max = 200'000},
                       [&](sim::world &world) { play(world, told, log); });
    std::string text;
    for (const std::string &problem : run.problems) {
        text += problem + "\n";
    }
    if (!text.empty()) {
        constexpr size_t log_bytes = 2'000; // of a problem that shows at the end
        text += '\0' + (log.empty()
                            ? run.log.substr(run.log.size() - std::min(run.log.size(), log_bytes))
                            : log);
    }
    for (size_t at = 0; at < text.size();) {
        const ssize_t count = write(ends[1], text.data() + at, text.size() - at);
        if (count <= 0) {
            break;
        }
        at += static_cast<size_t>(count);
    }
    _exit(0);
}

} // namespace worlds
