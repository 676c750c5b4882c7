#include "console/lines.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <utility>

namespace console {
namespace {

using nlohmann::ordered_json;

constexpr std::size_t words_max = 300;
/** What a number of JavaScript holds exactly. */
constexpr int64_t line_id_max = int64_t{1} << 53;

} // namespace

std::optional<browser_line> read_line(std::string_view text) {
    const ordered_json json = ordered_json::parse(text, nullptr, false);
    if (!json.is_object() || !json.contains("id") || !json.contains("line") ||
        !json["id"].is_number_integer() || !json["line"].is_array()) {
        return std::nullopt;
    }
    browser_line line{json["id"], {}};
    if (line.id < 0 || line.id > line_id_max || json["line"].empty() ||
        json["line"].size() > words_max) {
        return std::nullopt;
    }
    for (const ordered_json &word : json["line"]) {
        if (!word.is_string()) {
            return std::nullopt;
        }
        line.words.push_back(word);
    }
    return line;
}

std::string answer_message(int64_t id, const line_answer &answer) {
    ordered_json head{{"id", id}, {"ok", answer.ok}};
    if (answer.is_usage) {
        head["usage"] = true;
    }
    head["text"] = answer.text;
    std::string json = head.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
    json.pop_back(); // the result is a JSON text already
    return message_of("answer", fmt::format(R"({},"json":{}}})", json,
                                            answer.json.empty() ? "null" : answer.json));
}

std::string message_of(std::string_view name, std::string_view json) {
    return fmt::format(R"({{"{}":{}}})", name, json);
}

outbox::outbox(nudge hurry) : hurry_(std::move(hurry)) {}

std::size_t outbox::expect() {
    const std::lock_guard guard(mutex_);
    return ++expected_;
}

void outbox::add(std::string message) {
    {
        const std::lock_guard guard(mutex_);
        messages_.push_back(std::move(message));
    }
    hurry_();
}

std::optional<std::string> outbox::take() {
    const std::lock_guard guard(mutex_);
    if (messages_.empty()) {
        return std::nullopt;
    }
    std::optional<std::string> message = std::move(messages_.front());
    messages_.pop_front();
    --expected_;
    return message;
}

} // namespace console
