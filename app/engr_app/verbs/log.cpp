// log: fetches the gateway's log.
#include "files/log_sanitizer.h"
#include "files/output_file.h"
#include "gateway/devices.h"
#include "gateway/request.h"
#include "lan_client/log_transfer.h"
#include "verbs/verb.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

struct log_arguments {
    std::string file;
    bool sanitized = false;
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

std::string fetch(gateway_session &session, lan_client::client &client) {
    progress_bar bar = session.out().bar("log");
    lan_client::log_transfer transfer(
        client, session.answer_time(),
        [&bar](uint64_t done_bytes, uint64_t all_bytes) { bar.show(done_bytes, all_bytes); });
    const auto answered = session.ask({transfer.wanted()}).front();
    const lan_client::segment_position last = transfer.last();
    const bool interrupted = answered.failure.kind == lan_client::error_kind::cancelled;
    if (transfer.is_endless()) {
        throw failure("bad_answer",
                      fmt::format("segment {} of {} has come, which is too much or too slow for a "
                                  "log; nothing of it was kept",
                                  last.number, last.count));
    }
    if (answered.failure && (last.number > 0 || interrupted)) {
        const failure why = explain(session, answered);
        throw failure(why.kind(),
                      fmt::format("the log stopped after segment {} of {} and nothing of it was "
                                  "kept; the gateway has removed this log and starts a new one: "
                                  "{}",
                                  last.number, last.count,
                                  interrupted ? "interrupted" : why.what()));
    }
    std::string log = expect_success(session, answered);
    bar.show(log.size(), log.size());
    return log;
}

int show_log(gateway_session &session, std::string log) {
    if (session.out().json()) {
        session.out().document({{"bytes", log.size()}, {"log", log}});
        return exit_success;
    }
    if (log.ends_with('\n')) {
        log.pop_back();
    }
    session.out().text(log);
    return exit_success;
}

int fetch_log(gateway_session &session, const log_arguments &given) {
    const std::string path = given.file.empty() ? "" : session.output_path(given.file);
    if (!path.empty()) {
        check_output_path(path);
    }
    lan_client::client &client = session.connect();
    session.loop().on_interrupt([&client] { client.close(); });
    std::string content;
    if (given.sanitized) {
        log_sanitizer sanitizer(known_ids(session));
        content = sanitizer.clean(fetch(session, client));
    } else {
        content = fetch(session, client);
    }
    if (path.empty()) {
        return show_log(session, std::move(content));
    }
    write_file(path, content);
    return print_result(session,
                        fmt::format("the log of {}, {} bytes, is in {}", session.chosen().name(),
                                    content.size(), path),
                        {{"file", path}, {"bytes", content.size()}});
}

} // namespace

verb_work declare_log(CLI::App &parser) {
    const auto given = std::make_shared<log_arguments>();
    parser.add_option("FILE", given->file,
                      "Where to write it, whole or not at all; when left out, to standard output");
    parser.add_flag("--sanitized", given->sanitized,
                    "Leave out keys, passwords, tokens and network names, and replace each id by "
                    "id-1, id-2 ..., so that a stranger may read it");
    parser.footer("A gateway removes its log when it has been fetched, and holds up all other "
                  "apps meanwhile.\n\n"
                  "Examples:\n"
                  "  engr_app log gateway.log\n"
                  "  engr_app log --sanitized support.log");
    return with_arguments(given, fetch_log);
}

} // namespace engr_app
