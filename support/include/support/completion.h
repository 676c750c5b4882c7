// Completion of a command line for a shell, from the program's own table of options.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace support {

/** What may stand in the place of a word. */
struct completion {
    std::string word;
    std::string help = {}; /**< one line, or empty */
};

/**
 * Completions of a value.
 *
 * @param kind  as the table of options names it, such as "FILE" or "CID"
 */
using value_source = std::function<std::vector<completion>(const std::string &kind)>;

/** Values that are names of files: the shell knows them best. */
constexpr const char *file_names = ":files";

/**
 * The first argument of a program whose further ones are a command line to be completed: the words
 * up to the cursor, without the program's name; the last one, which may be empty, is incomplete.
 */
constexpr const char *completion_request = "__complete";

/**
 * What the last word of a command line may become. A single word file_names says that it may be
 * the name of any file.
 *
 * @param app     the program's options; it has not parsed anything
 * @param words   as above
 * @param values  knows the values that the table of options does not; may be empty
 * @return those that begin as the last word does
 */
std::vector<completion> complete(const CLI::App &app, std::span<const std::string> words,
                                 const value_source &values);

/**
 * Answers a completion request: one line each, "WORD<tab>HELP".
 *
 * @return whether it was one; else nothing is printed
 */
bool answer_completion_request(const CLI::App &app, int count, const char *const *arguments,
                               const value_source &values);

} // namespace support
