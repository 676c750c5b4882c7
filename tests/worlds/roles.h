/* The actions of each role, and the gateway that they meet. */
#pragma once

#include "stage.h"

namespace worlds {

std::span<const action> honest_actions();
std::span<const action> hostile_actions();
std::span<const action> application_actions();
std::span<const action> misfortune_actions();

/** Opens the reference gateway's services with an upgrade service that counts outcomes. */
void open_gateway(stage &at);
void close_gateway();

} // namespace worlds
