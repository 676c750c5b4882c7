#include "report/contrast.h"

#include <algorithm>

namespace replay {
namespace {

constexpr std::string_view left_out = "...";

std::size_t common_begin(std::string_view first, std::string_view second) {
    const std::size_t most = std::min(first.size(), second.size());
    std::size_t count = 0;
    while (count < most && first[count] == second[count]) {
        ++count;
    }
    return count;
}

/** @param most  no more than so many characters */
std::size_t common_end(std::string_view first, std::string_view second, std::size_t most) {
    std::size_t count = 0;
    while (count < most && first[first.size() - 1 - count] == second[second.size() - 1 - count]) {
        ++count;
    }
    return count;
}

std::string cut_to(std::string line, std::size_t columns) {
    if (line.size() > columns) {
        line.replace(columns - left_out.size(), std::string::npos, left_out);
    }
    return line;
}

} // namespace

contrast contrast_of(std::string_view first, std::string_view second, std::size_t columns) {
    std::size_t begin = common_begin(first, second);
    const std::size_t shorter = std::min(first.size(), second.size());
    const std::size_t end = common_end(first, second, shorter - begin);
    std::size_t marked = std::max(first.size(), second.size()) - end - begin;
    contrast made{std::string(first), std::string(second), {}};
    const std::size_t longest = std::max(first.size(), second.size());
    const std::size_t kept = columns / 3; // before the difference
    if (longest > columns && begin > kept) {
        const std::size_t dropped = begin - kept;
        for (std::string *line : {&made.first, &made.second}) {
            line->replace(0, dropped + left_out.size(), left_out);
        }
        begin = kept;
    }
    made.first = cut_to(std::move(made.first), columns);
    made.second = cut_to(std::move(made.second), columns);
    marked = std::clamp<std::size_t>(marked, 1, columns - begin);
    made.marks = std::string(begin, ' ') + std::string(marked, '^');
    return made;
}

} // namespace replay
