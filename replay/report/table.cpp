#include "report/table.h"

#include "report/contrast.h"
#include "report/story.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <vector>

namespace replay {
namespace {

constexpr std::size_t subject_columns_max = 36;
constexpr std::size_t side_columns_min = 20;
constexpr std::size_t gap = 2;

using row = std::array<std::string, 5>;

std::string heading(std::string text) {
    std::ranges::transform(text, text.begin(),
                           [](unsigned char each) { return std::toupper(each); });
    return text;
}

std::string side_words(const std::optional<answer> &side) {
    if (!side) {
        return "-";
    }
    const std::string words = statement_of(*side);
    return words.empty() ? "empty" : words;
}

row row_of(const difference &one, std::size_t side_columns) {
    const uint32_t client = one.shown().client;
    std::string subject = subject_of(one.shown());
    if (subject.size() > subject_columns_max) {
        subject.replace(subject_columns_max - 3, std::string::npos, "...");
    }
    std::string expected = side_words(one.expected);
    std::string got = side_words(one.got);
    if (one.kind == difference_kind::other_time) {
        expected = "at " + time_text(one.expected->at_us);
        got = "at " + time_text(one.got->at_us);
    }
    const contrast sides = contrast_of(expected, got, side_columns);
    return {time_text(one.at_us), client == 0 ? "-" : std::to_string(client), subject, sides.first,
            sides.second};
}

} // namespace

std::string difference_table(std::span<const difference> of, const side_names &sides,
                             std::size_t rows_max, std::size_t columns) {
    constexpr std::size_t time_columns = 12;
    constexpr std::size_t client_columns = 6;
    const std::size_t before_sides = time_columns + client_columns + subject_columns_max + 4 * gap;
    const std::size_t side_columns =
        std::max(side_columns_min, (std::max(columns, before_sides) - before_sides) / 2);
    std::vector<row> rows{{"TIME", "CLIENT", "WHAT", heading(sides.expected), heading(sides.got)}};
    for (const difference &one : of.first(std::min(of.size(), rows_max))) {
        rows.push_back(row_of(one, side_columns));
    }
    std::array<std::size_t, 4> widths{};
    for (const row &each : rows) {
        for (std::size_t at = 0; at < widths.size(); ++at) {
            widths[at] = std::max(widths[at], each[at].size());
        }
    }
    std::string text;
    for (const row &each : rows) {
        for (std::size_t at = 0; at < widths.size(); ++at) {
            text += fmt::format("{:<{}}", each[at], widths[at] + gap);
        }
        text += each.back() + "\n";
    }
    if (of.size() > rows_max) {
        text += fmt::format("and {} more; --all lists all\n", of.size() - rows_max);
    }
    return text;
}

} // namespace replay
