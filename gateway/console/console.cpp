#include "console/console.h"

#include "console/access.h"
#include "console/event_history.h"
#include "console/lines.h"
#include "console/page_files.h"
#include "console/web_server.h"
#include "console/worker.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <optional>
#include <utility>

namespace console {
namespace {

using steady_clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using namespace std::chrono_literals;

/** Events that a browser gets at first. */
constexpr std::size_t first_events_max = 2'000;
/** Lines of a browser that wait for their answers; and so many more that are refused. */
constexpr std::size_t waiting_lines_max = 16;

constexpr milliseconds state_time = 200ms;
/** What changes without an event, as the seconds of open joining, is looked for so often. */
constexpr milliseconds idle_state_time = 1s;
/** A state that takes long to write is written less often: a tenth of the time goes into it. */
constexpr int state_share = 10;

/** What a function writes; something else when it can't, since the store may fail. */
std::string written_or(const std::function<std::string()> &write, const std::string &otherwise) {
    try {
        return write();
    } catch (const std::exception &) {
        return otherwise;
    }
}

} // namespace

/** What all browsers are fed from. On the server's thread, but for add_event. */
class live_console::feed {
  public:
    feed(const place &where, subject shown)
        : shown_(std::move(shown)),
          server_({.address = where.address,
                   .port = where.port,
                   .token = make_token(),
                   .files = page_files(),
                   .socket_path = "/live",
                   .converse = [this](nudge hurry) { return converse(std::move(hurry)); },
                   .prepare_round = [this] { return prepare_round(); }}) {}
    ~feed() { server_.end(); }
    feed(const feed &) = delete;
    feed &operator=(const feed &) = delete;

    void add_event(std::string text) {
        if (intake_.add(std::move(text))) {
            server_.wake();
        }
    }

    [[nodiscard]] const subject &shown() const { return shown_; }
    [[nodiscard]] const event_history &history() const { return history_; }
    [[nodiscard]] const std::string &state() const { return state_; }
    [[nodiscard]] uint64_t state_number() const { return state_number_; }
    [[nodiscard]] std::string page_address() const { return server_.page_address(); }
    void begin() { server_.begin(); }

    /** Has a line carried out and its answer put into a box. */
    void carry_out(browser_line line, const std::shared_ptr<outbox> &answers) {
        worker_.add([this, line = std::move(line), answers] {
            answers->add(answer_message(line.id, shown_.carry_out(line.words)));
        });
    }

  private:
    std::unique_ptr<conversation> converse(nudge hurry);
    milliseconds prepare_round();
    void write_state(steady_clock::time_point now);

    subject shown_;
    event_intake intake_;
    event_history history_;
    std::string state_; /**< without "at" */
    uint64_t state_number_ = 0;
    bool has_news_ = false;               /**< since the state was written */
    steady_clock::time_point next_state_; /**< the earliest time to write it after an event */
    steady_clock::time_point idle_state_; /**< the time to write it without one */
    // The server's thread uses all of the above and the worker, so it ends first; its posts need it
    // to be there until the worker has ended.
    web_server server_;
    worker worker_;
};

/** One browser. */
class live_console::browser : public conversation {
  public:
    browser(feed &from, nudge hurry)
        : from_(from), answers_(std::make_shared<outbox>(std::move(hurry))),
          cursor_(from.history().newest(first_events_max)) {}

    void begin_round() override { round_is_open_ = true; }

    std::optional<std::string> next_message() override {
        if (std::exchange(is_new_, false)) {
            return message_of("hello", written_or(from_.shown().hello, "{}"));
        }
        if (auto answer = answers_->take()) {
            return answer;
        }
        if (!std::exchange(round_is_open_, false)) {
            return std::nullopt;
        }
        auto message = news();
        round_is_open_ = message.has_value(); // until nothing is left
        return message;
    }

    bool take_message(std::string_view text) override {
        auto line = read_line(text);
        if (!line) {
            return false;
        }
        const std::size_t waiting = answers_->expect();
        if (waiting <= waiting_lines_max) {
            from_.carry_out(std::move(*line), answers_);
        } else {
            line_answer refused;
            refused.text = "too many lines wait for their answers";
            answers_->add(answer_message(line->id, refused));
        }
        return waiting <= 2 * waiting_lines_max;
    }

  private:
    std::optional<std::string> news() {
        if (!from_.state().empty() && state_number_ != from_.state_number()) {
            state_number_ = from_.state_number();
            return message_of("state", fmt::format(R"({{"at":{},{})", from_.shown().now(),
                                                   std::string_view(from_.state()).substr(1)));
        }
        if (batch_.empty()) {
            batch_ = from_.history().next(cursor_);
        }
        if (cursor_.dropped != 0) {
            return message_of("dropped", std::to_string(std::exchange(cursor_.dropped, 0)));
        }
        if (batch_.empty()) {
            return std::nullopt;
        }
        return message_of("events", "[" + std::exchange(batch_, {}) + "]");
    }

    feed &from_;
    std::shared_ptr<outbox> answers_;
    event_cursor cursor_;
    std::string batch_; /**< behind the message that tells of dropped ones */
    uint64_t state_number_ = 0;
    bool is_new_ = true;
    bool round_is_open_ = false;
};

std::unique_ptr<conversation> live_console::feed::converse(nudge hurry) {
    return std::make_unique<browser>(*this, std::move(hurry));
}

milliseconds live_console::feed::prepare_round() {
    taken_events taken = intake_.take();
    has_news_ = has_news_ || !taken.events.empty();
    history_.add(std::move(taken));
    if (!server_.has_conversations()) {
        state_.clear();
        return idle_state_time;
    }
    const auto now = steady_clock::now();
    if (now >= (has_news_ || state_.empty() ? next_state_ : idle_state_)) {
        write_state(now);
    }
    const auto next = has_news_ ? next_state_ : idle_state_;
    return std::chrono::ceil<milliseconds>(next - steady_clock::now());
}

void live_console::feed::write_state(steady_clock::time_point now) {
    has_news_ = false;
    std::string state = written_or(shown_.state, state_);
    if (state != state_) {
        state_ = std::move(state);
        ++state_number_;
    }
    const auto then = steady_clock::now();
    next_state_ = std::max(now + state_time, then + (then - now) * state_share);
    idle_state_ = std::max(next_state_, now + idle_state_time);
}

live_console::live_console(const place &where, subject shown)
    : feed_(std::make_unique<feed>(where, std::move(shown))) {}

live_console::~live_console() = default;

std::string live_console::page_address() const {
    return feed_->page_address();
}

void live_console::begin() {
    feed_->begin();
}

void live_console::add_event(std::string text) {
    feed_->add_event(std::move(text));
}

} // namespace console
