// Carries out the control verbs.
#pragma once

#include <string>
#include <string_view>

namespace gatewayd {

/** Carries out one request line and returns the reply line. Any thread; does not throw. */
std::string answer_request(std::string_view line);

} // namespace gatewayd
