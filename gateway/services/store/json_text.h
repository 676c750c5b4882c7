// JSON as text, for the places that do not need a JSON library's tree.
#pragma once

#include <string>
#include <string_view>

namespace gateway {

/** A JSON string literal of a text, quotes included; what is not UTF-8 in it is replaced. */
std::string json_literal(std::string_view text);

/** Replaces what is not UTF-8 by U+FFFD. */
std::string valid_utf8(std::string_view text);

/** Whether a character stands for none that is seen. */
bool is_control(char c);

} // namespace gateway
