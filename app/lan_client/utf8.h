// Text from the network that has to be UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace lan_client {

[[nodiscard]] bool is_utf8(std::string_view text);

/** The text with each byte that is not part of valid UTF-8 replaced by U+FFFD. */
[[nodiscard]] std::string to_utf8(std::string_view text);

} // namespace lan_client
