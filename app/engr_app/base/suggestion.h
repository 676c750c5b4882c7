// Finding the word that somebody probably meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace engr_app {

/** @return the known word that differs least from this one; empty when all differ much */
[[nodiscard]] std::string closest_word(std::string_view word,
                                       const std::vector<std::string> &known);

/** @return "; did you mean 'WORD'?" for the closest word, or nothing */
[[nodiscard]] std::string did_you_mean(std::string_view word,
                                       const std::vector<std::string> &known);

} // namespace engr_app
