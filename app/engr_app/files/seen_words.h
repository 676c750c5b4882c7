// Ids that the user has seen or typed, kept between runs so that the shell can complete them.
//
// Losing them costs nothing, so failures are not reported.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace engr_app {

/** Most words of one source and kind that are remembered. */
inline constexpr std::size_t seen_words_max = 1000;

/** Most sources of one kind; those that had something new last are kept. */
inline constexpr std::size_t word_sources_max = 50;

/**
 * Remembers words in the place of those that the same source had.
 *
 * @param kind    what they are, as the help of verbs names it: CID, GID, SID, ...
 * @param source  who has them: a gateway
 */
void remember_words(const std::string &kind, const std::string &source,
                    const std::vector<std::string> &words);

/** Remembers words that the user typed beside those typed before. */
void remember_typed_words(const std::string &kind, const std::vector<std::string> &words);

/** The remembered words of a kind, sorted. None of them means anything to a shell. */
[[nodiscard]] std::vector<std::string> seen_words(const std::string &kind);

/** Ids and addresses of the gateways that were found last. None of them means anything to a shell.
 */
[[nodiscard]] std::vector<std::string> seen_gateways();

} // namespace engr_app
