// The number of typing errors between two words.
#include "base/suggestion.h"

#include <algorithm>
#include <cstddef>

namespace engr_app {
namespace {

constexpr std::size_t longest_word = 64;

// Letters left out, added, replaced, or exchanged with their neighbour.
std::size_t typing_errors(std::string_view left, std::string_view right) {
    const std::size_t columns = right.size() + 1;
    std::vector<std::size_t> before_last(columns);
    std::vector<std::size_t> last(columns);
    std::vector<std::size_t> now(columns);
    for (std::size_t column = 0; column < columns; ++column) {
        last[column] = column;
    }
    for (std::size_t row = 1; row <= left.size(); ++row) {
        now[0] = row;
        for (std::size_t column = 1; column < columns; ++column) {
            const bool same = left[row - 1] == right[column - 1];
            now[column] = std::min(
                {last[column] + 1, now[column - 1] + 1, last[column - 1] + (same ? 0U : 1U)});
            if (row > 1 && column > 1 && left[row - 1] == right[column - 2] &&
                left[row - 2] == right[column - 1]) {
                now[column] = std::min(now[column], before_last[column - 2] + 1);
            }
        }
        before_last.swap(last);
        last.swap(now);
    }
    return last.back();
}

} // namespace

std::string closest_word(std::string_view word, const std::vector<std::string> &known) {
    std::string closest;
    std::size_t least = std::max<std::size_t>(1, std::min(word.size(), longest_word) / 3) + 1;
    for (const std::string &candidate : known) {
        const std::size_t errors =
            word.size() > longest_word ? longest_word : typing_errors(word, candidate);
        if (errors < least) {
            least = errors;
            closest = candidate;
        }
    }
    return closest;
}

std::string did_you_mean(std::string_view word, const std::vector<std::string> &known) {
    const std::string closest = closest_word(word, known);
    return closest.empty() ? "" : "; did you mean '" + closest + "'?";
}

} // namespace engr_app
