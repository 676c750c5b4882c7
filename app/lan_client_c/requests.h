// Requests of the C interface, each with one answer as an event. Called on the loop's thread.
#pragma once

#include "handle.h"
#include "lan_client/client.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace lan_client_c {

[[nodiscard]] engr_client_error code_of(const lan_client::error &problem);

/** The announcement becomes part of the event, with its address. */
void set_announcement(owned_event &event, const lan_client::announcement &announced);

/** Of a request that was refused before anything was sent. */
void add_failure(engr_client &client, uint32_t id, uint32_t type, engr_client_error why,
                 std::string text);

void add_progress(engr_client &client, uint32_t id, uint32_t type, uint64_t done, uint64_t total);

void ask(engr_client &client, uint32_t id, lan_client::request wanted);

/** As engr_client_devices; a timeout of 0 is that of the client. */
void ask_devices(engr_client &client, uint32_t id, std::chrono::milliseconds timeout);

/** As engr_client_log. */
void ask_log(engr_client &client, uint32_t id);

} // namespace lan_client_c
