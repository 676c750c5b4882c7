// Where the program keeps what belongs to its user: the directories that desktops and shells use.
#pragma once

#include <string>
#include <string_view>

namespace engr_app {

/** @return what the user has set, in ~/.config; empty when there is no home directory */
[[nodiscard]] std::string config_path();

/** @return the user's names of devices and rooms, in ~/.config; empty as above */
[[nodiscard]] std::string names_path();

/** @return the gateway that `use` has chosen, in ~/.local/state; empty as above */
[[nodiscard]] std::string gateway_in_use_path();

/** @return where a log is kept that can't go where the user wants it; empty as above */
[[nodiscard]] std::string saved_log_path(const std::string &name);

/** @return the gateways heard last, in ~/.cache; empty as above */
[[nodiscard]] std::string known_gateways_path();

/**
 * @return ids of one kind for the completion of command lines, one a line, in ~/.cache; empty as
 * above. The file of no source is never there: its name is how those of all sources begin.
 */
[[nodiscard]] std::string seen_words_path(std::string_view kind, std::string_view source);

/**
 * Writes such a file as a whole, for its owner only, and makes its directories.
 *
 * @throws failure when it can't be written
 */
void write_user_file(const std::string &path, const std::string &text);

} // namespace engr_app
