// Carries out the control verbs.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <string_view>

namespace gatewayd {

/** Carries out one request line and returns the reply line. Any thread; does not throw. */
std::string answer_request(std::string_view line);

/** The result of the verb "status": the state of agent and services. Any thread. */
nlohmann::ordered_json gateway_status();

} // namespace gatewayd
