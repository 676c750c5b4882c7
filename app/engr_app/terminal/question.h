// A question that the user answers with yes or no.
#pragma once

#include <string_view>

namespace engr_app {

class console;

/** @return whether there is a terminal to ask on */
[[nodiscard]] bool can_ask();

/**
 * Shows a question and waits for a line. What was typed before is no answer.
 *
 * @param text  what will happen, with its question mark; may have several lines
 * @return whether the line says yes
 * @throws failure of the kind "interrupted" when Ctrl-C ends the wait
 */
[[nodiscard]] bool is_confirmed(console &out, std::string_view text);

} // namespace engr_app
