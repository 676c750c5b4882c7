#include "report/report.h"

#include "report/contrast.h"
#include "report/story.h"
#include "report/table.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

namespace replay {
namespace {

using nlohmann::ordered_json;

constexpr std::size_t story_lines = 6;
constexpr std::size_t log_lines = 3;

/** How much there was in a session. */
struct amount {
    std::size_t apps = 0;
    std::size_t frames = 0;
    std::size_t control_lines = 0;
};

amount amount_of(const recording &of) {
    amount counted;
    for (const session::event &each : of.events) {
        counted.apps += std::holds_alternative<session::connected>(each.what) ? 1 : 0;
        counted.frames += std::holds_alternative<session::frame>(each.what) ? 1 : 0;
        counted.control_lines += std::holds_alternative<session::control>(each.what) ? 1 : 0;
    }
    return counted;
}

std::string counted(std::size_t count, std::string_view thing) {
    return fmt::format("{} {}{}", count, thing, count == 1 ? "" : "s");
}

std::string amount_text(const recording &of) {
    const amount all = amount_of(of);
    std::string text =
        fmt::format("{} of {}", counted(all.frames, "frame"), counted(all.apps, "app"));
    if (all.control_lines != 0) {
        text += ", " + counted(all.control_lines, "line") + " of the operator";
    }
    return text + " in " + time_text(end_of(of)).substr(0, 8);
}

/** What is wrong, as a sentence. */
std::string sentence_of(const difference &one, const findings &of) {
    const std::string what = description_of(one.shown());
    switch (one.kind) {
    case difference_kind::missing:
        return fmt::format("{} is missing from {}", what, of.got.name);
    case difference_kind::unexpected:
        return fmt::format("{} is only from {}", what, of.got.name);
    case difference_kind::other:
        return fmt::format("{} says something else", what);
    case difference_kind::other_time:
        return fmt::format("{} comes at another time, {} instead of {}", what,
                           time_text(one.got->at_us), time_text(one.expected->at_us));
    case difference_kind::ended:
        return fmt::format("{} ended by itself", one.got ? of.got.name : of.expected.name);
    }
    return {};
}

std::string words_or_nothing(const std::optional<answer> &of) {
    return of ? words_of(*of) : "nothing";
}

void add_lines(std::string &text, std::string_view title, const std::vector<std::string> &lines,
               std::size_t columns) {
    if (lines.empty()) {
        return;
    }
    text += fmt::format("\n  {}\n", title);
    for (std::string line : lines) {
        if (line.size() + 4 > columns) {
            line.replace(columns - 7, std::string::npos, "...");
        }
        text += "    " + line + "\n";
    }
}

/** Both sides under each other. */
std::string sides_text(const difference &one, const findings &of, std::size_t columns) {
    const std::size_t width = std::max(of.expected.name.size(), of.got.name.size());
    const std::size_t indent = width + 4;
    const contrast lines = contrast_of(words_or_nothing(one.expected), words_or_nothing(one.got),
                                       std::max<std::size_t>(columns, indent + 20) - indent);
    std::string text = fmt::format("\n  {:<{}}  {}\n  {:<{}}  {}\n", of.expected.name, width,
                                   lines.first, of.got.name, width, lines.second);
    if (one.kind == difference_kind::other) {
        text += std::string(indent, ' ') + lines.marks + "\n";
    }
    return text;
}

/** Whether something had begun at a time: a line of the operator is recorded with its answer. */
bool had_begun(const session::event &of, uint64_t at_us) {
    const auto *line = std::get_if<session::control>(&of.what);
    const uint64_t began_us = line != nullptr ? line->began_us.value_or(of.at_us) : of.at_us;
    return began_us / 1000 <= at_us / 1000;
}

/** What was before a difference. A play that ended by itself does not tell the last event. */
std::vector<std::string> story_of(const difference &one, const findings &of) {
    if (one.kind == difference_kind::ended) {
        const auto &events = of.recorded->events;
        const auto last =
            std::find_if(events.rbegin(), events.rend(),
                         [&](const session::event &each) { return had_begun(each, one.at_us); });
        return story_before(*of.recorded, static_cast<std::size_t>(events.rend() - last),
                            story_lines);
    }
    return story_before(one.expected ? *of.expected.happened : *of.got.happened, one.shown().event,
                        story_lines);
}

/** The first difference, with what was before it. */
std::string first_text(const findings &of, std::size_t columns) {
    const difference &first = of.differences.front();
    const answer &shown = first.shown();
    std::string text = fmt::format("\nat {}: {}\n", time_text(first.at_us), sentence_of(first, of));
    add_lines(text, "before it", story_of(first, of), columns);
    if (first.kind == difference_kind::ended) {
        text += "\n  " + words_of(shown) + "\n";
    } else {
        text += sides_text(first, of, columns);
    }
    const uint64_t got_us = first.got ? first.got->at_us : first.at_us;
    add_lines(text, of.got.name + " logged", log_before(*of.got.happened, got_us, log_lines),
              columns);
    return text;
}

/** How many differences there are after the first one, or a table of all. */
std::string others_text(const findings &of, const report_style &style) {
    const std::size_t others = of.differences.size() - 1;
    if (style.rows != 0 && others != 0) {
        return "\n" + difference_table(of.differences, {of.expected.name, of.got.name}, style.rows,
                                       style.columns);
    }
    return others == 0
               ? ""
               : fmt::format("\nafter it: {}; --all lists all\n", counted(others, "difference"));
}

ordered_json side_json(const std::optional<answer> &of) {
    if (!of) {
        return nullptr;
    }
    ordered_json shown{{"at", of->at_us}, {"words", words_of(*of)}};
    if (of->kind == answer_kind::frame) {
        shown["type"] = of->content.type;
        shown["number"] = of->content.number;
        shown["ret"] = of->content.ret.value_or(0);
        shown["text"] = of->content.payload;
    }
    return shown;
}

} // namespace

std::string description_of(const answer &of) {
    const std::string type = session::type_name(of.content.type);
    switch (of.kind) {
    case answer_kind::frame:
        if (is_report(of)) {
            return fmt::format("the report {}{} to client {}", type,
                               of.about.empty() ? "" : " of " + of.about, of.client);
        }
        return fmt::format("the answer to {} {} of client {}", of.content.number, type, of.client);
    case answer_kind::bytes:
        return fmt::format("what is sent to client {}", of.client);
    case answer_kind::closed:
        return fmt::format("the closing of client {}", of.client);
    case answer_kind::datagram:
        return "the datagram " + subject_of(of);
    case answer_kind::control:
        return "the answer to " + subject_of(of);
    case answer_kind::ended:
        return "the end";
    }
    return {};
}

std::string report_text(const findings &of, const report_style &style) {
    const std::string head = fmt::format("{}: {}\n", of.session, amount_text(*of.recorded));
    if (of.differences.empty()) {
        return head + fmt::format("{} answers as {}\n", of.got.name,
                                  of.expected.name == "recorded" ? "recorded" : of.expected.name);
    }
    return head +
           fmt::format("{} between {} and {}; the first one:\n",
                       counted(of.differences.size(), "difference"), of.expected.name,
                       of.got.name) +
           first_text(of, style.columns) + others_text(of, style);
}

ordered_json report_json(const findings &of) {
    const amount all = amount_of(*of.recorded);
    ordered_json shown{{"session", of.session},
                       {"apps", all.apps},
                       {"frames", all.frames},
                       {"control_lines", all.control_lines},
                       {"length_us", end_of(*of.recorded)},
                       {"expected", of.expected.name},
                       {"got", of.got.name},
                       {"differences", ordered_json::array()}};
    for (const difference &one : of.differences) {
        shown["differences"].push_back({{"kind", name_of(one.kind)},
                                        {"at", one.at_us},
                                        {"client", one.shown().client},
                                        {"sentence", sentence_of(one, of)},
                                        {"expected", side_json(one.expected)},
                                        {"got", side_json(one.got)}});
    }
    if (!of.differences.empty()) {
        shown["before_first"] = story_of(of.differences.front(), of);
    }
    return shown;
}

} // namespace replay
