// ping: how long the gateway takes to answer, and whether it always does.
#include "base/counted.h"
#include "base/failure.h"
#include "gateway/format.h"
#include "gateway/request.h"
#include "verbs/verb.h"

#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using lan_client::error_kind;

struct ping_arguments {
    uint64_t count = 4; // 0: until Ctrl-C
    double interval_s = 1;
};

class pinger {
  public:
    pinger(gateway_session &session, const ping_arguments &given)
        : session_(session), out_(session.out()), given_(given) {}

    int run() {
        lan_client::client &client = session_.connect();
        session_.loop().on_interrupt([this, &client] {
            stopped_ = true;
            client.close();
        });
        // The first answer shows that the gateway takes the connection. It is not counted, since
        // its time includes that of connecting.
        const lan_client::answer first = ask();
        if (!stopped_) {
            expect_success(session_, first);
        }
        std::optional<failure> ended;
        while (!stopped_ && !ended) {
            ended = ping();
            if (is_done() || ended) {
                break;
            }
            const auto pause = static_cast<long>(given_.interval_s * 1000);
            session_.loop().run_until([this] { return stopped_; },
                                      std::chrono::milliseconds(pause));
        }
        show_statistics();
        if (ended) {
            throw failure(*ended);
        }
        return answered_ > 0 ? exit_success : exit_failed;
    }

  private:
    [[nodiscard]] bool is_done() const { return given_.count > 0 && sent_ >= given_.count; }

    lan_client::answer ask() {
        return session_.ask({{.type = lan_client::frame_type::keepalive}}, false).front();
    }

    // Returns what makes further attempts useless.
    std::optional<failure> ping() {
        const lan_client::answer got = ask();
        if (stopped_) {
            return {};
        }
        ++sent_;
        if (got.failure && got.failure.kind != error_kind::timed_out) {
            return explain(session_, got);
        }
        if (got.failure) {
            show(fmt::format("no answer within {}", seconds_text(session_.answer_time())));
            return {};
        }
        const double time_ms = static_cast<double>(got.round_trip.count()) / 1000;
        least_ms_ = answered_ == 0 ? time_ms : std::min(least_ms_, time_ms);
        greatest_ms_ = std::max(greatest_ms_, time_ms);
        sum_ms_ += time_ms;
        ++answered_;
        show(fmt::format("answer {} from {}: {}", sent_, session_.chosen().place(),
                         milliseconds_text(time_ms)));
        return {};
    }

    void show(const std::string &sentence) {
        if (!out_.json()) {
            out_.line(sentence);
        }
    }

    void show_statistics() {
        const double loss_percent = sent_ == 0 ? 0
                                               : 100.0 * static_cast<double>(sent_ - answered_) /
                                                     static_cast<double>(sent_);
        nlohmann::json document{
            {"sent", sent_},     {"answered", answered_}, {"loss_percent", loss_percent},
            {"min_ms", nullptr}, {"avg_ms", nullptr},     {"max_ms", nullptr}};
        std::string sentence = fmt::format("{} sent, {} answered, {:.0f} % loss",
                                           counted(sent_, "keep-alive"), answered_, loss_percent);
        if (answered_ > 0) {
            const double average_ms = sum_ms_ / static_cast<double>(answered_);
            document.update(
                {{"min_ms", least_ms_}, {"avg_ms", average_ms}, {"max_ms", greatest_ms_}});
            sentence += fmt::format(", min/avg/max {:.3f}/{:.3f}/{:.3f} ms", least_ms_, average_ms,
                                    greatest_ms_);
        }
        print_result(session_, sentence, document);
    }

    gateway_session &session_;
    console &out_;
    const ping_arguments &given_;
    bool stopped_ = false;
    uint64_t sent_ = 0;
    uint64_t answered_ = 0;
    double least_ms_ = 0;
    double greatest_ms_ = 0;
    double sum_ms_ = 0;
};

int ping_gateway(gateway_session &session, const ping_arguments &given) {
    return pinger(session, given).run();
}

} // namespace

verb_work declare_ping(CLI::App &parser) {
    const auto given = std::make_shared<ping_arguments>();
    parser.add_option("-c,--count", given->count, "How many (default 4; 0: until Ctrl-C)")
        ->type_name("N");
    parser
        .add_option("-i,--interval", given->interval_s,
                    "Time from an answer to the next keep-alive (default 1)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 3600.0));
    parser.footer("Needs no key: a keep-alive has no payload. Exit status 1 when none was "
                  "answered. With --json\nonly the statistics are shown.\n\n"
                  "Examples:\n"
                  "  engr_app ping --gateway 127.0.0.1\n"
                  "  engr_app ping -c 100 -i 0.1 --json");
    return with_arguments(given, ping_gateway);
}

} // namespace engr_app
