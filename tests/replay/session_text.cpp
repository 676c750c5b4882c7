#include "session_text.h"

#include "report/story.h"

#include <sstream>

using session::side;

namespace {

std::string rest_of(std::istringstream &words) {
    std::string rest;
    std::getline(words >> std::ws, rest);
    return rest;
}

session::happening frame_of(uint32_t client, std::istringstream &words) {
    std::string arrow;
    session::frame made{.client = client, .from = {}, .began_us = {}, .content = {}};
    words >> arrow >> made.content.number >> made.content.type;
    made.from = arrow.front() == '>' ? side::app : side::gateway;
    if (uint32_t ret = 0; made.from == side::gateway && words >> ret) {
        made.content.ret = ret;
    }
    made.content.payload = rest_of(words);
    made.content.coded = arrow.ends_with('*') ? session::coding::built_in
                                              : session::usual_coding(made.from, made.content);
    return made;
}

session::happening happening_of(const std::string &first, std::istringstream &words) {
    uint32_t client = 0;
    std::string word;
    if (first == "connected") {
        words >> client;
        return session::connected{.client = client, .peer = "127.0.0.1:50000"};
    }
    if (first == "closed") {
        words >> client >> word;
        return session::closed{.client = client, .by = word == "app" ? side::app : side::gateway};
    }
    if (first == "operator") {
        session::control made;
        words >> made.answer;
        while (words >> word) {
            made.line.push_back(word);
        }
        return made;
    }
    if (first == "broadcast") {
        return session::datagram{
            .from = side::gateway,
            .port = 6667,
            .peer = "255.255.255.255",
            .content = session::frame_content{
                .type = 19, .ret = 0, .segment = {}, .payload = rest_of(words)}};
    }
    return frame_of(static_cast<uint32_t>(std::stoul(first)), words);
}

} // namespace

replay::recording session_of(std::initializer_list<std::string_view> lines) {
    replay::recording made;
    made.begin.key = "SESSIONKEY123456";
    for (const std::string_view line : lines) {
        std::istringstream words{std::string(line)};
        uint64_t at_ms = 0;
        std::string first;
        words >> at_ms >> first;
        made.events.push_back({.at_us = at_ms * 1000, .what = happening_of(first, words)});
    }
    return made;
}

std::vector<std::string> lines_of(const std::vector<replay::difference> &found) {
    std::vector<std::string> lines;
    for (const replay::difference &one : found) {
        lines.push_back(std::string(name_of(one.kind)) + " " + std::to_string(one.at_us / 1000) +
                        " " + replay::subject_of(one.shown()));
    }
    return lines;
}

std::vector<std::string> lines_of(const replay::recording &of) {
    std::vector<std::string> lines;
    for (const session::event &each : of.events) {
        if (const std::string line = replay::line_of_event(each); !line.empty()) {
            lines.push_back(line);
        }
    }
    return lines;
}
