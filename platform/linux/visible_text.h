/* Untrusted text as one line without control sequences. */
#pragma once

#include <string>
#include <string_view>

namespace linux_port {

/**
 * Appends a text. Control characters at its end are dropped. Those inside it (of seven and of eight
 * bits), characters that end a line or turn the direction of writing, and bytes that are no UTF-8
 * become \n, \r, \t or \xNN for each byte.
 */
void append_visible(std::string &line, std::string_view text);

} // namespace linux_port
