// log: fetches the gateway's log.
#include "files/log_sanitizer.h"
#include "files/output_file.h"
#include "files/user_paths.h"
#include "gateway/devices.h"
#include "gateway/request.h"
#include "lan_client/log_transfer.h"
#include "verbs/verb.h"

#include <memory>
#include <optional>
#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

struct log_arguments {
    std::string file;
    bool sanitized = false;
    bool force = false;
};

// What has come of a log, which the gateway has removed: it can't be fetched again.
struct fetched_log {
    std::string text;
    std::optional<failure> stopped; // why it isn't whole
};

std::vector<std::string> known_ids(gateway_session &session) {
    std::vector<std::string> ids;
    for (const device &one :
         parse_device_list(expect_success(session, session.ask({device_list_request()}).front()))) {
        ids.push_back(one.id);
    }
    if (session.chosen().announced) {
        ids.push_back(session.chosen().announced->id);
    }
    return ids;
}

fetched_log fetch(gateway_session &session, lan_client::client &client) {
    progress_bar bar = session.out().bar("log");
    lan_client::log_transfer transfer(
        client, session.answer_time(),
        [&bar](uint64_t done_bytes, uint64_t all_bytes) { bar.show(done_bytes, all_bytes); });
    lan_client::answer answered = session.ask({transfer.wanted()}).front();
    const lan_client::segment_position last = transfer.last();
    if (transfer.is_endless()) {
        return {std::move(answered.payload),
                failure("bad_answer", fmt::format("segment {} of {} has come, which is too much or "
                                                  "too slow for a log",
                                                  last.number, last.count))};
    }
    const bool interrupted = answered.failure.kind == lan_client::error_kind::cancelled;
    if (answered.failure && (last.number > 0 || interrupted)) {
        const failure why = explain(session, answered);
        return {std::move(answered.payload),
                failure(why.kind(),
                        fmt::format("the log stopped after segment {} of {} ({}); the gateway has "
                                    "removed this log and starts a new one",
                                    last.number, last.count,
                                    interrupted ? "interrupted" : why.what()))};
    }
    std::string log = expect_success(session, answered);
    bar.show(log.size(), log.size());
    return {std::move(log), {}};
}

int show_log(gateway_session &session, const fetched_log &log) {
    if (session.out().json()) {
        session.out().document({{"gateway", session.chosen().label()},
                                {"bytes", log.text.size()},
                                {"complete", !log.stopped},
                                {"log", log.text}});
    } else if (!log.text.empty() || !log.stopped) {
        session.out().text(log.text.ends_with('\n') ? log.text.substr(0, log.text.size() - 1)
                                                    : log.text);
    }
    if (log.stopped) {
        throw failure(log.stopped->kind(),
                      fmt::format("{}; what came is above", log.stopped->what()));
    }
    return exit_success;
}

int store_log(gateway_session &session, const std::string &path, const fetched_log &log) {
    if (!log.stopped) {
        write_file(path, log.text, readers::owner); // a log may tell secrets
        return print_result(session,
                            fmt::format("the log of {}, {} bytes, is in {}",
                                        session.chosen().name(), log.text.size(), path),
                            {{"file", path}, {"bytes", log.text.size()}});
    }
    if (log.text.empty()) {
        throw failure(*log.stopped);
    }
    const std::string partial = path + ".partial";
    write_file(partial, log.text, readers::owner);
    throw failure(log.stopped->kind(), fmt::format("{}; the {} bytes that came are in {}",
                                                   log.stopped->what(), log.text.size(), partial));
}

// Keeps what can't go where it should, since there is no other copy. Returns what to tell.
std::string keep_elsewhere(gateway_session &session, const failure &problem,
                           const std::string &text) {
    const std::string path = saved_log_path(session.chosen().file_mark() + ".log");
    try {
        write_user_file(path, text);
    } catch (const failure &also) {
        return fmt::format("{}; the gateway has removed this log, and it can't be kept: {}",
                           problem.what(), also.what());
    }
    return fmt::format("{}; the gateway has removed this log, so it is kept in {}", problem.what(),
                       path);
}

int fetch_log(gateway_session &session, const log_arguments &given) {
    const std::string path = given.file.empty() ? "" : session.output_path(given.file);
    if (!path.empty()) {
        check_output_path(path, given.force);
    }
    lan_client::client &client = session.connect();
    session.loop().on_interrupt([&client] { client.close(); });
    const auto ids = given.sanitized ? known_ids(session) : std::vector<std::string>();
    fetched_log log = fetch(session, client);
    if (given.sanitized) {
        log.text = log_sanitizer(ids).clean(log.text);
    }
    try {
        return path.empty() ? show_log(session, log) : store_log(session, path, log);
    } catch (const failure &problem) {
        if (problem.kind() != "output" || log.text.empty()) {
            throw;
        }
        throw failure(problem.kind(), keep_elsewhere(session, problem, log.text));
    }
}

} // namespace

verb_work declare_log(CLI::App &parser) {
    const auto given = std::make_shared<log_arguments>();
    parser.add_option("FILE", given->file, "Where to write it; when left out, to standard output");
    parser.add_flag("--force", given->force, "Overwrite FILE");
    parser.add_flag("--sanitized", given->sanitized,
                    "Leave out keys, passwords, tokens and network names, and replace each id by "
                    "id-1, id-2 ..., so that a stranger may read it");
    parser.footer("A gateway removes its log when it has been fetched, and holds up all other "
                  "apps meanwhile.\nWhen it stops on the way, what came is kept in FILE.partial; "
                  "when FILE or "
                  "standard output can't be written, in ~/.local/state/engr_app.\n\n"
                  "Examples:\n"
                  "  engr_app log gateway.log\n"
                  "  engr_app log --sanitized support.log");
    return with_arguments(given, fetch_log);
}

} // namespace engr_app
