// Life of the scenario and the trace, for those who open, close and show the gateway.
#pragma once

#include "gateway_services/scenario.h"

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string_view>

namespace gateway {

/** Sets up a scenario and a trace; before any call. The lines are those of open_options. */
void open_calls(const scenario &faults, std::function<void(std::string_view)> keep_line,
                std::function<void(std::string_view)> keep_line_soon);
/** Waits for the calls under way; those that come later do nothing. */
void end_calls();
/** Ends scenario and trace, after end_calls. */
void close_calls();

/**
 * Refuses an unknown name and a result that the call cannot return.
 *
 * @throws usage_error
 */
void check_scenario_entry(const scenario_entry &entry, bool is_callback);

/** Services that misbehave: name to result and how often it was returned. */
nlohmann::ordered_json faults_status();
/** All callbacks: name to what it does and how often it was called since that was set. */
nlohmann::ordered_json callbacks_status();

/** Puts the present callbacks into the gateway record, and no others. */
void install_callbacks();

} // namespace gateway
